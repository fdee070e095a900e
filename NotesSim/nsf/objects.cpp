// Database objects (NSFDb*Object) and file attachments, whose bytes are objects too.
#include <fcntl.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstring>
#include <fstream>
#include <iterator>

#include "sim_core.h"
#include "storage.h"
#include "timedate.h"

namespace sim {
namespace {

constexpr WORD kCompressNone = 0;
constexpr WORD kHostMask = 0x0F00;
constexpr WORD kHostLocal = 0x0F00;
constexpr WORD kHostMsdos = 0x0000;
constexpr WORD kKeepPath = 0x2000; // EFLAGS_KEEPPATH
constexpr WORD kAttribReadOnly = 0x0001;
constexpr WORD kAttachmentItemFlags = ITEM_SIGN | ITEM_SEAL | ITEM_SUMMARY;

struct FileFacts {
    std::vector<char> bytes;
    TIMEDATE created{};
    TIMEDATE modified{};
    bool readOnly = false;
};

TIMEDATE timeOf(long long seconds, long long nanoseconds)
{
    return timedateFromUnix(seconds, static_cast<int>(nanoseconds / 10000000));
}

STATUS readFile(const char* path, FileFacts& facts)
{
    struct statx info;
    if (statx(AT_FDCWD, path, 0, STATX_BASIC_STATS | STATX_BTIME, &info) != 0)
        return errno == ENOENT || errno == ENOTDIR ? ERR_NOEXIST : ERR_NOACCESS;
    if (S_ISDIR(info.stx_mode))
        return ERR_DIRECTORY;
    if (info.stx_size > MAXDWORD)
        return STS_BAD_ARGUMENT;
    std::ifstream in(path, std::ios::binary);
    if (!in)
        return ERR_NOACCESS;
    facts.bytes.assign(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
    if (in.bad())
        return ERR_NOACCESS;
    facts.modified = timeOf(info.stx_mtime.tv_sec, info.stx_mtime.tv_nsec);
    // Not every file system records a birth time; the change time is the closest then.
    const statx_timestamp& born = (info.stx_mask & STATX_BTIME) ? info.stx_btime : info.stx_ctime;
    facts.created = timeOf(born.tv_sec, born.tv_nsec);
    facts.readOnly = (info.stx_mode & S_IWUSR) == 0;
    return NOERROR;
}

std::string attachmentName(const char* fileName, const char* origPathName, WORD encoding)
{
    std::string name = origPathName != nullptr && origPathName[0] != '\0' ? origPathName : fileName;
    size_t slash = name.find_last_of("/\\");
    if ((encoding & kKeepPath) == 0 && slash != std::string::npos)
        name = name.substr(slash + 1);
    return name;
}

template <class T>
void append(std::vector<char>& out, const T& value)
{
    const char* bytes = reinterpret_cast<const char*>(&value);
    out.insert(out.end(), bytes, bytes + sizeof value);
}

// TYPE_OBJECT word, then the canonical FILEOBJECT and the file name.
std::vector<char> fileObjectValue(DWORD rrv, const std::string& name, WORD encoding, const FileFacts& facts)
{
    WORD host = encoding & kHostMask;
    std::vector<char> value;
    append<WORD>(value, TYPE_OBJECT);
    append<WORD>(value, OBJECT_FILE);
    append<DWORD>(value, rrv);
    append<WORD>(value, static_cast<WORD>(name.size()));
    append<WORD>(value, host == kHostLocal ? kHostMsdos : host);
    append<WORD>(value, kCompressNone); // the object holds the bytes as they are
    append<WORD>(value, facts.readOnly ? kAttribReadOnly : 0);
    append<WORD>(value, 0);
    append<DWORD>(value, static_cast<DWORD>(facts.bytes.size()));
    append(value, facts.created);
    append(value, facts.modified);
    value.insert(value.end(), name.begin(), name.end());
    return value;
}

} // namespace
} // namespace sim

STATUS impl::NSFDbAllocObject(DBHANDLE hDB, DWORD dwSize, WORD Class, WORD Privileges, DWORD* retObjectID)
{
    if (retObjectID == nullptr)
        return sim::STS_BAD_ARGUMENT;
    std::shared_ptr<sim::Storage> storage;
    STATUS status = sim::lookupStorage(hDB, storage);
    return status != NOERROR ? status : storage->allocObject(dwSize, Class, Privileges, OBJECT_UNKNOWN, *retObjectID);
}

STATUS impl::NSFDbWriteObject(DBHANDLE hDB, DWORD ObjectID, DHANDLE hBuffer, DWORD Offset, DWORD Length)
{
    std::shared_ptr<sim::Storage> storage;
    STATUS status = sim::lookupStorage(hDB, storage);
    if (status != NOERROR)
        return status;
    auto buffer = sim::findAs<sim::MemoryBlock>(hBuffer, sim::HandleKind::Memory);
    if (!buffer)
        return sim::STS_INVALID_HANDLE;
    if (Length > buffer->bytes.size())
        return sim::STS_BAD_ARGUMENT;
    return storage->writeObject(ObjectID, Offset, buffer->bytes.data(), Length);
}

STATUS impl::NSFDbReadObject(DBHANDLE hDB, DWORD ObjectID, DWORD Offset, DWORD Length, DHANDLE* rethBuffer)
{
    if (rethBuffer == nullptr || Length == 0)
        return sim::STS_BAD_ARGUMENT;
    std::shared_ptr<sim::Storage> storage;
    std::vector<char> bytes;
    STATUS status = sim::lookupStorage(hDB, storage);
    if (status == NOERROR)
        status = storage->readObject(ObjectID, Offset, Length, bytes);
    if (status == NOERROR)
        *rethBuffer = sim::allocateMemoryWith(bytes.data(), bytes.size());
    return status;
}

STATUS impl::NSFDbGetObjectSize(DBHANDLE hDB, DWORD ObjectID, WORD ObjectType, DWORD* retSize, WORD* retClass,
                                WORD* retPrivileges)
{
    (void)ObjectType; // objects are found by ID alone; the type is only a hint
    std::shared_ptr<sim::Storage> storage;
    sim::ObjectInfo info;
    STATUS status = sim::lookupStorage(hDB, storage);
    if (status == NOERROR)
        status = storage->objectInfo(ObjectID, info);
    if (status != NOERROR)
        return status;
    if (retSize != nullptr)
        *retSize = info.size;
    if (retClass != nullptr)
        *retClass = info.objectClass;
    if (retPrivileges != nullptr)
        *retPrivileges = info.privileges;
    return NOERROR;
}

STATUS impl::NSFDbFreeObject(DBHANDLE hDB, DWORD ObjectID)
{
    std::shared_ptr<sim::Storage> storage;
    STATUS status = sim::lookupStorage(hDB, storage);
    return status != NOERROR ? status : storage->freeObject(ObjectID);
}

STATUS impl::NSFNoteAttachFile(NOTEHANDLE hNote, const char* ItemName, WORD ItemNameLength, const char* FileName,
                               const char* OrigPathName, WORD EncodingType)
{
    std::shared_ptr<sim::NoteObject> note;
    std::shared_ptr<sim::Storage> storage;
    STATUS status = sim::lookupNoteAndStorage(hNote, note, storage);
    if (status != NOERROR)
        return status;
    if (ItemName == nullptr || ItemNameLength == 0 || FileName == nullptr)
        return sim::STS_BAD_ARGUMENT;
    sim::traceDetail("NSFNoteAttachFile", FileName);
    sim::FileFacts facts;
    DWORD rrv = 0;
    status = sim::readFile(FileName, facts);
    if (status == NOERROR)
        status = storage->storeObject(facts.bytes, NOTE_CLASS_DOCUMENT, OBJECT_FILE, rrv);
    if (status != NOERROR)
        return status;
    std::string name = sim::attachmentName(FileName, OrigPathName, EncodingType);
    sim::addItem(*note, std::string(ItemName, ItemNameLength), sim::kAttachmentItemFlags,
                 sim::fileObjectValue(rrv, name, EncodingType, facts));
    return NOERROR;
}
