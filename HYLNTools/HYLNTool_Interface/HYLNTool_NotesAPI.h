// Our own declarations of the Domino C API types, structures and constants
// that the library and its hosts use (64-bit Linux, natural alignment).
#ifndef HYLNTOOL_NOTESAPI_H
#define HYLNTOOL_NOTESAPI_H

#include <cstddef>

typedef unsigned char BYTE;
typedef unsigned short WORD;
typedef unsigned short USHORT;
typedef short SHORT;
typedef unsigned int DWORD;
typedef unsigned int ULONG;
typedef int LONG;
typedef int BOOL;
typedef WORD STATUS;
typedef double NUMBER;
typedef unsigned int DHANDLE;
typedef unsigned int HANDLE;
typedef DWORD MEMHANDLE;
typedef HANDLE DBHANDLE;
typedef DHANDLE NOTEHANDLE;
typedef HANDLE FORMULAHANDLE;
typedef MEMHANDLE DXLEXPORTHANDLE;
typedef MEMHANDLE DXLIMPORTHANDLE;
typedef WORD HCOLLECTION;
typedef void* HCOMPUTE;
typedef HANDLE HMODULE;
typedef DWORD NOTEID;
typedef WORD BLOCK;
typedef DWORD FONTID;

#ifndef TRUE
#define TRUE 1
#endif
#ifndef FALSE
#define FALSE 0
#endif
#define NULLHANDLE 0
#define NOERROR 0
#define MAXWORD 0xFFFF
#define MAXDWORD 0xFFFFFFFFu
#define ERR_MASK 0x3FFF
#define ERR(s) ((s) & ERR_MASK)

#define MAXPATH 256
#define MAXUSERNAME 256
#define MAXRECIPIENTNAME 256
#define MAXENVVALUE 256
#define MAXALPHATIMEDATE 80
#define NSF_INFO_SIZE 128

struct TIMEDATE {
    DWORD Innards[2];
};
typedef TIMEDATE DBID;

struct TIMEDATE_PAIR {
    TIMEDATE Lower;
    TIMEDATE Upper;
};

struct UNIVERSALNOTEID {
    DBID File;
    TIMEDATE Note;
};
typedef UNIVERSALNOTEID UNID;

struct ORIGINATORID {
    DBID File;
    TIMEDATE Note;
    DWORD Sequence;
    TIMEDATE SequenceTime;
};
typedef ORIGINATORID OID;

struct GLOBALINSTANCEID {
    DBID File;
    TIMEDATE Note;
    NOTEID NoteID;
};

struct TIME {
    int year;
    int month;
    int day;
    int weekday;
    int hour;
    int minute;
    int second;
    int hundredth;
    int dst;
    int zone;
    TIMEDATE GM;
};

struct TFMT {
    BYTE Date;
    BYTE Time;
    BYTE Zone;
    BYTE Structure;
};

#define ISTRMAX 5
#define YTSTRMAX 32
struct INTLFORMAT {
    WORD Flags;
    BYTE CurrencyDigits;
    BYTE Length;
    int TimeZone;
    char AMString[ISTRMAX];
    char PMString[ISTRMAX];
    char CurrencyString[ISTRMAX];
    char ThousandString[ISTRMAX];
    char DecimalString[ISTRMAX];
    char DateString[ISTRMAX];
    char TimeString[ISTRMAX];
    char YesterdayString[YTSTRMAX];
    char TodayString[YTSTRMAX];
    char TomorrowString[YTSTRMAX];
};

struct DBREPLICAINFO {
    TIMEDATE ID;
    WORD Flags;
    WORD CutoffInterval;
    TIMEDATE Cutoff;
};

struct DBQUOTAINFO {
    DWORD WarningThreshold;
    DWORD SizeLimit;
    DWORD CurrentDbSize;
    DWORD MaxDbSize;
};

struct DBQUOTAINFOEXT {
    DWORD WarningThreshold;
    DWORD SizeLimit;
    DWORD CurrentDbSize;
    DWORD MaxDbSize;
    WORD QuotaMethod;
    DWORD CurrentUsage;
    DWORD CurrentSizeUsed;
    DWORD Unused1;
    DWORD Unused2;
};

struct OBJECT_DESCRIPTOR {
    WORD ObjectType;
    DWORD RRV;
};

struct BLOCKID {
    DHANDLE pool;
    BLOCK block;
};

#define MAXTUMBLERLEVELS 32
struct COLLECTIONPOSITION {
    WORD Level;
    BYTE MinLevel;
    BYTE MaxLevel;
    DWORD Tumbler[MAXTUMBLERLEVELS];
};

struct INDEXSPECIALINFO {
    DWORD IndexSiblings;
    DWORD IndexChildren;
    DWORD IndexDescendants;
    WORD IndexAnyUnread;
};

struct SEARCH_MATCH {
    GLOBALINSTANCEID ID;
    ORIGINATORID OriginatorID;
    WORD NoteClass;
    BYTE SERetFlags;
    BYTE Privileges;
    WORD SummaryLength;
};

struct ITEM_TABLE {
    WORD Length;
    WORD Items;
};

struct ITEM {
    WORD NameLength;
    WORD ValueLength;
};

struct LIST {
    WORD ListEntries;
};

struct RANGE {
    WORD ListEntries;
    WORD RangeEntries;
};

struct VIEW_FORMAT_HEADER {
    BYTE Version;
    BYTE ViewStyle;
};

struct VIEW_TABLE_FORMAT {
    VIEW_FORMAT_HEADER Header;
    WORD Columns;
    WORD ItemSequenceNumber;
    WORD Flags;
    WORD Flags2;
};

struct NFMT {
    BYTE Digits;
    BYTE Format;
    BYTE Attributes;
    BYTE Unused;
};

struct VIEW_COLUMN_FORMAT {
    WORD Signature;
    WORD Flags1;
    WORD ItemNameSize;
    WORD TitleSize;
    WORD FormulaSize;
    WORD ConstantValueSize;
    WORD DisplayWidth;
    FONTID FontID;
    WORD Flags2;
    NFMT NumberFormat;
    TFMT TimeFormat;
    WORD FormatDataType;
    WORD ListSep;
};

static_assert(sizeof(TIMEDATE) == 8, "TIMEDATE layout");
static_assert(sizeof(UNIVERSALNOTEID) == 16, "UNID layout");
static_assert(sizeof(ORIGINATORID) == 28, "OID layout");
static_assert(sizeof(GLOBALINSTANCEID) == 20, "GLOBALINSTANCEID layout");
static_assert(sizeof(TIME) == 48, "TIME layout");
static_assert(sizeof(INTLFORMAT) == 140, "INTLFORMAT layout");
static_assert(offsetof(INTLFORMAT, TomorrowString) == 107, "INTLFORMAT layout");
static_assert(sizeof(DBREPLICAINFO) == 20, "DBREPLICAINFO layout");
static_assert(sizeof(DBQUOTAINFOEXT) == 36, "DBQUOTAINFOEXT layout");
static_assert(offsetof(DBQUOTAINFOEXT, CurrentUsage) == 20, "DBQUOTAINFOEXT layout");
static_assert(sizeof(OBJECT_DESCRIPTOR) == 8, "OBJECT_DESCRIPTOR layout");
static_assert(sizeof(BLOCKID) == 8, "BLOCKID layout");
static_assert(sizeof(COLLECTIONPOSITION) == 132, "COLLECTIONPOSITION layout");
static_assert(sizeof(INDEXSPECIALINFO) == 16, "INDEXSPECIALINFO layout");
static_assert(sizeof(SEARCH_MATCH) == 56, "SEARCH_MATCH layout");
static_assert(offsetof(SEARCH_MATCH, SERetFlags) == 50, "SEARCH_MATCH layout");
static_assert(sizeof(ITEM_TABLE) == 4 && sizeof(ITEM) == 4, "ITEM_TABLE layout");
static_assert(sizeof(VIEW_TABLE_FORMAT) == 10, "VIEW_TABLE_FORMAT layout");
static_assert(sizeof(VIEW_COLUMN_FORMAT) == 36, "VIEW_COLUMN_FORMAT layout");
static_assert(sizeof(HCOLLECTION) == 2 && sizeof(HCOMPUTE) == 8, "handle widths");

// DXL property selectors are C enums (int-sized).
typedef int DXL_EXPORT_PROPERTY;
typedef int DXL_IMPORT_PROPERTY;

// Callback types.
typedef STATUS (*NSFSEARCHPROC)(void* EnumRoutineParameter, SEARCH_MATCH* SearchMatch,
                                ITEM_TABLE* SummaryBuffer);
typedef STATUS (*NSFITEMSCANPROC)(WORD Spare, WORD ItemFlags, char* Name, WORD NameLength,
                                  void* Value, DWORD ValueLength, void* RoutineParameter);
typedef STATUS (*NSFPROFILEENUMPROC)(DBHANDLE hDB, void* Ctx, char* ProfileName,
                                     WORD ProfileNameLength, char* UserName,
                                     WORD UserNameLength, NOTEID ProfileNoteID);
typedef void (*XML_WRITE_FUNCTION)(const BYTE* pBuffer, DWORD length, void* pAction);
typedef DWORD (*XML_READ_FUNCTION)(BYTE* pBuffer, DWORD length, void* pAction);

// Note classes.
#define NOTE_CLASS_DOCUMENT 0x0001
#define NOTE_CLASS_DATA NOTE_CLASS_DOCUMENT
#define NOTE_CLASS_INFO 0x0002
#define NOTE_CLASS_FORM 0x0004
#define NOTE_CLASS_VIEW 0x0008
#define NOTE_CLASS_ICON 0x0010
#define NOTE_CLASS_DESIGN 0x0020
#define NOTE_CLASS_ACL 0x0040
#define NOTE_CLASS_HELP_INDEX 0x0080
#define NOTE_CLASS_HELP 0x0100
#define NOTE_CLASS_FILTER 0x0200
#define NOTE_CLASS_FIELD 0x0400
#define NOTE_CLASS_REPLFORMULA 0x0800
#define NOTE_CLASS_PRIVATE 0x1000
#define NOTE_CLASS_DEFAULT 0x8000
#define NOTE_CLASS_NOTIFYDELETION 0x8000
#define NOTE_CLASS_ALL 0x7FFF
#define NOTE_CLASS_ALLNONDATA 0x7FFE
#define NOTE_CLASS_NONE 0x0000
#define NOTE_ID_SPECIAL 0xFFFF0000u
#define RRV_DELETED 0x80000000u
#define NOTEID_CATEGORY 0x80000000u

// NIFReadEntries: what each entry carries (packed in this order), how to move, and signals.
#define READ_MASK_NOTEID 0x00000001u
#define READ_MASK_NOTEUNID 0x00000002u
#define READ_MASK_NOTECLASS 0x00000004u
#define READ_MASK_INDEXSIBLINGS 0x00000008u
#define READ_MASK_INDEXCHILDREN 0x00000010u
#define READ_MASK_INDEXDESCENDANTS 0x00000020u
#define READ_MASK_INDEXANYUNREAD 0x00000040u
#define READ_MASK_INDENTLEVELS 0x00000080u
#define READ_MASK_COLLECTIONSTATS 0x00000100u
#define READ_MASK_SCORE 0x00000200u
#define READ_MASK_INDEXUNREAD 0x00000400u
#define READ_MASK_SUMMARYVALUES 0x00002000u
#define READ_MASK_INDEXPOSITION 0x00004000u
#define READ_MASK_SUMMARY 0x00008000u
#define NAVIGATE_CURRENT 0
#define NAVIGATE_NEXT 1
#define SIGNAL_MORE_TO_DO 0x0020

// NSFSearch.
#define SEARCH_ALL_VERSIONS 0x0001
#define SEARCH_SUMMARY 0x0002
#define SEARCH_FILETYPE 0x0004
#define SEARCH_NOTIFYDELETIONS 0x0010
#define SE_FNOMATCH 0x00
#define SE_FMATCH 0x01
#define FILE_ANY 0
#define FILE_DBREPL 1
#define FILE_DBDESIGN 2
#define FILE_MAILBOX 3
#define FILE_DBANY 4
#define FILE_FTANY 5
#define FILE_DIRSONLY 7
#define FILE_ANYNOTEFILE 10
#define FILE_TYPEMASK 0x00FF
#define FILE_LINKSONLY 0x1000
#define FILE_RECURSE 0x2000
#define FILE_NOUPDIRS 0x4000
#define FILE_DIRS 0x8000

// Note open flags.
#define OPEN_SUMMARY 0x0001
#define OPEN_NOVERIFYDEFAULT 0x0002
#define OPEN_EXPAND 0x0004
#define OPEN_NOOBJECTS 0x0008
#define OPEN_SHARE 0x0020
#define OPEN_CANONICAL 0x0040
#define OPEN_MARK_READ 0x0100
#define OPEN_ABSTRACT 0x0200
#define OPEN_RESPONSE_ID_TABLE 0x1000

// NSFNoteGetInfo / NSFNoteSetInfo selectors.
#define _NOTE_DB 0
#define _NOTE_ID 1
#define _NOTE_OID 2
#define _NOTE_CLASS 3
#define _NOTE_MODIFIED 4
#define _NOTE_PRIVILEGES 5
#define _NOTE_FLAGS 7
#define _NOTE_ACCESSED 8
#define _NOTE_PARENT_NOTEID 10
#define _NOTE_RESPONSE_COUNT 11
#define _NOTE_RESPONSES 12
#define _NOTE_ADDED_TO_FILE 13
#define _NOTE_OBJSTORE_DB 14

// Item flags and data types.
#define ITEM_SIGN 0x0001
#define ITEM_SEAL 0x0002
#define ITEM_SUMMARY 0x0004
#define ITEM_READWRITERS 0x0020
#define ITEM_NAMES 0x0040
#define ITEM_PLACEHOLDER 0x0100
#define ITEM_PROTECTED 0x0200
#define ITEM_READERS 0x0400
#define ITEM_UNCHANGED 0x1000

#define TYPE_INVALID_OR_UNKNOWN 0x0000
#define TYPE_COMPOSITE 0x0001
#define TYPE_COLLATION 0x0002
#define TYPE_OBJECT 0x0003
#define TYPE_NOTEREF_LIST 0x0004
#define TYPE_VIEW_FORMAT 0x0005
#define TYPE_ICON 0x0006
#define TYPE_NOTELINK_LIST 0x0007
#define TYPE_SIGNATURE 0x0008
#define TYPE_SEAL 0x0009
#define TYPE_SEALDATA 0x000A
#define TYPE_SEAL_LIST 0x000B
#define TYPE_HTML 0x0015
#define TYPE_MIME_PART 0x0019
#define TYPE_ERROR 0x0100
#define TYPE_UNAVAILABLE 0x0200
#define TYPE_NUMBER 0x0300
#define TYPE_NUMBER_RANGE 0x0301
#define TYPE_TIME 0x0400
#define TYPE_TIME_RANGE 0x0401
#define TYPE_TEXT 0x0500
#define TYPE_TEXT_LIST 0x0501
#define TYPE_RFC822_TEXT 0x0502
#define TYPE_FORMULA 0x0600
#define TYPE_USERID 0x0700

#define OBJECT_FILE 0
#define OBJECT_UNKNOWN 0xFFFF

// Translation modes.
#define OS_TRANSLATE_NATIVE_TO_LMBCS 0
#define OS_TRANSLATE_LMBCS_TO_NATIVE 1
#define OS_TRANSLATE_LOWER_TO_UPPER 3
#define OS_TRANSLATE_UPPER_TO_LOWER 4
#define OS_TRANSLATE_LMBCS_TO_UNICODE 20
#define OS_TRANSLATE_LMBCS_TO_UTF8 22
#define OS_TRANSLATE_UNICODE_TO_LMBCS 23
#define OS_TRANSLATE_UTF8_TO_LMBCS 24

// Time constants.
#define TIMEDATE_MINIMUM 0
#define TIMEDATE_MAXIMUM 1
#define TIMEDATE_WILDCARD 2
#define ALLDAY 0xFFFFFFFFu
#define ANYDAY 0xFFFFFFFFu
#define TICKS_IN_DAY 8640000
#define TICKS_IN_HOUR 360000
#define TICKS_IN_MINUTE 6000
#define TICKS_IN_SECOND 100

// Database information, classes, modes.
#define INFOPARSE_TITLE 0
#define INFOPARSE_CATEGORIES 1
#define INFOPARSE_CLASS 2
#define INFOPARSE_DESIGN_CLASS 3
#define DBCLASS_BY_EXTENSION 0
#define DBCLASS_NOTEFILE 0xFF01
#define DBCLASS_TEMPLATEFILE 0xFF04
#define DB_LOADED 1
#define DB_DIRECTORY 2

// ODS types.
#define _TIMEDATE 10
#define _SEARCH_MATCH 24
#define _ORIGINATORID 26
#define _OBJECT_DESCRIPTOR 27
#define _UNIVERSALNOTEID 28
#define _VIEW_TABLE_FORMAT 29
#define _VIEW_COLUMN_FORMAT 30
#define _VIEW_FORMAT_HEADER 42
#define _DBREPLICAINFO 56

// Update flags.
#define UPDATE_FORCE 0x0001
#define UPDATE_NOCOMMIT 0x0004
#define UPDATE_NOREVISION 0x0100
#define UPDATE_NOSTUB 0x0200

// Collections: navigation, what each entry returns, and the read's signal flags.
#define NAVIGATE_CURRENT 0
#define NAVIGATE_NEXT 1
#define READ_MASK_NOTEID 0x00000001u
#define READ_MASK_NOTECLASS 0x00000004u
#define SIGNAL_MORE_TO_DO 0x0020

// Name lookup flags.
#define NAME_LOOKUP_ALL 0x0001
#define NAME_LOOKUP_NOSEARCHING 0x0002
#define NAME_LOOKUP_EXHAUSTIVE 0x0020
#define NAME_LOOKUP_UPDATE 0x0100

// Status codes the library meets.
#define ERR_NOEXIST 0x0103
#define ERR_EXISTS 0x0104
#define ERR_MEMORY 0x0107
#define ERR_BAD_PATH 0x01FD
#define ERR_NOT_NSF 0x0201
#define ERR_DIRECTORY 0x021C
#define ERR_NOT_DIRECTORY 0x021D
#define ERR_NOT_LOCAL 0x0220
#define ERR_ITEM_NOT_FOUND 0x0222
#define ERR_NOTE_DELETED 0x0225
#define ERR_INVALID_NOTE 0x0227
#define ERR_NO_MODIFIED_NOTES 0x023C
#define ERR_NOACCESS 0x0246
#define ERR_NO_SUCH_ITEM 0x0310
#define ERR_NO_MORE_MEMBERS 0x0311
#define ERR_NOT_FOUND 0x0404
#define ERR_FORMULA_COMPILATION 0x0501
#define ERR_TDI_CONV 0x040C
#define ERR_TDO_CONV 0x040D
#define ERR_ROUTER_NOTUNIQUE 0x1104
#define ERR_ROUTER_NOSUCHUSER 0x1105
#define ERR_NULL_DBHANDLE 0x1384
#define ERR_NULL_NOTEHANDLE 0x13BB
#define ERR_NO_TRANSLOGS_TO_ARCHIVE 0x13DE
#define ERR_SERVER_NOT_TRANSLOGGED 0x13FF

#endif
