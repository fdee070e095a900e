#include "archive_store.h"

#include <cstdio>
#include <cstring>
#include <fstream>
#include <map>

#include "notes.h"

namespace fs = std::filesystem;

namespace hyln {
namespace {

const unsigned int kFolderIdentitySize = 28;
const char kRecordSuffix[] = ".json";

// A note of the database, closed when done.
struct OpenNote {
    ~OpenNote()
    {
        if (handle != NULLHANDLE)
            releaseInDestructor("closing a design note", [this] { return HY_NSFNoteClose(handle) == NOERROR; });
    }
    NOTEHANDLE handle = NULLHANDLE;
};

STATUS collectDesignNote(void* context, SEARCH_MATCH* match, ITEM_TABLE*)
{
    SEARCH_MATCH found;
    std::memcpy(&found, match, sizeof found); // may be unaligned
    if ((found.SERetFlags & SE_FMATCH) != 0)
        static_cast<std::vector<NOTEID>*>(context)->push_back(found.ID.NoteID);
    return NOERROR;
}

// The note IDs of a folder's collection, categories aside. An entry buffer that cannot
// be locked leaves its description in `problem`.
STATUS readMembers(DBHANDLE database, NOTEID folderId, std::set<NOTEID>& members, std::string& problem)
{
    HCOLLECTION collection = 0;
    STATUS error = HY_NIFOpenCollection(database, database, folderId, 0, NULLHANDLE, &collection, nullptr, nullptr,
                                        nullptr, nullptr);
    if (error != NOERROR)
        return error;
    COLLECTIONPOSITION position{};
    WORD signals = 0;
    do {
        DHANDLE buffer = NULLHANDLE;
        DWORD returned = 0;
        error = HY_NIFReadEntries(collection, &position, NAVIGATE_NEXT, 1, NAVIGATE_NEXT, 0xFFFFFFFF,
                                  READ_MASK_NOTEID, &buffer, nullptr, nullptr, &returned, &signals);
        if (error != NOERROR || buffer == NULLHANDLE)
            break;
        const unsigned char* entries = static_cast<const unsigned char*>(HY_OSLockObject(buffer));
        if (entries == nullptr)
            problem = unanswered("OSLockObject", 0, "for the entries of folder " + noteIdText(folderId));
        for (DWORD i = 0; entries != nullptr && i < returned; ++i) {
            NOTEID id;
            std::memcpy(&id, entries + i * sizeof id, sizeof id);
            if ((id & NOTEID_CATEGORY) == 0)
                members.insert(id);
        }
        if (entries != nullptr)
            HY_OSUnlockObject(buffer);
        HY_OSMemFree(buffer);
    } while (problem.empty() && (signals & SIGNAL_MORE_TO_DO) != 0);
    STATUS closed = HY_NIFCloseCollection(collection);
    return error != NOERROR ? error : closed;
}

// A text item of the open note. The call answers a length and no status: a length other
// than that of the text it wrote is how a failed read shows, and `problem` says so.
bool readText(NOTEHANDLE note, const char* name, char* text, WORD size, std::string& problem)
{
    WORD length = HY_NSFItemGetText(note, name, text, size);
    size_t written = std::strlen(text);
    if (length != written)
        problem = unanswered("NSFItemGetText", length,
                             std::string("for ") + name + ", a text of " + std::to_string(written) + " bytes");
    return length == written;
}

// Fills `folder` when the design note is a folder; false when it is another design note.
// A read that failed without a status leaves its description in `problem`.
STATUS describeFolder(DBHANDLE database, NOTEID id, Folder& folder, bool& isFolder, std::string& problem)
{
    OpenNote note;
    STATUS error = HY_NSFNoteOpen(database, id, OPEN_SUMMARY, &note.handle);
    if (error != NOERROR)
        return error;
    char flags[128] = {};
    char title[1024] = {};
    isFolder = readText(note.handle, "$Flags", flags, sizeof flags, problem) && std::strchr(flags, 'F') != nullptr;
    if (!isFolder || !readText(note.handle, "$TITLE", title, sizeof title, problem))
        return NOERROR;
    folder.title = title;
    ORIGINATORID oid{};
    error = HY_NSFDbGetNoteInfo(database, id, &oid, nullptr, nullptr);
    folder.unid.File = oid.File;
    folder.unid.Note = oid.Note;
    return error;
}

void appendBytes(std::vector<unsigned char>& buffer, const void* data, size_t size)
{
    const unsigned char* bytes = static_cast<const unsigned char*>(data);
    buffer.insert(buffer.end(), bytes, bytes + size);
}

void appendEntry(std::vector<unsigned char>& buffer, const UNIVERSALNOTEID& unid, size_t size)
{
    size_t start = buffer.size();
    buffer.resize(start + size, 0);
    std::memcpy(buffer.data() + start, &unid, std::min(size, sizeof unid));
}

nlohmann::json toJson(const ArchivedNote& note)
{
    return {{"unid", note.unid},           {"note_id", noteIdText(note.noteId)},
            {"folders", note.folders},     {"index_line", note.indexLine},
            {"attachments", note.attachments}, {"dxl_bytes", note.dxlBytes}};
}

bool fromJson(const nlohmann::json& value, ArchivedNote& note)
{
    try {
        note.unid = value.at("unid").get<std::string>();
        note.noteId = static_cast<NOTEID>(std::stoul(value.at("note_id").get<std::string>(), nullptr, 16));
        note.folders = value.at("folders").get<std::vector<std::string>>();
        note.indexLine = value.at("index_line").get<std::string>();
        note.attachments = value.at("attachments").get<int>();
        note.dxlBytes = value.at("dxl_bytes").get<size_t>();
    } catch (const std::exception&) {
        return false;
    }
    UNIVERSALNOTEID unid;
    return parseUnid(note.unid, unid);
}

} // namespace

std::string unidText(const UNIVERSALNOTEID& unid)
{
    char text[40];
    std::snprintf(text, sizeof text, "%08X%08X%08X%08X", unid.File.Innards[1], unid.File.Innards[0],
                  unid.Note.Innards[1], unid.Note.Innards[0]);
    return text;
}

bool parseUnid(const std::string& text, UNIVERSALNOTEID& unid)
{
    if (text.size() != 32 || text.find_first_not_of("0123456789ABCDEFabcdef") != std::string::npos)
        return false;
    DWORD words[4];
    for (int i = 0; i < 4; ++i)
        words[i] = static_cast<DWORD>(std::stoul(text.substr(8 * i, 8), nullptr, 16));
    unid.File.Innards[1] = words[0];
    unid.File.Innards[0] = words[1];
    unid.Note.Innards[1] = words[2];
    unid.Note.Innards[0] = words[3];
    return true;
}

fs::path archiveDirOf(const std::string& outDir, const std::string& database)
{
    return fs::path(outDir) / fs::path(database).relative_path();
}

fs::path dxlPathOf(const fs::path& archive, const std::string& unid)
{
    return archive / "notes" / (unid + ".xml");
}

int readFolders(const Options& options, DBHANDLE database, std::vector<Folder>& folders)
{
    std::vector<NOTEID> designNotes;
    TIMEDATE until;
    STATUS error = HY_NSFSearch(database, NULLHANDLE, nullptr, 0, NOTE_CLASS_VIEW, nullptr, collectDesignNote,
                                &designNotes, &until);
    std::string problem;
    for (size_t i = 0; error == NOERROR && problem.empty() && i < designNotes.size(); ++i) {
        Folder folder;
        bool isFolder = false;
        error = describeFolder(database, designNotes[i], folder, isFolder, problem);
        if (error == NOERROR && isFolder && problem.empty())
            error = readMembers(database, designNotes[i], folder.members, problem);
        if (error == NOERROR && isFolder && problem.empty())
            folders.push_back(folder);
    }
    if (!problem.empty())
        return failWith("reading the folders", options.database, problem);
    if (error == NOERROR)
        return kSuccess;
    HyLNError status;
    status.SetError(error);
    return fail(status, "reading the folders", options.database);
}

bool writeJsonFile(const fs::path& target, const nlohmann::json& value)
{
    std::string text = value.dump(2, ' ', false, nlohmann::json::error_handler_t::replace) + "\n";
    return writeWhole(target, reinterpret_cast<const unsigned char*>(text.data()), text.size());
}

bool writeRecord(const fs::path& archive, const ArchivedNote& note)
{
    return writeJsonFile(archive / "notes" / (note.unid + kRecordSuffix), toJson(note));
}

std::vector<ArchivedNote> readRecords(const fs::path& archive)
{
    std::map<std::string, ArchivedNote> byUnid; // one order for every run
    std::error_code error;
    for (const fs::directory_entry& entry : fs::directory_iterator(archive / "notes", error)) {
        if (entry.path().extension() != kRecordSuffix)
            continue;
        std::ifstream file(entry.path());
        nlohmann::json value = nlohmann::json::parse(file, nullptr, false);
        ArchivedNote note;
        if (!value.is_discarded() && fromJson(value, note))
            byUnid[note.unid] = note;
    }
    std::vector<ArchivedNote> notes;
    for (auto& [unid, note] : byUnid)
        notes.push_back(note);
    return notes;
}

std::vector<unsigned char> folderInformation(const std::vector<ArchivedNote>& notes, unsigned short entrySize)
{
    std::map<std::string, std::vector<UNIVERSALNOTEID>> members;
    for (const ArchivedNote& note : notes) {
        UNIVERSALNOTEID unid;
        parseUnid(note.unid, unid);
        for (const std::string& folder : note.folders)
            members[folder].push_back(unid);
    }
    std::vector<unsigned char> buffer;
    for (const auto& [folder, unids] : members) {
        UNIVERSALNOTEID folderUnid;
        if (!parseUnid(folder, folderUnid))
            continue;
        appendEntry(buffer, folderUnid, kFolderIdentitySize);
        DWORD count = static_cast<DWORD>(unids.size());
        appendBytes(buffer, &count, sizeof count);
        for (const UNIVERSALNOTEID& unid : unids)
            appendEntry(buffer, unid, entrySize);
    }
    return buffer;
}

} // namespace hyln
