// Helpers over the Domino C API for the other classes and for the host, and the
// records that describe a mail note for archiving.
#ifndef HYLNTOOL_NOTESUTILITIES_H
#define HYLNTOOL_NOTESUTILITIES_H

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

// Static helpers; an object carries only the state of the size formula.
class HYLN_EXPORT HyLNUtilities {
public:
    HyLNUtilities();
    // Leaves the computation running: the host stops it explicitly.
    ~HyLNUtilities();

    // Status text.
    static std::string GetNotesErrorMsg(unsigned short code);

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

    // Archiving criteria: the text is not interpreted; the result is a default record.
    static DbMigrateCriteria getMigrateCriteria(std::string criteria);

private:
    HCOMPUTE computeHandle;
    FORMULAHANDLE formulaHandle;
};

#endif
