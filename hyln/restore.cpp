// Restore and verify: archived notes come back with their UNIDs and folders, and a
// database is compared with its archive item by item.
#include <map>

#include <libxml/parser.h>
#include <libxml/tree.h>

#include "archive_store.h"
#include "commands.h"
#include "host_callbacks.h"
#include "notes.h"
#include "output.h"

namespace fs = std::filesystem;

namespace hyln {
namespace {

// The importer's options: replace a note with the same UNID, else create it; no replica check.
const DXL_IMPORT_PROPERTY kDocumentImportOption = 3;
const DXL_IMPORT_PROPERTY kReplicaRequired = 7;
const int kReplaceElseCreate = 6;
// The runtime's answer for a UNID with no note in the database.
const unsigned short kNotFound = 0x0404;
// Items that record a note's history rather than its content.
const std::set<std::string> kHistoryItems = {"$Revisions", "$UpdatedBy"};

// The archive of the database: DIR itself when it holds notes, else DIR/<database>.
fs::path archiveOf(const Options& options)
{
    std::error_code error;
    if (fs::is_directory(fs::path(options.fromDir) / "notes", error))
        return options.fromDir;
    return archiveDirOf(options.fromDir, options.database);
}

struct Importer {
    ~Importer()
    {
        releaseInDestructor("deleting the DXL importer", [this] {
            HyLNUtilities::DeleteDXLImporter(handle);
            return true;
        });
    }
    unsigned int handle = 0;
};

HyLNError importNote(DBHANDLE database, unsigned int importer, const fs::path& dxlPath)
{
    std::vector<unsigned char> dxl;
    if (!readWholeFile(dxlPath, dxl) || dxl.empty())
        return HyLNError(0xFFFF, "cannot read " + dxlPath.string());
    NoteImportRecord record{nullptr, dxl.data(), static_cast<unsigned int>(dxl.size()), 0, 0};
    HyLNDocument note(database, 0);
    return note.Import(importer, &record);
}

int importNotes(const Options& options, DBHANDLE database, const fs::path& archive,
                const std::vector<ArchivedNote>& notes, size_t& restored)
{
    Importer importer;
    int replaceElseCreate = kReplaceElseCreate;
    int noReplicaRequired = 0;
    std::map<DXL_IMPORT_PROPERTY, void*> properties{{kDocumentImportOption, &replaceElseCreate},
                                                    {kReplicaRequired, &noReplicaRequired}};
    HyLNError status = HyLNUtilities::CreateDXLImporter(importer.handle, properties);
    if (status.IsErrorSet())
        return fail(status, "creating the DXL importer", options.database);
    int result = kSuccess;
    for (const ArchivedNote& note : notes) {
        if (interrupted())
            break;
        status = importNote(database, importer.handle, dxlPathOf(archive, note.unid));
        if (status.IsErrorSet()) {
            result = fail(status, "restoring note " + note.unid, options.database);
            continue;
        }
        output().record(note.unid + ": restored", {{"unid", note.unid}, {"outcome", "restored"}}, "note");
        output().progress(++restored, "notes restored");
    }
    return result;
}

int rebuildFolders(const Options& options, HyLNDatabase& database, const fs::path& archive)
{
    std::vector<unsigned char> buffer;
    if (!readWholeFile(archive / "folders.bin", buffer))
        return failWith("reading the folder information", (archive / "folders.bin").string(), "it cannot be read");
    if (buffer.empty())
        return kSuccess;
    HyLNError status =
        database.PutNotesInFolders(reinterpret_cast<char*>(buffer.data()), static_cast<unsigned int>(buffer.size()),
                                   nullptr);
    // Mail deleted since the backup has no note to put back; every other failure counts.
    if (status.IsErrorSet() && (status.GetErrorCode() & 0x3FFF) != kNotFound)
        return fail(status, "rebuilding the folders", options.database);
    return kSuccess;
}

int restoreAcl(const Options& options, HyLNDatabase& database, const fs::path& archive)
{
    std::vector<unsigned char> image;
    if (!readWholeFile(archive / "acl.bin", image) || image.empty())
        return failWith("reading the ACL", (archive / "acl.bin").string(), "the archive holds no ACL");
    HyLNError status =
        database.StoreACL(static_cast<unsigned int>(image.size()), 0, 0, reinterpret_cast<char*>(image.data()));
    return failed(status) ? fail(status, "restoring the ACL", options.database) : kSuccess;
}

// ---- verification ----

using ItemMap = std::map<std::string, std::string>;

std::string nodeText(xmlDocPtr document, xmlNodePtr node)
{
    xmlBufferPtr buffer = xmlBufferCreate();
    xmlNodeDump(buffer, document, node, 0, 0);
    std::string text(reinterpret_cast<const char*>(xmlBufferContent(buffer)), xmlBufferLength(buffer));
    xmlBufferFree(buffer);
    return text;
}

// The items of one note's DXL by name; false when the DXL does not parse.
bool itemsOf(const std::vector<unsigned char>& dxl, ItemMap& items)
{
    xmlDocPtr document = xmlReadMemory(reinterpret_cast<const char*>(dxl.data()), static_cast<int>(dxl.size()),
                                       nullptr, nullptr, XML_PARSE_NONET | XML_PARSE_NOBLANKS);
    if (document == nullptr)
        return false;
    xmlNodePtr root = xmlDocGetRootElement(document);
    for (xmlNodePtr node = root != nullptr ? root->children : nullptr; node != nullptr; node = node->next) {
        if (node->type != XML_ELEMENT_NODE || xmlStrcmp(node->name, BAD_CAST "item") != 0)
            continue;
        xmlChar* name = xmlGetProp(node, BAD_CAST "name");
        std::string key = name != nullptr ? reinterpret_cast<const char*>(name) : "";
        xmlFree(name);
        if (kHistoryItems.count(key) == 0)
            items[key] = nodeText(document, node);
    }
    xmlFreeDoc(document);
    return true;
}

struct Verifier {
    Verifier(const Options& options, HyLNDatabase& database, fs::path archive)
        : options(options), database(database), archive(std::move(archive))
    {
    }

    const Options& options;
    HyLNDatabase& database;
    fs::path archive;
    unsigned int exporter = 0;
    std::map<std::string, std::set<NOTEID>> folderMembers; // by folder UNID
    size_t differences = 0;

    void difference(const ArchivedNote& note, const std::string& what)
    {
        ++differences;
        output().record(note.unid + ": " + what, {{"unid", note.unid}, {"difference", what}}, "difference");
    }

    void compareItems(const ArchivedNote& note, const ItemMap& archived, const ItemMap& present)
    {
        for (const auto& [name, value] : archived) {
            auto found = present.find(name);
            if (found == present.end())
                difference(note, "item " + name + " is missing");
            else if (found->second != value)
                difference(note, "item " + name + " differs");
        }
        for (const auto& [name, value] : present)
            if (archived.count(name) == 0)
                difference(note, "item " + name + " is not in the archive");
    }

    void compareFolders(const ArchivedNote& note, NOTEID id)
    {
        std::set<std::string> recorded(note.folders.begin(), note.folders.end());
        for (const auto& [folder, members] : folderMembers) {
            bool member = members.count(id) != 0;
            if (member && recorded.count(folder) == 0)
                difference(note, "it is in folder " + folder + ", the archive has it outside");
            if (!member && recorded.count(folder) != 0)
                difference(note, "it is missing from folder " + folder);
        }
        for (const std::string& folder : recorded)
            if (folderMembers.count(folder) == 0)
                difference(note, "its folder " + folder + " is not in the database");
    }

    int verifyNote(const ArchivedNote& note)
    {
        UNIVERSALNOTEID unid;
        parseUnid(note.unid, unid);
        NOTEID id = 0;
        HyLNError status = database.GetNoteInfoByUNID(&unid, &id, nullptr, nullptr, nullptr);
        if (failed(status)) {
            difference(note, "it is not in the database");
            return kSuccess;
        }
        std::vector<unsigned char> archivedDxl;
        ItemMap archived;
        if (!readWholeFile(dxlPathOf(archive, note.unid), archivedDxl) || !itemsOf(archivedDxl, archived)) {
            difference(note, "its archived DXL cannot be read");
            return kSuccess;
        }
        HyLNDataDocument current(database.GetHandle(), id);
        if ((status = current.Open(0)).IsErrorSet())
            return fail(status, "opening note " + noteIdText(id), options.database);
        std::vector<unsigned char> dxl;
        status = exportToBuffer(current, exporter, dxl);
        current.Close();
        ItemMap present;
        if (status.IsErrorSet())
            return fail(status, "exporting note " + noteIdText(id), options.database);
        if (!itemsOf(dxl, present))
            return failWith("reading the DXL of note " + noteIdText(id), options.database, "it does not parse");
        compareItems(note, archived, present);
        compareFolders(note, id);
        bool unread = false;
        if ((status = database.GetNoteUnreadStatus(id, unread)).IsErrorSet())
            return fail(status, "reading the unread mark of note " + noteIdText(id), options.database);
        if (unread)
            difference(note, "it is unread; it was read when archived");
        return kSuccess;
    }
};

int readFolderMembers(Verifier& verifier)
{
    std::vector<Folder> folders;
    if (int failed = readFolders(verifier.options, verifier.database.GetHandle(), folders))
        return failed;
    for (const Folder& folder : folders)
        verifier.folderMembers[unidText(folder.unid)].insert(folder.members.begin(), folder.members.end());
    return kSuccess;
}

int verifyAll(Verifier& verifier, const std::vector<ArchivedNote>& notes, size_t& checked)
{
    if (int failed = readFolderMembers(verifier))
        return failed;
    verifier.database.userName = verifier.options.owner;
    HyLNError status = verifier.database.DiscoverUnReadDocuments();
    if (status.IsErrorSet())
        return fail(status, "reading the owner's unread marks", verifier.options.database);
    std::map<DXL_EXPORT_PROPERTY, void*> properties;
    status = HyLNUtilities::CreateDXLExporter(verifier.exporter, properties);
    if (status.IsErrorSet())
        return fail(status, "creating the DXL exporter", verifier.options.database);
    int result = kSuccess;
    for (const ArchivedNote& note : notes) {
        if (interrupted() || (result = verifier.verifyNote(note)) != kSuccess)
            break;
        output().progress(++checked, "notes verified");
    }
    HyLNUtilities::DeleteDXLExporter(verifier.exporter);
    if (verifier.database.unreadTable != NULLHANDLE)
        HyLNUtilities::MemFreeTable(verifier.database.unreadTable);
    return result;
}

} // namespace

int restoreArchive(const Options& options)
{
    return withRuntime(options, [&](Runtime& runtime) { return restoreIn(options, runtime); });
}

int restoreIn(const Options& options, Runtime& runtime)
{
    OpenDatabase database;
    if (int failed = database.open(options, runtime))
        return failed;
    fs::path archive = archiveOf(options);
    std::vector<ArchivedNote> notes = readRecords(archive);
    size_t restored = 0;
    int result = importNotes(options, database.handle(), archive, notes, restored);
    if (result == kSuccess && !interrupted())
        result = rebuildFolders(options, database.get(), archive);
    if (result == kSuccess && options.withAcl && !interrupted())
        result = restoreAcl(options, database.get(), archive);
    output().summary("\nrestored " + std::to_string(restored) + " of " + std::to_string(notes.size()) +
                         " archived notes into " + options.database +
                         (result == kSuccess && !interrupted() ? ", folders rebuilt" : "") +
                         (options.withAcl && result == kSuccess ? ", ACL restored" : "") +
                         (interrupted() ? " (interrupted)" : ""),
                     {{"notes", restored},
                      {"archived", notes.size()},
                      {"database", options.database},
                      {"acl", options.withAcl && result == kSuccess},
                      {"interrupted", interrupted()}});
    return interrupted() ? kInterrupted : result;
}

int verifyArchive(const Options& options)
{
    return withRuntime(options, [&](Runtime& runtime) { return verifyIn(options, runtime); });
}

int verifyIn(const Options& options, Runtime& runtime)
{
    OpenDatabase database;
    if (int failed = database.open(options, runtime))
        return failed;
    fs::path archive = archiveOf(options);
    std::vector<ArchivedNote> notes = readRecords(archive);
    Verifier verifier(options, database.get(), archive);
    size_t checked = 0;
    int result = verifyAll(verifier, notes, checked);
    output().summary("\nverified " + std::to_string(checked) + " of " + std::to_string(notes.size()) +
                         " archived notes of " + options.database + ": " + std::to_string(verifier.differences) +
                         " differences" + (interrupted() ? " (interrupted)" : ""),
                     {{"notes", checked},
                      {"archived", notes.size()},
                      {"differences", verifier.differences},
                      {"database", options.database},
                      {"interrupted", interrupted()}});
    if (interrupted())
        return kInterrupted;
    return result != kSuccess ? result : verifier.differences == 0 ? kSuccess : kFailure;
}

} // namespace hyln
