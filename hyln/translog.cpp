// Transaction-log archiving: one session over the extents the server offers, each copied
// to the target, flushed and compared with its source before the next is asked for.

#include "commands.h"
#include "host_callbacks.h"
#include "notes.h"
#include "output.h"

namespace fs = std::filesystem;

namespace hyln {
namespace {

// The runtime's answer when no further extent waits to be archived.
const unsigned short kNoMoreLogs = 0x13DE;
const size_t kLogPathSize = 1024;

// Copies the extent and reads the copy back: only a verified copy counts.
bool copyVerified(const fs::path& source, const fs::path& target, size_t& bytes)
{
    std::vector<unsigned char> data;
    std::vector<unsigned char> copy;
    if (!readWholeFile(source, data) || !writeWhole(target, data.data(), data.size()) || !readWholeFile(target, copy))
        return false;
    bytes = data.size();
    return copy == data;
}

// `copyFailed` tells the caller that the extent offered last was not archived.
int archiveExtents(const Options& options, size_t& copied, size_t& bytes, bool& copyFailed)
{
    for (bool first = true; !interrupted(); first = false) {
        UNIVERSALNOTEID logId{};
        unsigned int logNumber = 0;
        char logPath[kLogPathSize] = {};
        HyLNError status = HyLNUtilities::getTransactionExtent(logId, logNumber, logPath, first);
        if ((status.GetErrorCode() & 0x3FFF) == kNoMoreLogs)
            return kSuccess;
        if (status.IsErrorSet())
            return fail(status, "asking for the next log extent", "the transaction log");
        fs::path target = fs::path(options.outDir) / fs::path(logPath).filename();
        size_t size = 0;
        if ((copyFailed = !copyVerified(logPath, target, size)))
            return failWith("archiving log extent " + std::to_string(logNumber), logPath,
                            "the copy could not be written or differs from its source");
        bytes += size;
        output().record(target.string(),
                        {{"log_number", logNumber}, {"source", logPath}, {"path", target.string()}, {"bytes", size}},
                        "log");
        output().progress(++copied, "log extents archived");
    }
    return kSuccess;
}

} // namespace

int archiveTransactionLogs(const Options& options)
{
    Runtime runtime;
    if (int failed = runtime.start(options))
        return failed;
    std::error_code error;
    fs::create_directories(options.outDir, error);
    if (error)
        return failWith("creating the output directory", options.outDir, error.message());
    unsigned short style = 0;
    HyLNError status = HyLNUtilities::getTransLogStyle(style);
    if (status.IsErrorSet())
        return fail(status, "reading the transaction-log style", "the server");
    status = HyLNUtilities::beginArchivinglogs();
    if (status.IsErrorSet())
        return fail(status, "starting to archive the transaction log", "the server");
    size_t copied = 0;
    size_t bytes = 0;
    bool copyFailed = false;
    int result = archiveExtents(options, copied, bytes, copyFailed);
    // Ending the session confirms every extent it offered. After a failed copy it stays
    // open instead: the runtime offers the extents of an unended session again.
    if (!copyFailed) {
        status = HyLNUtilities::endArchivinglogs();
        if (status.IsErrorSet() && result == kSuccess)
            result = fail(status, "ending the transaction-log archiving", "the server");
    }
    output().summary("\narchived " + std::to_string(copied) + " log extents (" + std::to_string(bytes) + " bytes)" +
                         (interrupted() ? " (interrupted)" : ""),
                     {{"extents", copied}, {"bytes", bytes}, {"style", style}, {"interrupted", interrupted()}});
    return interrupted() ? kInterrupted : result;
}

} // namespace hyln
