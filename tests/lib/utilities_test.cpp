// Notes utilities: time, translation, memory, ID tables, objects, summaries, paths.
#include <cstring>
#include <string>
#include <vector>

#include "support/test_support.h"

using namespace hyln_test;

namespace {

class Utilities : public RuntimeTest {};

// A runtime in GMT+05:30 with daylight saving and a few settings of our own.
class ConfiguredRuntime : public LibraryTest {
protected:
    void SetUp() override
    {
        LibraryTest::SetUp();
        std::string dataDir = makeTempDir("configured");
        writeNotesIni(dataDir, "CN=HySrv01/O=HyOrg",
                      "HySimTimeZone=-3005\nHySimDST=1\nBackupRetries=7\nBackupLabel=Weekly full\n"
                      "BackupNote=" + longValue + "\n");
        startRuntime(dataDir);
    }
    const std::string longValue = std::string(150, 'a') + std::string(150, 'b');
};

// A summary buffer with the items the runtime's directory search gives a file.
std::vector<char> summaryWithPath(const std::string& path)
{
    const std::string name = "$Path";
    const WORD type = TYPE_TEXT;
    ITEM item{static_cast<WORD>(name.size()), static_cast<WORD>(sizeof type + path.size())};
    ITEM_TABLE table{static_cast<WORD>(sizeof(ITEM_TABLE) + sizeof item + name.size() + item.ValueLength), 1};
    std::vector<char> buffer(table.Length);
    char* cursor = buffer.data();
    std::memcpy(cursor, &table, sizeof table);
    std::memcpy(cursor += sizeof table, &item, sizeof item);
    std::memcpy(cursor += sizeof item, name.data(), name.size());
    std::memcpy(cursor += name.size(), &type, sizeof type);
    std::memcpy(cursor + sizeof type, path.data(), path.size());
    return buffer;
}

std::vector<unsigned char> lockedBytes(DHANDLE handle, size_t count)
{
    const unsigned char* memory = static_cast<const unsigned char*>(HY_OSLockObject(handle));
    std::vector<unsigned char> bytes(memory, memory + count);
    HY_OSUnlockObject(handle);
    return bytes;
}

} // namespace

TEST_F(Utilities, TimesConvertBothWaysAndPassThrough)
{
    TIMEDATE now, later, parsed = {};
    sim().setClock(1700000000, 0);
    HyLNUtilities::GetCurrentTimeDate(&now);
    sim().setClock(1700000090, 0);
    HyLNUtilities::GetCurrentTimeDate(&later);
    std::string text;
    ASSERT_FALSE(HyLNUtilities::GetTimeString(now, text).IsErrorSet());
    ASSERT_FALSE(HyLNUtilities::GetTimeDate(text, parsed).IsErrorSet());
    EXPECT_EQ(HyLNUtilities::CompareTimeDate(&parsed, &now), 0) << text;
    EXPECT_EQ(HyLNUtilities::CompareTimeDate(&now, &later), -1);
    EXPECT_EQ(HyLNUtilities::GetTimeDateDifference(&later, &now), 90);
    EXPECT_EQ(HyLNUtilities::ExtractJulianDate(&now), 2440588u + 1700000000u / 86400u);
    EXPECT_TRUE(capturedLog().empty());
}

TEST_F(Utilities, TimeConversionFailuresLeaveTheOutputAlone)
{
    sim().setFault("ConvertTextToTIMEDATE", ERR_TDI_CONV, 0, 0);
    sim().setFault("ConvertTIMEDATEToText", ERR_TDO_CONV, 0, 0);
    TIMEDATE value = {{11, 22}};
    HyLNError status = HyLNUtilities::GetTimeDate("garbage", value);
    EXPECT_EQ(status.GetErrorCode(), ERR_TDI_CONV);
    EXPECT_EQ(value.Innards[0], 11u);
    EXPECT_EQ(value.Innards[1], 22u);
    std::string text = "kept";
    EXPECT_EQ(HyLNUtilities::GetTimeString(value, text).GetErrorCode(), ERR_TDO_CONV);
    EXPECT_EQ(text, "kept");
    EXPECT_EQ(logTexts(), (std::vector<std::string>{
                              "Failed to convert time string garbage to TIMEDATE format. error (1036) Unable to "
                              "interpret Time or Date",
                              "failed to convert TimeDate to Text error - (1037) Invalid Time or Date Encountered"}));
    EXPECT_EQ(capturedLog()[0].function, "GetTimeDate");
    EXPECT_EQ(capturedLog()[1].function, "GetTimeString");
}

TEST_F(ConfiguredRuntime, ZoneAndFormatAreTheRuntimes)
{
    int zone = 0, daylightSaving = 0;
    HyLNUtilities::GetDominoTimeZone(&zone, &daylightSaving);
    EXPECT_EQ(zone, -3005);
    EXPECT_EQ(daylightSaving, TRUE);

    INTLFORMAT format, direct;
    std::memset(&format, 0x5A, sizeof format);
    std::memset(&direct, 0x5A, sizeof direct);
    HyLNUtilities::GetIntlDateTimeFormat(&format);
    HY_OSGetIntlSettings(&direct, sizeof direct);
    EXPECT_EQ(std::memcmp(&format, &direct, sizeof format), 0);
    EXPECT_EQ(format.Length, sizeof(INTLFORMAT)) << "the whole structure is asked for";
    EXPECT_EQ(format.TimeZone, -3005);
    EXPECT_STREQ(format.AMString, "AM");
    EXPECT_TRUE(capturedLog().empty());
}

TEST_F(ConfiguredRuntime, TimeConstantsAndLocalTimes)
{
    for (WORD constant : {TIMEDATE_MINIMUM, TIMEDATE_MAXIMUM, TIMEDATE_WILDCARD}) {
        SCOPED_TRACE(constant);
        TIMEDATE value = {{1, 1}}, direct = {{2, 2}};
        HyLNUtilities::GetTimeDate(constant, &value);
        HY_TimeConstant(constant, &direct);
        EXPECT_EQ(value.Innards[0], direct.Innards[0]);
        EXPECT_EQ(value.Innards[1], direct.Innards[1]);
    }
    TIMEDATE minimum, maximum, wildcard;
    HyLNUtilities::GetTimeDate(TIMEDATE_MINIMUM, &minimum);
    HyLNUtilities::GetTimeDate(TIMEDATE_MAXIMUM, &maximum);
    HyLNUtilities::GetTimeDate(TIMEDATE_WILDCARD, &wildcard);
    EXPECT_EQ(HyLNUtilities::CompareTimeDate(&minimum, &maximum), -1);
    EXPECT_EQ(wildcard.Innards[0], ALLDAY);
    EXPECT_EQ(wildcard.Innards[1], ANYDAY);

    // 2023-11-15 03:43:20 at GMT+05:30 is 1700000000 seconds after 1970 began.
    sim().setClock(1700000000, 0);
    TIMEDATE now;
    HyLNUtilities::GetCurrentTimeDate(&now);
    TIME local = {2023, 11, 15, 0, 3, 43, 20, 0, 0, -3005, {{0, 0}}};
    EXPECT_EQ(HyLNUtilities::GetTimeLocalToGM(&local), FALSE);
    EXPECT_EQ(HyLNUtilities::CompareTimeDate(&local.GM, &now), 0);
    EXPECT_EQ(HyLNUtilities::GetTimeDateDifference(&local.GM, &now), 0);

    TIME invalid = {2023, 13, 15, 0, 3, 43, 20, 0, 0, -3005, {{7, 8}}};
    EXPECT_NE(HyLNUtilities::GetTimeLocalToGM(&invalid), FALSE);
    EXPECT_EQ(invalid.GM.Innards[0], 7u);
    EXPECT_EQ(invalid.GM.Innards[1], 8u);
}

TEST_F(ConfiguredRuntime, SettingsComeFromNotesIni)
{
    EXPECT_EQ(HyLNUtilities::GetNotesINIvarLong("BackupRetries"), 7);
    EXPECT_EQ(HyLNUtilities::GetNotesINIvarLong("backupretries"), 7);
    EXPECT_EQ(HyLNUtilities::GetNotesINIvarLong("BackupLabel"), 0) << "not a number";
    EXPECT_EQ(HyLNUtilities::GetNotesINIvarLong("NoSuchSetting"), 0);

    char value[256];
    std::memset(value, '#', sizeof value);
    EXPECT_TRUE(HyLNUtilities::GetNotesINIvarString("BackupLabel", value));
    EXPECT_STREQ(value, "Weekly full");
    EXPECT_FALSE(HyLNUtilities::GetNotesINIvarString("NoSuchSetting", value));
    EXPECT_STREQ(value, "Weekly full") << "a missing setting leaves the buffer alone";
}

TEST_F(ConfiguredRuntime, LongSettingsAreCutToTheCallersBuffer)
{
    // The caller's buffer holds 256 bytes; the byte after it must survive.
    char value[257];
    std::memset(value, '#', sizeof value);
    EXPECT_TRUE(HyLNUtilities::GetNotesINIvarString("BackupNote", value));
    EXPECT_EQ(value[256], '#');
    EXPECT_EQ(std::string(value), longValue.substr(0, 255));
}

TEST_F(Utilities, LocatedSummaryValuesPointIntoTheBuffer)
{
    std::vector<char> summary = summaryWithPath("mail/jdoe.nsf");
    void* value = nullptr;
    unsigned short length = 0, type = 0;
    ASSERT_TRUE(HyLNUtilities::LocateSummaryValue(summary.data(), "$path", &value, &length, &type));
    EXPECT_EQ(type, TYPE_TEXT);
    EXPECT_EQ(length, 13);
    EXPECT_EQ(std::string(static_cast<const char*>(value), length), "mail/jdoe.nsf");
    EXPECT_EQ(value, summary.data() + summary.size() - length);

    void* kept = &length;
    unsigned short keptLength = 99, keptType = 98;
    EXPECT_FALSE(HyLNUtilities::LocateSummaryValue(summary.data(), "$Title", &kept, &keptLength, &keptType));
    EXPECT_EQ(kept, &length);
    EXPECT_EQ(keptLength, 99);
    EXPECT_EQ(keptType, 98);

    std::string text;
    EXPECT_TRUE(HyLNUtilities::GetSummaryValue(summary.data(), "$Path", text));
    EXPECT_EQ(text, "mail/jdoe.nsf");
}

TEST_F(Utilities, TextHelpers)
{
    char mixed[] = "MiXed 1A";
    EXPECT_EQ(HyLNUtilities::StrLwr(mixed), mixed);
    EXPECT_STREQ(mixed, "mixed 1a");

    sim().traceEnable(1);
    char out[64] = {};
    char in[] = "Caf\xC3\xA9";
    EXPECT_TRUE(HyLNUtilities::ConvertUtf8ToNative(in, out, sizeof out));
    // é is one LMBCS byte, so the second step reads 4 bytes.
    EXPECT_EQ(simTrace(), (std::vector<std::string>{"OSTranslate(24, *, 5, *, 64)", "OSTranslate(1, *, 4, *, 64)"}));
    sim().traceClear();
    sim().setFault("OSTranslate", 0, 1, 0);
    EXPECT_FALSE(HyLNUtilities::ConvertUtf8ToNative(in, out, sizeof out));
    EXPECT_EQ(sim().callCount("OSTranslate"), 1u);
}

TEST_F(Utilities, IniStringsFitTheir256ByteBuffer)
{
    writeNotesIni(dataDir, "CN=HySrv01/O=HyOrg", "Short=value\nLong=" + std::string(300, 'v') + "\nExact=" +
                                                     std::string(255, 'e') + "\nNumber=42\n");
    startRuntime(dataDir);
    // One byte past the documented 256 holds a guard.
    std::vector<char> value(257, '#');
    EXPECT_TRUE(HyLNUtilities::GetNotesINIvarString("Short", value.data()));
    EXPECT_STREQ(value.data(), "value");
    EXPECT_TRUE(HyLNUtilities::GetNotesINIvarString("Exact", value.data()));
    EXPECT_EQ(std::string(value.data()), std::string(255, 'e')) << "a value that fits is whole";
    EXPECT_TRUE(HyLNUtilities::GetNotesINIvarString("Long", value.data()));
    EXPECT_EQ(std::string(value.data()), std::string(255, 'v')) << "a longer one is cut and terminated";
    EXPECT_EQ(value[256], '#');
    EXPECT_FALSE(HyLNUtilities::GetNotesINIvarString("Missing", value.data()));
    EXPECT_EQ(HyLNUtilities::GetNotesINIvarLong("Number"), 42);
}

TEST_F(Utilities, MemoryBlocksAndObjectDescriptors)
{
    unsigned int handle = 0;
    ASSERT_FALSE(HyLNUtilities::AllocMem(0, 64, handle).IsErrorSet());
    BLOCKID block = {handle, 5};
    HyLNUtilities::CopyBlock<unsigned short>(nullptr, "abcdef", 6, block);
    EXPECT_EQ(block.block, 0);
    EXPECT_EQ(lockedBytes(handle, 6), (std::vector<unsigned char>{'a', 'b', 'c', 'd', 'e', 'f'}));

    // The descriptor written is made of the bytes of the source pointer itself.
    HyLNUtilities::CopyObject(handle, nullptr, reinterpret_cast<const void*>(0x1122334455667788ull), 0, 1);
    EXPECT_EQ(lockedBytes(handle, 6), (std::vector<unsigned char>{0x88, 0x77, 0x44, 0x33, 0x22, 0x11}));
    EXPECT_EQ(HyLNUtilities::GetDSLength(_OBJECT_DESCRIPTOR), 6);

    unsigned char item[8] = {0x03, 0x00, 0x00, 0x00, 0x44, 0x33, 0x22, 0x11};
    void* record = item;
    HyLNUtilities::ConvertODToCanonical(&record, 0xAABBCCDD);
    EXPECT_EQ(std::vector<unsigned char>(item, item + 8),
              (std::vector<unsigned char>{0x03, 0x00, 0x00, 0x00, 0xDD, 0xCC, 0xBB, 0xAA}));

    EXPECT_FALSE(HyLNUtilities::FreeMem(handle).IsErrorSet());
    EXPECT_TRUE(HyLNUtilities::FreeMem(handle).IsErrorSet());
    sim().setFault("OSMemAlloc", ERR_MEMORY, 0, 0);
    EXPECT_EQ(HyLNUtilities::AllocMem(0, 64, handle).GetMessage(), "Insufficient memory.");
}

TEST_F(Utilities, IdTablesAndTheirFailureLines)
{
    unsigned int table = 0;
    int inserted = FALSE, found = FALSE;
    ASSERT_EQ(HyLNUtilities::CreateTable(0, &table), NOERROR);
    EXPECT_EQ(HyLNUtilities::InsertIntoTable(table, 5, &inserted), NOERROR);
    EXPECT_EQ(HyLNUtilities::CountTableEntries(table), 1u);
    EXPECT_FALSE(HyLNUtilities::DeleteID(table, 5, &found).IsErrorSet());
    EXPECT_TRUE(inserted && found);

    sim().setFault("IDDelete", ERR_MEMORY, 0, 0);
    sim().setFault("IDDestroyTable", ERR_MEMORY, 1, 0);
    EXPECT_EQ(HyLNUtilities::DeleteID(table, 4000000000u, &found).GetErrorCode(), ERR_MEMORY);
    unsigned int kept = table;
    EXPECT_EQ(HyLNUtilities::MemFreeTable(table).GetErrorCode(), ERR_MEMORY);
    EXPECT_FALSE(HyLNUtilities::MemFreeTable(table).IsErrorSet());
    EXPECT_EQ(table, kept);
    EXPECT_TRUE(logged("DeleteID", 0, "Failed to delete id 4000000000 from idtable. error: 263 - Insufficient memory."));
    EXPECT_TRUE(logged("MemFreeTable", 0, "Unalbe to destroy ID table. error 263 - Insufficient memory."));
}

TEST_F(Utilities, ObjectDetailsKeepOnlyTheCodeOfARuntimeFailure)
{
    OBJECT_DESCRIPTOR object = {OBJECT_FILE, 77};
    unsigned int size = 0;
    unsigned short objectClass = 0, privileges = 0;
    HyLNError status = HyLNUtilities::DBGetObjectDetails(0, object, &size, &objectClass, &privileges);
    EXPECT_TRUE(status.IsErrorSet());
    EXPECT_EQ(status.GetMessage(), "The database handle is NULL");
    EXPECT_EQ(sim().callCount("NSFDbGetObjectSize"), 0u);

    sim().setFault("NSFDbGetObjectSize", ERR_NOACCESS, 0, 0);
    status = HyLNUtilities::DBGetObjectDetails(1234, object, &size, &objectClass, &privileges);
    EXPECT_EQ(status.GetErrorCode(), ERR_NOACCESS);
    EXPECT_FALSE(status.IsErrorSet());
    EXPECT_EQ(status.GetMessage(), "");
}

TEST_F(Utilities, MissingSummaryItemGivesEmptyText)
{
    const WORD emptyTable[] = {sizeof(ITEM_TABLE), 0};
    std::string value = "stale";
    EXPECT_FALSE(HyLNUtilities::GetSummaryValue(emptyTable, "Subject", value));
    EXPECT_EQ(value, "");
}

TEST_F(Utilities, NetworkPathsNameTheServerOnlyWhenAsked)
{
    std::string path, proxy;
    ASSERT_FALSE(HyLNUtilities::MakeNetworkPath("CN=Srv/O=Org", "mail/j.nsf", path, true).IsErrorSet());
    ASSERT_FALSE(HyLNUtilities::MakeProxyPath("CN=Srv/O=Org", "mail/j.nsf", proxy, true).IsErrorSet());
    EXPECT_EQ(path, "CN=Srv/O=Org!!mail/j.nsf");
    EXPECT_EQ(proxy, path);
    sim().traceEnable(1);
    HyLNUtilities::MakeNetworkPath("CN=Srv/O=Org", "mail/j.nsf", path, false);
    ASSERT_EQ(simTrace().size(), 1u);
    EXPECT_EQ(simTrace()[0].rfind("OSPathNetConstruct(null, null, *, *)", 0), 0u);

    sim().setFault("OSPathNetConstruct", ERR_NOEXIST, 0, 0);
    std::string kept = "kept";
    EXPECT_EQ(HyLNUtilities::MakeNetworkPath("s", "x.nsf", kept, true).GetErrorCode(), ERR_NOEXIST);
    EXPECT_EQ(HyLNUtilities::MakeProxyPath("s", "x.nsf", kept, true).GetErrorCode(), ERR_NOEXIST);
    EXPECT_EQ(kept, "kept");
    EXPECT_TRUE(logged("MakeNetworkPath", 0, "database x.nsf, error (259) File does not exist"));
    EXPECT_TRUE(logged("MakeProxyPath", 0, "database x.nsf, error (259) File does not exist"));
}

TEST_F(Utilities, DirectoryHandles)
{
    unsigned int handle = 99;
    EXPECT_FALSE(HyLNUtilities::OpenDirectory("", handle).IsErrorSet());
    EXPECT_EQ(sim().callCount("NSFDbOpen"), 0u);
    ASSERT_FALSE(HyLNUtilities::OpenDirectory(dataDir, handle).IsErrorSet());
    unsigned int opened = handle;
    EXPECT_NE(opened, 99u);
    EXPECT_FALSE(HyLNUtilities::CloseDirectory(handle).IsErrorSet());
    EXPECT_EQ(handle, opened);
    EXPECT_TRUE(HyLNUtilities::CloseDirectory(handle).IsErrorSet());

    sim().setFault("NSFDbOpen", ERR_NOEXIST, 0, 0);
    EXPECT_EQ(HyLNUtilities::OpenDirectory(dataDir, handle).GetErrorCode(), ERR_NOEXIST);
    EXPECT_EQ(handle, opened);
    EXPECT_TRUE(capturedLog().empty());
}
