// One Domino database (NSF file) as the host sees it: identity, the handle the
// object owns while the database is open, and what can be asked of it.
#ifndef HYLNTOOL_DATABASE_H
#define HYLNTOOL_DATABASE_H

#include <map>
#include <string>

#include "HYLNTool_Error.h"
#include "HYLNTool_Export.h"
#include "HYLNTool_Instance.h"
#include "HYLNTool_NotesAPI.h"
#include "HYLNTool_NotesUtilities.h"

class HYLN_EXPORT HyLNDatabase {
public:
    // A default or copied object is "not open" (handle 0) until it opens itself.
    HyLNDatabase();
    HyLNDatabase(std::string name, std::string server);
    HyLNDatabase(std::string name, HyLNInstance& instance);
    // Copies the identity only: the copy never shares the other object's handle.
    HyLNDatabase(const HyLNDatabase& other);
    // Closes this object's own handle, then takes the other's identity as a copy does.
    HyLNDatabase& operator=(const HyLNDatabase& other);
    virtual ~HyLNDatabase();

    // Handle and lifecycle.
    HyLNError Create();
    HyLNError Open();
    HyLNError Open(std::string name, bool useNetworkPath);
    HyLNError Close();
    std::string GetName();
    DBHANDLE GetHandle();
    unsigned int GetQuotaUsage();
    void SetQuotaUsage();
    void SetMigrationCriteria(DbMigrateCriteria criteria);

    // Descriptive information of the open database.
    HyLNError GetSize(unsigned int& size);
    HyLNError GetCreationTime(TIMEDATE& creationTime);
    HyLNError GetModifiedTime(TIMEDATE& modifiedTime);
    HyLNError GetReplicaID(std::string& replicaId);
    HyLNError GetReplicaInfo(DBREPLICAINFO* info);
    HyLNError GetCanonicalName(std::string& canonicalName);
    HyLNError GetTitle(std::string& title);
    HyLNError GetPaths(char* canonicalPath, char* expandedPath);
    HyLNError GetMode(unsigned short* mode);
    HyLNError GetQuota(DBQUOTAINFOEXT* quota);
    HyLNError GetSpaceUsage(unsigned int* allocated, unsigned int* free);
    HyLNError GetInfo(char* info);
    HyLNError ReadAcl(unsigned int* acl);
    HyLNError GetOptions(unsigned int* options);
    HyLNError SetInfo(char* info);
    HyLNError SetReplicaInfo(DBREPLICAINFO* info);

    // Note selection. The tables made here are never destroyed by this class.
    HyLNError DiscoverUnReadDocuments();
    HyLNError DiscoverModifiedDocuments(TIMEDATE since, TIMEDATE* until, unsigned short noteClassMask,
                                        unsigned int* table);
    bool NoteIDScan(unsigned int& table, int first, unsigned int* noteID);
    HyLNError GetNoteUnreadStatus(unsigned int noteID, bool& unread);
    HyLNError Search(unsigned int formula, char* viewTitle, unsigned short searchFlags,
                     unsigned short noteClassMask, TIMEDATE* since, NSFSEARCHPROC* action,
                     void* context, TIMEDATE* until);
    HyLNError ProfileEnum(const char* profileName, unsigned short nameLength,
                          NSFPROFILEENUMPROC enumerator, void* context, unsigned int flags);
    HyLNError GetNoteInfoByUNID(UNIVERSALNOTEID* unid, unsigned int* noteID, ORIGINATORID* oid,
                                TIMEDATE* modified, unsigned short* noteClass);
    HyLNError GetViews();

    // Folder filtering. `folders` holds names separated by ';' and is changed in place.
    // The scratch ID tables, collections, design notes and entry buffers these make are
    // released on every path, the early returns included; the host's table is never freed.
    HyLNError FilterDocumentsOfFolders(std::string& folders, unsigned int& table, unsigned long mode);
    HyLNError AddSubFolders(std::string& folders);

    // Folder reconstruction on restore; `text` is not read. The walk ends at the first
    // record header or entry that does not fit in `length`: nothing past it is read.
    HyLNError PutNotesInFolders(char* buffer, unsigned int length, const char* text);

    // Database objects and runtime memory blocks.
    HyLNError AllocObject(unsigned int size, unsigned short objectClass, unsigned short privileges,
                          unsigned int* objectID);
    HyLNError WriteObject(unsigned int objectID, unsigned int memoryHandle, unsigned int offset,
                          unsigned int length);
    HyLNError FreeObject(unsigned int objectID);
    HyLNError ReadObject(unsigned int objectID, unsigned int offset, unsigned int length,
                         unsigned int* memoryHandle);
    HyLNError MemAllocObject(unsigned short type, unsigned int size, unsigned int* memoryHandle);
    HyLNError GetObjectSize(unsigned int& memoryHandle, unsigned int* size);
    void* LockObject(unsigned int& memoryHandle);
    bool UnlockObject(unsigned int& memoryHandle);
    unsigned short MemFreeObject(unsigned int& memoryHandle);

    // ACL, replica location and the operations that do nothing.
    HyLNError StoreACL(unsigned int size, unsigned int objectID, unsigned short method, char* acl);
    HyLNError ExportACL(unsigned int& exporter, NoteExportRecord* record);
    HyLNError ExportACL();
    HyLNError ImportAllDataDocuments();
    HyLNError CheckDXLErrorLog(unsigned int importer);
    HyLNError LocateByReplicaID(std::string replicaID, std::string& path);

    // Transaction logging of this database.
    HyLNError DbGetLogInfo(int& logged, UNIVERSALNOTEID& logId, UNIVERSALNOTEID& dbInstanceId,
                           unsigned int& logExtent);

    std::string name;
    DBHANDLE handle = NULLHANDLE;
    std::string spareText1;
    std::string userName;
    std::string copiedText;
    std::string canonicalUserName;
    std::string server;
    std::string spareText2;
    bool quotaCached = false;
    DBQUOTAINFOEXT* quotaInfo = new DBQUOTAINFOEXT();
    DWORD reserved1 = 0;
    DHANDLE unreadTable = NULLHANDLE;
    DWORD reserved2 = 0;
    DbMigrateCriteria criteria;
    HyLNInstance instance;

private:
    void copyIdentityFrom(const HyLNDatabase& other);
    void closeHandleBeforeReopen();
    HyLNError openPath(const std::string& path);
};

// The match callback of GetViews: sends each view and folder title to the host.
// `context` points to the database handle.
HYLN_EXPORT unsigned short ForEachViewName(void* context, SEARCH_MATCH* match, ITEM_TABLE* summary);

// One view or folder design note of an open database. The view copies the
// database's name and handle, so the database must stay open while it is used.
class HYLN_EXPORT HyLNView {
public:
    HyLNView(HyLNDatabase& db, std::string name);
    HyLNView(HyLNDatabase& db, unsigned int noteId);
    virtual ~HyLNView();

    HyLNError FindID(unsigned int& noteId);
    HyLNError Open(unsigned short flags);
    HyLNError Close();
    HyLNError GetItemInfo(std::string itemName, unsigned short& dataType, BLOCKID& valueBlock,
                          unsigned int& valueLength);
    HyLNError OpenCollection(unsigned short openFlags, unsigned int unreadList, unsigned short* collection,
                             unsigned int* viewNote, UNIVERSALNOTEID* viewUnid,
                             unsigned int* collapsedList, unsigned int* selectedList);
    HyLNError ReadColection(unsigned short* collection, COLLECTIONPOSITION* position,
                            unsigned short skipNavigator, unsigned int skipCount,
                            unsigned short returnNavigator, unsigned int returnCount,
                            unsigned int returnMask, unsigned int* buffer, unsigned short* bufferLength,
                            unsigned int* skipped, unsigned int* returned, unsigned short* signalFlags);
    HyLNError CloseCollection(unsigned short& collection);

    // Column titles: 0x12 before each visible title; fills columnIndex and columnCount.
    // Never reads past the value length the runtime reports: a column whose descriptor,
    // item name or title would pass it ends the reading there.
    HyLNError GetCoulmnTitles(std::string* titles);
    // One index line: "%08x" note ID, 0x12, then each visible column's text and 0x12.
    // A column missing from columnIndex counts as visible with flags 0.
    // Reads stay within the ITEM_TABLE's Length: where a read would pass it, the line
    // ends with the fields already written. The line stops growing past 240 bytes
    // (empty columns included), so `line` needs 480 bytes.
    int AddEntryToNoteIndex(char* line, unsigned char* summary, unsigned int noteId,
                            INDEXSPECIALINFO specialInfo, COLLECTIONPOSITION position,
                            unsigned short spare);

    NOTEHANDLE noteHandle = NULLHANDLE;
    std::string viewName;
    NOTEID noteId = 0;
    std::string dbName;
    DBHANDLE dbHandle = NULLHANDLE;
    std::string columnTitles;
    unsigned int columnCount = 0;
    std::map<std::string, unsigned short>* columnIndex;
};

// Column classes by their VIEW_COLUMN_FORMAT flags word.
HYLN_EXPORT bool isCategory(int flags);
HYLN_EXPORT bool isIcon(int flags);
HYLN_EXPORT bool isResponse(int flags);
HYLN_EXPORT bool isHidden(int flags);
// Renders a time-range value (behind its type word) into `out` (144 bytes); returns the
// position behind what it read. The value must hold what its counts announce.
HYLN_EXPORT unsigned char* convertTimeRange(unsigned char* value, char* out);

#endif
