// Extent files and the control file of the transaction log.
#include "extents.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>

#include "environment.h"
#include "sim_core.h"
#include "timedate.h"

namespace fs = std::filesystem;

namespace sim {
namespace {

constexpr DWORD kExtentMagic = 0x58544C48; // "HLTX"
constexpr DWORD kRecordMagic = 0x52544C48; // "HLTR"
constexpr DWORD kExtentVersion = 1;
constexpr DWORD kDefaultExtentSize = 64u * 1024u * 1024u;
const char* const kDefaultLogPath = "logdir";

struct ExtentHeader {
    DWORD magic;
    DWORD version;
    UNID log;
    DWORD number;
    DWORD reserved;
};
static_assert(sizeof(ExtentHeader) == 32, "extent headers are 32 bytes");

// The smallest extent holds its header and one record.
constexpr DWORD kMinimumExtentSize = sizeof(ExtentHeader) + sizeof(LogRecord);

struct Control {
    UNID log{};
    std::map<DWORD, DWORD> archived; // extent number -> bytes archived
};

// Held while a call reads or changes the log directory.
class DirectoryLock {
public:
    explicit DirectoryLock(const std::string& directory)
    {
        std::error_code ignored;
        fs::create_directories(directory, ignored);
        fd_ = ::open((directory + "/log.lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
        if (fd_ >= 0 && flock(fd_, LOCK_EX) != 0) {
            close(fd_);
            fd_ = -1;
        }
    }
    ~DirectoryLock()
    {
        if (fd_ >= 0)
            close(fd_);
    }
    DirectoryLock(const DirectoryLock&) = delete;
    DirectoryLock& operator=(const DirectoryLock&) = delete;
    bool held() const { return fd_ >= 0; }

private:
    int fd_ = -1;
};

std::string extentPath(const std::string& directory, DWORD number)
{
    char name[32];
    std::snprintf(name, sizeof name, "/extent-%07u.txn", number);
    return directory + name;
}

std::string unidText(const UNID& unid)
{
    char text[40];
    std::snprintf(text, sizeof text, "%08x %08x %08x %08x", unid.File.Innards[0], unid.File.Innards[1],
                  unid.Note.Innards[0], unid.Note.Innards[1]);
    return text;
}

bool writeControl(const std::string& directory, const Control& control)
{
    std::string path = directory + "/control";
    std::string temporary = path + ".new";
    {
        std::ofstream out(temporary, std::ios::trunc);
        out << "log " << unidText(control.log) << "\n";
        for (const auto& [number, bytes] : control.archived)
            out << "archived " << number << " " << bytes << "\n";
        if (!out.flush())
            return false;
    }
    return std::rename(temporary.c_str(), path.c_str()) == 0;
}

// The control file, made with a new log identity when the log is new.
STATUS readControl(const std::string& directory, Control& control)
{
    std::ifstream in(directory + "/control");
    if (!in) {
        control.log = makeUnid(nowTimedate());
        return writeControl(directory, control) ? NOERROR : STS_STORAGE;
    }
    std::string line;
    bool identified = false;
    while (std::getline(in, line)) {
        std::istringstream fields(line);
        std::string kind;
        fields >> kind;
        if (kind == "log") {
            fields >> std::hex >> control.log.File.Innards[0] >> control.log.File.Innards[1] >>
                control.log.Note.Innards[0] >> control.log.Note.Innards[1];
            identified = !fields.fail();
        } else if (kind == "archived") {
            DWORD number = 0;
            DWORD bytes = 0;
            if (fields >> number >> bytes)
                control.archived[number] = bytes;
        }
    }
    return identified ? NOERROR : STS_STORAGE;
}

// The extent files by number.
std::vector<Extent> listExtents(const std::string& directory)
{
    std::vector<Extent> extents;
    std::error_code error;
    for (fs::directory_iterator it(directory, error), end; !error && it != end; it.increment(error)) {
        unsigned number = 0;
        std::string name = it->path().filename().string();
        if (std::sscanf(name.c_str(), "extent-%7u.txn", &number) != 1 || extentPath(directory, number) != it->path())
            continue;
        std::error_code sizeError;
        auto size = fs::file_size(it->path(), sizeError);
        if (!sizeError)
            extents.push_back({number, it->path().string(), static_cast<DWORD>(size)});
    }
    std::sort(extents.begin(), extents.end(), [](const Extent& a, const Extent& b) { return a.number < b.number; });
    return extents;
}

bool appendBytes(const std::string& path, const void* data, size_t size)
{
    int fd = ::open(path.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0644);
    if (fd < 0)
        return false;
    const char* bytes = static_cast<const char*>(data);
    bool ok = true;
    while (ok && size > 0) {
        ssize_t written = write(fd, bytes, size);
        ok = written > 0;
        if (ok) {
            bytes += written;
            size -= static_cast<size_t>(written);
        }
    }
    return close(fd) == 0 && ok;
}

// The extent the next record goes to, begun when it is new.
STATUS extentFor(const std::string& directory, const Control& control, DWORD extentSize, Extent& extent)
{
    std::vector<Extent> extents = listExtents(directory);
    if (!extents.empty() && extents.back().size + sizeof(LogRecord) <= extentSize) {
        extent = extents.back();
        return NOERROR;
    }
    extent.number = extents.empty() ? 1 : extents.back().number + 1;
    extent.path = extentPath(directory, extent.number);
    ExtentHeader header{kExtentMagic, kExtentVersion, control.log, extent.number, 0};
    return appendBytes(extent.path, &header, sizeof header) ? NOERROR : STS_STORAGE;
}

DWORD extentSizeSetting()
{
    std::string text;
    if (!iniValue("TRANSLOG_ExtentSize", text))
        return kDefaultExtentSize;
    long long size = std::strtoll(text.c_str(), nullptr, 10);
    if (size <= 0 || size > MAXDWORD)
        return kDefaultExtentSize;
    return std::max(static_cast<DWORD>(size), kMinimumExtentSize);
}

} // namespace

STATUS readTranslogSettings(TranslogSettings& out)
{
    std::string text;
    out.logged = iniValue("TRANSLOG_Status", text) && text == "1";
    long style = iniValue("TRANSLOG_Style", text) ? std::strtol(text.c_str(), nullptr, 10) : long{kTranslogCircular};
    if (style < kTranslogCircular || style > kTranslogLinear)
        return STS_UNSUPPORTED;
    out.style = static_cast<WORD>(style);
    if (!iniValue("TRANSLOG_Path", text) || text.empty())
        text = kDefaultLogPath;
    out.directory = text[0] == '/' ? text : dataDirectory() + "/" + text;
    out.extentSize = extentSizeSetting();
    return NOERROR;
}

UNID databaseInstanceId(const DatabaseProperties& properties)
{
    UNID id;
    id.File = properties.replica.ID;
    id.Note = properties.dbid;
    return id;
}

LogRecord logRecordOf(const UNID& database, const NoteRecord& note, NoteChange change)
{
    LogRecord record{};
    record.magic = kRecordMagic;
    record.change = static_cast<WORD>(change);
    record.database = database;
    std::memcpy(&record.note, &note.oid, sizeof record.note); // the OID begins with the UNID
    record.noteId = note.id;
    record.sequence = note.oid.Sequence;
    record.modified = note.modified;
    return record;
}

namespace {

// Runs `work` on the control file's contents while this process holds the log's lock.
template <class Work>
STATUS withControl(const TranslogSettings& settings, Work work)
{
    DirectoryLock lock(settings.directory);
    if (!lock.held())
        return STS_STORAGE;
    Control control;
    STATUS status = readControl(settings.directory, control);
    return status != NOERROR ? status : work(control);
}

} // namespace

STATUS appendLogRecord(const TranslogSettings& settings, const LogRecord& record)
{
    return withControl(settings, [&](Control& control) {
        Extent extent;
        STATUS status = extentFor(settings.directory, control, settings.extentSize, extent);
        if (status == NOERROR && !appendBytes(extent.path, &record, sizeof record))
            status = STS_STORAGE;
        return status;
    });
}

STATUS logIdentity(const TranslogSettings& settings, UNID& logId, DWORD& currentExtent)
{
    return withControl(settings, [&](Control& control) {
        std::vector<Extent> extents = listExtents(settings.directory);
        logId = control.log;
        currentExtent = extents.empty() ? 1 : extents.back().number;
        return STATUS{NOERROR};
    });
}

STATUS extentsToArchive(const TranslogSettings& settings, UNID& logId, std::vector<Extent>& out)
{
    return withControl(settings, [&](Control& control) {
        logId = control.log;
        out.clear();
        for (const Extent& extent : listExtents(settings.directory))
            if (extent.size > control.archived[extent.number])
                out.push_back(extent);
        return STATUS{NOERROR};
    });
}

STATUS confirmArchived(const TranslogSettings& settings, const std::map<DWORD, DWORD>& bytes)
{
    return withControl(settings, [&](Control& control) {
        for (const auto& [number, size] : bytes)
            control.archived[number] = std::max(control.archived[number], size);
        return writeControl(settings.directory, control) ? STATUS{NOERROR} : STATUS{STS_STORAGE};
    });
}

} // namespace sim
