// host_example: the smallest complete host of libHYLNTool.so. It starts the Notes
// runtime for one data directory, lists every database in it, and shuts down.
//
//   usage: host_example PROGRAM_DIR DATA_DIR
//
// PROGRAM_DIR contains notes/latest/linux/libnotes.so; DATA_DIR holds notes.ini.
// Database paths go to standard output, everything else to standard error.
#include <cstdio>
#include <cstring>
#include <set>
#include <string>

#include "HYLNTool.h"

namespace {

// The library hands over finished text: print it with "%s", never use it as a format.
void logToStderr(const char* function, int level, const char* file, int line, const char* text, ...)
{
    if (level > 0) // -1 errors and 0 normal lines only; 2..4 are tracing
        return;
    size_t length = std::strlen(text);
    while (length > 0 && text[length - 1] == '\n')
        --length;
    std::fprintf(stderr, "[%d] %s (%s:%d): %.*s\n", level, function, file, line, static_cast<int>(length), text);
}

bool quitRequested() { return false; }  // false: keep working
bool deliverRecord(char*) { return false; } // false: record delivered (none are sent here)
bool sessionLost() { return false; }    // false: the host session is still there

// DiscoverDatabases passes the std::set it was given as the context.
unsigned short collectPath(void* context, SEARCH_MATCH*, ITEM_TABLE* summary)
{
    std::string path;
    if (HyLNUtilities::GetSummaryValue(summary, "$Path", path))
        static_cast<std::set<std::string>*>(context)->insert(path);
    return NOERROR; // anything else stops the search and becomes its status
}

// An empty text means the runtime could not supply one, as when libnotes.so never loaded.
int fail(HyLNError status, const char* what, const char* withoutText)
{
    std::fflush(stdout); // the loader writes its reason to standard output, without a line end
    std::string text = status.GetMessage();
    std::fprintf(stderr, "\nhost_example: %s failed: Domino code %u (0x%04X): %s\n", what, status.GetErrorCode(),
                 status.GetErrorCode(), text.empty() ? withoutText : text.c_str());
    return 1;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc != 3) {
        std::fprintf(stderr, "usage: %s PROGRAM_DIR DATA_DIR\n", argv[0]);
        return 2;
    }
    const std::string programDir = argv[1];
    const std::string dataDir = argv[2];

    // 1. Callbacks first: the library may log from the very next call.
    SetLogCallback(logToStderr);
    SetJobQuitCallback(quitRequested);
    SetSendMsgCallback(deliverRecord);
    SetCheckConnectionCallback(sessionLost);

    // 2. The instance: a free label, byte 0x12, the data directory. The server "" is the local one.
    HyLNInstance instance(std::string("example") + '\x12' + dataDir, "");
    if (!instance.Initialize()) {
        std::fprintf(stderr, "host_example: cannot derive the instance paths from %s\n", dataDir.c_str());
        return 1;
    }

    // 3. Load libnotes.so from the program directory and start the runtime.
    HyLNError status = instance.InitializeNotesEnvForUnix(programDir, "=" + dataDir + "/notes.ini");
    if (status.IsErrorSet())
        return fail(status, "starting the Domino runtime", // nothing to terminate
                    ("cannot load " + programDir + "/notes/latest/linux/libnotes.so").c_str());

    // 4. Work.
    std::set<std::string> databases;
    status = HyLNUtilities::DiscoverDatabases(instance.GetDataDirectory(), &databases, collectPath);
    if (!status.IsErrorSet()) {
        for (const std::string& path : databases)
            std::printf("%s\n", path.c_str());
        std::fflush(stdout);
        std::fprintf(stderr, "found %zu databases in %s\n", databases.size(), dataDir.c_str());
    }

    // 5. Shut the runtime down once, on the thread that started it.
    instance.TerminateNotes();
    return status.IsErrorSet() ? fail(status, "database discovery", "no text") : 0;
}
