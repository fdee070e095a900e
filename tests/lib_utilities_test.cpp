// Notes utilities: time, settings, translation, memory, ID tables, summaries, paths.
#include <cstring>
#include <string>
#include <vector>

#include "support/test_support.h"

using namespace hyln_test;

namespace {

class Utilities : public RuntimeTest {};

// Settings fixture: a runtime whose notes.ini carries two extra values.
class Settings : public LibraryTest {
protected:
    void SetUp() override
    {
        LibraryTest::SetUp();
        std::string dir = makeTempDir("settings");
        writeNotesIni(dir, "CN=HySrv01/O=HyOrg", "HyCount=42\nHyText=hello\n");
        startRuntime(dir);
    }
};

std::vector<unsigned char> lockedBytes(DHANDLE handle, size_t count)
{
    const unsigned char* memory = static_cast<const unsigned char*>(HY_OSLockObject(handle));
    std::vector<unsigned char> bytes(memory, memory + count);
    HY_OSUnlockObject(handle);
    return bytes;
}

// One summary item: {WORD name length, WORD value length}, name, TYPE word, value.
std::vector<unsigned char> textSummary(const std::string& name, const std::string& text)
{
    const WORD valueLength = static_cast<WORD>(2 + text.size());
    const WORD total = static_cast<WORD>(4 + 4 + name.size() + valueLength);
    const WORD header[] = {total, 1, static_cast<WORD>(name.size()), valueLength, TYPE_TEXT};
    std::vector<unsigned char> buffer(total);
    unsigned char* cursor = buffer.data();
    memcpy(cursor, header, 8);
    memcpy(cursor += 8, name.data(), name.size());
    memcpy(cursor += name.size(), &header[4], 2);
    memcpy(cursor + 2, text.data(), text.size());
    return buffer;
}

} // namespace

TEST_F(Utilities, TimesConvertBothWaysAndPassThrough)
{
    sim().setClock(1700000000, 0);
    TIMEDATE now;
    HyLNUtilities::GetCurrentTimeDate(&now);
    sim().setClock(1700000090, 0);
    TIMEDATE later;
    HyLNUtilities::GetCurrentTimeDate(&later);

    std::string text;
    ASSERT_FALSE(HyLNUtilities::GetTimeString(now, text).IsErrorSet());
    EXPECT_FALSE(text.empty());
    TIMEDATE parsed = {};
    ASSERT_FALSE(HyLNUtilities::GetTimeDate(text, parsed).IsErrorSet());
    EXPECT_EQ(HyLNUtilities::CompareTimeDate(&parsed, &now), 0);
    EXPECT_EQ(HyLNUtilities::CompareTimeDate(&now, &later), -1);
    EXPECT_EQ(HyLNUtilities::GetTimeDateDifference(&later, &now), 90);
    EXPECT_EQ(HyLNUtilities::ExtractJulianDate(&now), 2440588u + 1700000000u / 86400u);
    EXPECT_TRUE(capturedLog().empty());
}

TEST_F(Utilities, TimeConversionFailuresLeaveTheOutputAlone)
{
    sim().setFault("ConvertTextToTIMEDATE", ERR_TDI_CONV, 0, 0);
    TIMEDATE value = {{11, 22}};
    HyLNError status = HyLNUtilities::GetTimeDate("garbage", value);
    EXPECT_EQ(status.GetErrorCode(), ERR_TDI_CONV);
    EXPECT_EQ(status.GetMessage(), "Unable to interpret Time or Date");
    EXPECT_EQ(value.Innards[0], 11u);
    EXPECT_EQ(value.Innards[1], 22u);
    ASSERT_EQ(capturedLog().size(), 1u);
    EXPECT_EQ(capturedLog()[0].function, "GetTimeDate");
    EXPECT_EQ(capturedLog()[0].level, 0);
    EXPECT_EQ(capturedLog()[0].file, "HYLNTools/HYLNTool_Interface/HYLNTool_NotesUtilities.cpp");
    EXPECT_EQ(capturedLog()[0].text,
              "Failed to convert time string garbage to TIMEDATE format. error (1036) Unable to interpret Time or Date");

    sim().setFault("ConvertTIMEDATEToText", ERR_TDO_CONV, 0, 0);
    std::string text = "kept";
    status = HyLNUtilities::GetTimeString(value, text);
    EXPECT_EQ(status.GetErrorCode(), ERR_TDO_CONV);
    EXPECT_EQ(text, "kept");
    EXPECT_TRUE(logged("GetTimeString", 0, "failed to convert TimeDate to Text error - (1037) Invalid Time or Date Encountered"));
}

TEST(UtilitiesText, StrLwrWorksInPlace)
{
    char text[] = "MiXed 1A";
    EXPECT_EQ(HyLNUtilities::StrLwr(text), text);
    EXPECT_STREQ(text, "mixed 1a");
}

TEST_F(Settings, IniValuesAreReadThroughTheRuntime)
{
    EXPECT_EQ(HyLNUtilities::GetNotesINIvarLong("HyCount"), 42);
    EXPECT_EQ(HyLNUtilities::GetNotesINIvarLong("HyMissing"), 0);
    char value[MAXENVVALUE + 1] = {};
    EXPECT_TRUE(HyLNUtilities::GetNotesINIvarString("HyText", value));
    EXPECT_STREQ(value, "hello");
    EXPECT_FALSE(HyLNUtilities::GetNotesINIvarString("HyMissing", value));
}

TEST_F(Utilities, Utf8ToNativeRunsTwoTranslationsAndStopsAfterAFailedFirst)
{
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

TEST_F(Utilities, MemoryBlocksAndObjectDescriptors)
{
    unsigned int handle = 0;
    ASSERT_FALSE(HyLNUtilities::AllocMem(0, 64, handle).IsErrorSet());
    ASSERT_NE(handle, 0u);

    BLOCKID block = {handle, 5};
    HyLNUtilities::CopyBlock<unsigned short>(nullptr, "abcdef", 6, block);
    EXPECT_EQ(block.block, 0);
    std::vector<unsigned char> bytes = lockedBytes(handle, 6);
    EXPECT_EQ(std::string(bytes.begin(), bytes.end()), "abcdef");

    // The descriptor written is made of the bytes of the source pointer itself.
    const void* source = reinterpret_cast<const void*>(0x1122334455667788ull);
    HyLNUtilities::CopyObject(handle, nullptr, source, 0, 1);
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
    HyLNError status = HyLNUtilities::AllocMem(0, 64, handle);
    EXPECT_EQ(status.GetErrorCode(), ERR_MEMORY);
    EXPECT_EQ(status.GetMessage(), "Insufficient memory.");
}

TEST_F(Utilities, IdTablesAndTheirFailureLines)
{
    unsigned int table = 0;
    ASSERT_EQ(HyLNUtilities::CreateTable(0, &table), NOERROR);
    int inserted = FALSE;
    EXPECT_EQ(HyLNUtilities::InsertIntoTable(table, 5, &inserted), NOERROR);
    EXPECT_TRUE(inserted);
    EXPECT_EQ(HyLNUtilities::CountTableEntries(table), 1u);
    int found = FALSE;
    EXPECT_FALSE(HyLNUtilities::DeleteID(table, 5, &found).IsErrorSet());
    EXPECT_TRUE(found);
    EXPECT_EQ(HyLNUtilities::CountTableEntries(table), 0u);

    sim().setFault("IDDelete", ERR_MEMORY, 0, 0);
    EXPECT_EQ(HyLNUtilities::DeleteID(table, 4000000000u, &found).GetErrorCode(), ERR_MEMORY);
    EXPECT_TRUE(logged("DeleteID", 0, "Failed to delete id 4000000000 from idtable. error: 263 - Insufficient memory."));

    sim().setFault("IDDestroyTable", ERR_MEMORY, 1, 0);
    unsigned int kept = table;
    EXPECT_EQ(HyLNUtilities::MemFreeTable(table).GetErrorCode(), ERR_MEMORY);
    EXPECT_TRUE(logged("MemFreeTable", 0, "Unalbe to destroy ID table. error 263 - Insufficient memory."));
    EXPECT_FALSE(HyLNUtilities::MemFreeTable(table).IsErrorSet());
    EXPECT_EQ(table, kept);
}

TEST_F(Utilities, ObjectDetailsKeepOnlyTheCodeOfARuntimeFailure)
{
    OBJECT_DESCRIPTOR object = {OBJECT_FILE, 77};
    unsigned int size = 0;
    unsigned short objectClass = 0, privileges = 0;
    HyLNError status = HyLNUtilities::DBGetObjectDetails(0, object, &size, &objectClass, &privileges);
    EXPECT_EQ(status.GetErrorCode(), 4996);
    EXPECT_TRUE(status.IsErrorSet());
    EXPECT_EQ(status.GetMessage(), "The database handle is NULL");
    EXPECT_EQ(sim().callCount("NSFDbGetObjectSize"), 0u);

    sim().setFault("NSFDbGetObjectSize", ERR_NOACCESS, 0, 0);
    status = HyLNUtilities::DBGetObjectDetails(1234, object, &size, &objectClass, &privileges);
    EXPECT_EQ(status.GetErrorCode(), ERR_NOACCESS);
    EXPECT_FALSE(status.IsErrorSet());
    EXPECT_EQ(status.GetMessage(), "");
    EXPECT_TRUE(capturedLog().empty());
}

TEST_F(Utilities, SummaryValuesByName)
{
    std::vector<unsigned char> summary = textSummary("Subject", "Hi");
    std::string value = "stale";
    EXPECT_TRUE(HyLNUtilities::GetSummaryValue(summary.data(), "Subject", value));
    EXPECT_EQ(value, "Hi");
    EXPECT_FALSE(HyLNUtilities::GetSummaryValue(summary.data(), "Missing", value));
    EXPECT_EQ(value, "");

    void* located = nullptr;
    unsigned short length = 0, type = 0;
    EXPECT_TRUE(HyLNUtilities::LocateSummaryValue(summary.data(), "Subject", &located, &length, &type));
    EXPECT_EQ(type, TYPE_TEXT);
    EXPECT_EQ(std::string(static_cast<const char*>(located), length), "Hi");
}

TEST_F(Utilities, NetworkPathsNameTheServerOnlyWhenAsked)
{
    sim().traceEnable(1);
    std::string path;
    ASSERT_FALSE(HyLNUtilities::MakeNetworkPath("CN=Srv/O=Org", "mail/j.nsf", path, true).IsErrorSet());
    EXPECT_EQ(path, "CN=Srv/O=Org!!mail/j.nsf");
    std::string proxy;
    ASSERT_FALSE(HyLNUtilities::MakeProxyPath("CN=Srv/O=Org", "mail/j.nsf", proxy, true).IsErrorSet());
    EXPECT_EQ(proxy, path);
    sim().traceClear();
    ASSERT_FALSE(HyLNUtilities::MakeNetworkPath("CN=Srv/O=Org", "mail/j.nsf", path, false).IsErrorSet());
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
    EXPECT_EQ(handle, 99u);
    EXPECT_EQ(sim().callCount("NSFDbOpen"), 0u);

    ASSERT_FALSE(HyLNUtilities::OpenDirectory(dataDir, handle).IsErrorSet());
    EXPECT_NE(handle, 99u);
    unsigned int opened = handle;
    EXPECT_FALSE(HyLNUtilities::CloseDirectory(handle).IsErrorSet());
    EXPECT_EQ(handle, opened);
    EXPECT_TRUE(HyLNUtilities::CloseDirectory(handle).IsErrorSet());

    sim().setFault("NSFDbOpen", ERR_NOEXIST, 0, 0);
    handle = 99;
    EXPECT_EQ(HyLNUtilities::OpenDirectory(dataDir, handle).GetErrorCode(), ERR_NOEXIST);
    EXPECT_EQ(handle, 99u);
    EXPECT_TRUE(capturedLog().empty());
}
