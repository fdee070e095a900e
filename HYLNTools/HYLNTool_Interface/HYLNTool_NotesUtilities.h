// Helpers over the Domino C API for the other classes and for the host, and the
// records that describe a mail note for archiving.
#ifndef HYLNTOOL_NOTESUTILITIES_H
#define HYLNTOOL_NOTESUTILITIES_H

#include <cstdio>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "HYLNTool_Error.h"
#include "HYLNTool_Export.h"
#include "HYLNTool_NotesAPI.h"

// One file attached to a message.
struct HYLN_EXPORT ATTACHMENT {
    ATTACHMENT();
    ATTACHMENT(const ATTACHMENT& other);
    ~ATTACHMENT();
    ATTACHMENT& operator=(const ATTACHMENT& other);
    bool operator==(ATTACHMENT other);

    TIMEDATE CreationTime;
    TIMEDATE ModifiedTime;
    unsigned int Size;
    std::string Name;
    int Reserved;
};

// Archiving criteria of a database, or the measured details of one note.
struct HYLN_EXPORT DbMigrateCriteria {
    DbMigrateCriteria();
    DbMigrateCriteria(const DbMigrateCriteria& other) = default;
    ~DbMigrateCriteria();
    // Not guarded against self-assignment: the list is cleared before it is read.
    DbMigrateCriteria& operator=(DbMigrateCriteria& other);
    // The attachment lists take no part in the comparison.
    bool operator==(DbMigrateCriteria other);
    void dumpMigrationCriteria();

    TIMEDATE CreationTime;
    TIMEDATE ModifiedTime;
    TIMEDATE LastAccessedTime;
    int MessageBodySize;
    int AttachmentSize;
    int AttachmentNumbers;
    std::vector<ATTACHMENT> Attachments;
};

// ---- DXL streams ----

// Context of the export stream callback, filled by the caller: total and position 0,
// ok true and, in memory mode, a buffer from malloc/calloc with its capacity.
struct HYLN_EXPORT NoteExportRecord {
    FILE* file;                // file mode: where the DXL goes; may be null
    unsigned char** buffer;    // memory mode: the caller's buffer pointer, replaced on growth
    unsigned int total;        // bytes the exporter delivered so far
    unsigned int* capacity;    // the caller's size of that buffer, updated on growth
    unsigned int position;     // bytes accounted so far; the next chunk goes here
    bool toFile;
    bool ok;                   // cleared when the buffer cannot grow
};

// Context of the import stream callback.
struct HYLN_EXPORT NoteImportRecord {
    FILE* file;                  // read when buffer is null
    const unsigned char* buffer; // memory source
    unsigned int remaining;      // bytes still to deliver
    unsigned int position;       // bytes delivered so far
    unsigned int fileOffset;     // where this note's DXL starts in the file
};

// ---- Discovery (mailboxes, database records, data-directory and additional scans) ----

// Parameters of a mailbox discovery, filled by HyLNUtilities::InitializeMBLookup.
struct HYLN_EXPORT MailboxLookupStruct {
    unsigned int NumNameSpaces;
    unsigned int NumNames;
    unsigned int NumLookupItems;
    const char* NameSpaces;
    const char* LookupItems;
    bool FetchFullName;
};

// One element of the host's database table (200 bytes with libstdc++). The meaning of
// the first, second, fifth and sixth texts and of `value` is the host's.
struct HYLN_EXPORT DBNAME {
    std::string firstText;
    std::string secondText;
    std::string databasePath; // its file name is appended to the scan directory
    std::string foundPath;    // set for each database an additional scan finds
    std::string fifthText;
    std::string sixthText;
    unsigned long long value;
};
static_assert(sizeof(DBNAME) == 200, "DBNAME elements are 200 bytes");

// Context of FindAView, owned by the caller.
struct HYLN_EXPORT HyLNRestoreViewSearch {
    unsigned int state;          // 0 while searching; 0xFFFFFFFF once a view was found
    DBHANDLE databaseHandle;     // the database whose design notes are searched
    char foundViewName[255];     // the UTF-8 title of the view found
    char wantedText[255];        // text the view title must contain
};

// Search callback for NSFSearch over view notes: finds the first view whose
// title contains the context's wanted text.
HYLN_EXPORT unsigned short FindAView(void* context, SEARCH_MATCH* match, ITEM_TABLE* summary);

// Static helpers; an object carries only the state of the size formula.
class HYLN_EXPORT HyLNUtilities {
public:
    HyLNUtilities();
    // Leaves the computation running: the host stops it explicitly.
    ~HyLNUtilities();

    // Status text.
    static std::string GetNotesErrorMsg(unsigned short code);

    // The note-size formula: one initialise/shutdown cycle per object.
    HyLNError InitializeFormulaComputation();
    HyLNError ShutdownFormulaComputation();
    // Null until the computation has started.
    HCOMPUTE GetSizeFormulaHandle();

    // Time and date.
    static HyLNError GetTimeDate(std::string text, TIMEDATE& value);
    static HyLNError GetTimeString(TIMEDATE value, std::string& text);
    static void GetIntlDateTimeFormat(INTLFORMAT* format);
    static void GetTimeDate(unsigned short constant, TIMEDATE* value);
    static void GetDominoTimeZone(int* zone, int* daylightSaving);
    static int GetTimeLocalToGM(TIME* time);
    static unsigned int ExtractJulianDate(const TIMEDATE* value);
    static void GetCurrentTimeDate(TIMEDATE* value);
    static long GetTimeDateDifference(const TIMEDATE* later, const TIMEDATE* earlier);
    static int CompareTimeDate(TIMEDATE* first, TIMEDATE* second);

    // Text, settings and translation.
    static char* StrLwr(char* text);
    static long GetNotesINIvarLong(const char* name);
    // `value` must hold 256 bytes.
    static int GetNotesINIvarString(const char* name, char* value);
    static unsigned short NotesTranslate(unsigned short mode, const char* in, unsigned short inLength,
                                         char* out, unsigned short outLength);
    static bool ConvertUtf8ToNative(char* in, char* out, int size);

    // Runtime memory and ODS records.
    static HyLNError AllocMem(unsigned short type, unsigned int size, unsigned int& handle);
    static HyLNError FreeMem(unsigned int handle);
    // Writes the bytes of `source` itself (the pointer), not what it points to.
    static void CopyObject(unsigned int handle, unsigned short* ignored, const void* source,
                           unsigned int ignoredSize, unsigned short count);
    template <typename T>
    static void CopyBlock(void* ignored, const void* source, unsigned int length, BLOCKID& block);
    static unsigned short GetDSLength(unsigned short odsType);
    static void ConvertODToCanonical(void** record, unsigned int value);
    static void DumpFileTimeAndVer(const char* file, int flag);

    // ID tables.
    static HyLNError DeleteID(unsigned int table, unsigned int id, int* found);
    // The caller's handle variable is never reset.
    static HyLNError MemFreeTable(unsigned int& table);
    static unsigned int CountTableEntries(unsigned int& table);
    static unsigned short CreateTable(unsigned int alignment, unsigned int* table);
    static unsigned short InsertIntoTable(unsigned int table, unsigned int id, int* inserted);

    // Database objects and summary buffers.
    // A runtime failure sets the code only: IsErrorSet() stays false.
    static HyLNError DBGetObjectDetails(unsigned int db, OBJECT_DESCRIPTOR& object, unsigned int* size,
                                        unsigned short* objectClass, unsigned short* privileges);
    static int GetSummaryValue(const void* summary, const char* name, std::string& value);
    // `value` receives a pointer into the summary buffer (it is a void**).
    static int LocateSummaryValue(const void* summary, const char* name, void* value,
                                  unsigned short* length, unsigned short* type);

    // Network paths and directory handles.
    static HyLNError MakeNetworkPath(std::string server, std::string file, std::string& path,
                                     bool useServer);
    static HyLNError MakeProxyPath(std::string server, std::string file, std::string& path,
                                   bool useServer);
    static HyLNError OpenDirectory(std::string directory, unsigned int& handle);
    // The caller's handle variable keeps its value.
    static HyLNError CloseDirectory(unsigned int& handle);

    // DXL importer and exporter. The importer takes only the documents option (3) and the
    // replica requirement (7); the ACL importer takes every property of the map; the exporter
    // takes 3 to 7 and 30 to 34. A failed property deletes the new handle but leaves its
    // value in the caller's variable.
    static HyLNError CreateDXLImporter(unsigned int& importer, std::map<DXL_IMPORT_PROPERTY, void*>& properties);
    static HyLNError CreateAclDXLImporter(unsigned int& importer, std::map<DXL_IMPORT_PROPERTY, void*>& properties);
    static HyLNError CreateDXLExporter(unsigned int& exporter, std::map<DXL_EXPORT_PROPERTY, void*>& properties);
    // The caller's handle variable keeps its value.
    static void DeleteDXLExporter(unsigned int& exporter);
    static void DeleteDXLImporter(unsigned int& importer);
    // Stream callbacks in the runtime's writer and reader forms; `record` is a
    // NoteExportRecord or a NoteImportRecord.
    static void DXLExportStreamFunc(const unsigned char* data, unsigned int length, void* record);
    static unsigned int DXLImportStreamFunc(unsigned char* buffer, unsigned int maxLength, void* record);

    // Archiving criteria: the text is not interpreted; the result is a default record.
    static DbMigrateCriteria getMigrateCriteria(std::string criteria);

    // Index text: bytes below 32, 255 and \ / : * ? " < > | % become spaces, in place.
    static void NormalizeText(char* text);

    // Transaction-log archiving; the library keeps no state between these calls.
    static HyLNError beginArchivinglogs();
    static HyLNError endArchivinglogs();
    static HyLNError getTransactionExtent(UNIVERSALNOTEID& logId, unsigned int& logNumber, char* logPath,
                                          bool first);
    static HyLNError getTransLogStyle(unsigned short& style);

    // Mailbox discovery.
    static void InitializeMBLookup(MailboxLookupStruct& lookup, bool fetchFullName);
    // Collects mail-file paths into a std::set<std::string> (or path -> full name into a
    // std::map<std::string, std::string> when the lookup fetches full names).
    static HyLNError DiscoverMailboxes(std::string server, void* result, MailboxLookupStruct& lookup);
    // Reports every mail file to the host; `result` is the std::set<std::string> of keys reported.
    static HyLNError DiscoverMailboxes(std::string server, void* result, MailboxLookupStruct& lookup,
                                       bool quickList);
    // Describes one database to the host as a record (full, or short when quickList).
    static HyLNError ProcessDatabase(char const* path, std::string ownerName,
                                     std::set<std::string>* reported, bool quickList);

    // Data-directory discovery.
    static HyLNError DiscoverDatabases(std::string dataDirectory, std::set<std::string>* databases,
                                       unsigned short (*callback)(void*, SEARCH_MATCH*, ITEM_TABLE*));

    // Additional scan directories.
    static HyLNError CountAdditionalDatabases(std::string server, std::string directory,
                                              unsigned long* count, bool flag);
    // `directories` holds scan directories separated by '?'.
    static bool GetAdditionalDatabases(std::set<std::string>* databases, std::string* directories,
                                       bool process, bool quickList);
    static int AssociateAdditionalDBs(std::string server, std::string* directory, DBNAME* table,
                                      int* index);
    static unsigned short CountAdditionalDBsCallbackFn(void* context, SEARCH_MATCH* match,
                                                       ITEM_TABLE* summary);
    static unsigned short FetchAdditionalDatabaseCallback(void* context, SEARCH_MATCH* match,
                                                          ITEM_TABLE* summary);
    // Reports each database found with an empty owner name (the record's last field stays empty).
    static unsigned short ProcessAdditionalDatabaseCallback(void* context, SEARCH_MATCH* match,
                                                            ITEM_TABLE* summary);
    static unsigned short AssociateAdditionalDBsCallback(void* context, SEARCH_MATCH* match,
                                                         ITEM_TABLE* summary);

private:
    // The size formula's state; the document-size functions are its only users.
    HCOMPUTE computeHandle;
    FORMULAHANDLE formulaHandle;
};

#endif
