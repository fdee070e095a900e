// Callback slots, the log call, the loader and the exported code tables.
#include <dlfcn.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "support/test_support.h"

using namespace hyln_test;

namespace {

bool answerFalse() { return false; }
std::string lastSent;
bool recordAndAccept(char* message)
{
    lastSent = message;
    return false;
}

// Every HY_ pointer, in the loader's order, so tests can clear and inspect the table.
void** tableSlots[] = {
#define HY_ENTRY(ret, name, params, args) reinterpret_cast<void**>(&HY_##name),
#include "HYLNTool_EntryPoints.def"
#undef HY_ENTRY
};
constexpr size_t kSlots = sizeof tableSlots / sizeof tableSlots[0];

void clearTable()
{
    for (void** slot : tableSlots)
        *slot = nullptr;
}

size_t filledSlots()
{
    size_t count = 0;
    for (void** slot : tableSlots)
        count += *slot != nullptr ? 1 : 0;
    return count;
}

std::string libraryPath(const std::string& dir) { return dir + "/notes/latest/linux/libnotes.so"; }

struct HostFrame : ::testing::Test {
    void TearDown() override
    {
        SetLogCallback(nullptr);
        SetJobQuitCallback(nullptr);
        SetSendMsgCallback(nullptr);
        SetCheckConnectionCallback(nullptr);
        // Leave a complete table for whatever runs next in this process.
        captureOutput([] { loadNotesFunctions(dominoDir()); });
    }
};

} // namespace

TEST_F(HostFrame, DefaultsWithoutCallbacksAreAsymmetric)
{
    EXPECT_TRUE(QuitJob());
    char message[] = "record";
    EXPECT_TRUE(SendDBMessage(message));
    EXPECT_FALSE(CheckConnection());

    SetJobQuitCallback(answerFalse);
    SetSendMsgCallback(recordAndAccept);
    SetCheckConnectionCallback(answerFalse);
    EXPECT_FALSE(QuitJob());
    EXPECT_FALSE(SendDBMessage(message));
    EXPECT_EQ(lastSent, "record");
    EXPECT_EQ(pJobQuitCallback, &answerFalse);

    SetJobQuitCallback(nullptr);
    EXPECT_TRUE(QuitJob());
}

TEST_F(HostFrame, LogMessageFormatsIntoOneBoundedBuffer)
{
    const char* unusedFormat = "%s%s%s%n";
    LogMessage("F", 0, "file", 1, unusedFormat, "no callback installed, nothing is formatted");

    captureLog();
    std::string longText(5000, 'x');
    LogMessage("Fn", 3, "some/file.cpp", 42, "%s", longText.c_str());
    LogMessage("Fn", -1, "some/file.cpp", 43, "value %s and %d", "100%", 7);
    ASSERT_EQ(capturedLog().size(), 2u);
    EXPECT_EQ(capturedLog()[0].text, std::string(4095, 'x'));
    EXPECT_EQ(capturedLog()[0].function, "Fn");
    EXPECT_EQ(capturedLog()[0].level, 3);
    EXPECT_EQ(capturedLog()[0].file, "some/file.cpp");
    EXPECT_EQ(capturedLog()[0].line, 42);
    EXPECT_EQ(capturedLog()[1].text, "value 100% and 7");
}

TEST_F(HostFrame, LoaderResolvesAll123EntriesTwice)
{
    clearTable();
    bool first = false, second = false;
    Output output = captureOutput([&] { first = loadNotesFunctions(dominoDir()); });
    void* address = reinterpret_cast<void*>(HY_NSFDbOpen);
    Output again = captureOutput([&] { second = loadNotesFunctions(dominoDir()); });
    EXPECT_TRUE(first);
    EXPECT_TRUE(second);
    EXPECT_EQ(kSlots, 123u);
    EXPECT_EQ(filledSlots(), 123u);
    EXPECT_EQ(reinterpret_cast<void*>(HY_NSFDbOpen), address);
    EXPECT_EQ(output.out + output.err + again.out + again.err, "");
}

TEST_F(HostFrame, LoaderTakesTheDirectoryAsItStands)
{
    bool loaded = false;
    Output output = captureOutput([&] { loaded = loadNotesFunctions("/opt/x/"); });
    EXPECT_FALSE(loaded);
    EXPECT_EQ(output.out, "Notes API Lib /opt/x//notes/latest/linux/libnotes.so does not exist!");

    output = captureOutput([&] { loaded = loadNotesFunctions(dominoDir() + "/"); });
    EXPECT_TRUE(loaded) << output.out;
}

TEST_F(HostFrame, LoaderReportsAFileThatIsNotASharedObject)
{
    std::string dir = makeTempDir("notso");
    std::filesystem::create_directories(dir + "/notes/latest/linux");
    std::ofstream(libraryPath(dir)) << "this is not an ELF file\n";
    clearTable();
    bool loaded = true;
    Output output = captureOutput([&] { loaded = loadNotesFunctions(dir); });
    EXPECT_FALSE(loaded);
    EXPECT_NE(output.err.find(libraryPath(dir)), std::string::npos) << output.err;
    ASSERT_FALSE(output.err.empty());
    EXPECT_NE(output.err.back(), '\n') << "dlerror text is written without a line end";
    EXPECT_EQ(output.out, "Could not load " + libraryPath(dir) + ".\nError from dlopen:(null)\n");
    EXPECT_EQ(filledSlots(), 0u);
}

TEST_F(HostFrame, LoaderStopsAtTheFirstMissingEntry)
{
    clearTable();
    bool loaded = true;
    Output output = captureOutput([&] { loaded = loadNotesFunctions(missingLastDir()); });
    EXPECT_FALSE(loaded);
    EXPECT_EQ(output.out, "Could not obtain address of TimeLocalToGM from " + libraryPath(missingLastDir()) + ".\n");
    EXPECT_EQ(filledSlots(), 122u);
    EXPECT_EQ(HY_TimeLocalToGM, nullptr);

    clearTable();
    output = captureOutput([&] { loaded = loadNotesFunctions(missingFirstDir()); });
    EXPECT_FALSE(loaded);
    EXPECT_EQ(output.out,
              "Could not obtain address of ConvertTextToTIMEDATE from " + libraryPath(missingFirstDir()) + ".\n");
    EXPECT_EQ(filledSlots(), 0u);
}

namespace {
const char* typeName(unsigned int code)
{
    for (const HyLNCodeName* row = notes_types; row->name != nullptr; ++row)
        if (row->code == code || row->code == 0xFFFFFFFF)
            return row->name;
    return nullptr;
}
std::string flagTexts(const HyLNCodeName* table, unsigned int bits)
{
    std::string text;
    for (const HyLNCodeName* row = table; row->code != 0xFFFFFFFF; ++row)
        if (bits & row->code)
            text += row->name;
    return text;
}
} // namespace

TEST(CodeTables, LookupsEndAtTheirTerminatingRows)
{
    EXPECT_STREQ(typeName(0x0017), "UNKNOWN");
    EXPECT_STREQ(typeName(0x0000), "TYPE_INVALID_OR_UNKNOWN");
    EXPECT_STREQ(typeName(0x0502), "TYPE_RFC822_TEXT");
    EXPECT_STREQ(typeName(0x0501), "TYPE_TEXT_LIST");
    EXPECT_EQ(notes_types[37].code, 0u);
    EXPECT_EQ(notes_types[37].name, nullptr);
    EXPECT_EQ(item_flags[9].code, 0xFFFFFFFFu);
    EXPECT_EQ(item_flags[9].name, nullptr);
    EXPECT_EQ(flagTexts(item_flags, 0x1025), "signedsummaryread/writeunchanged");
    EXPECT_EQ(flagTexts(note_flags, 0x0023),
              "Document cannot be updated. Document is missing some data (truncated). "
              "Note contains linked items or linked objects. ");
    EXPECT_EQ(note_flags[4].name, nullptr);
}
