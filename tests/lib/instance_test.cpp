// The Domino instance: name parsing, runtime start and end, threads.
#include <unistd.h>

#include <chrono>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

#include "support/test_support.h"

using namespace hyln_test;

namespace {

const std::string kDelimiter = "\x12";

class Instance : public LibraryTest {
protected:
    void SetUp() override
    {
        LibraryTest::SetUp();
        dataDir = makeTempDir("instance");
        writeNotesIni(dataDir);
    }
    std::string dataDir;
};

std::string detailsLine(const std::string& data, const std::string& ini, const std::string& name)
{
    return "found data directory " + data + ", exe directory  and notes.ini path " + ini + " (" + name + ")";
}

} // namespace

TEST_F(Instance, NameSplitsAtTheFirstDelimiter)
{
    struct Case {
        std::string name, data, ini;
    } cases[] = {
        {"label" + kDelimiter + "/local/notesdata", "/local/notesdata", "/local/notesdata/notes.ini"},
        {"label" + kDelimiter, "", "/notes.ini"},
        {"label" + kDelimiter + "/d/", "/d/", "/d//notes.ini"},
        {"a" + kDelimiter + "/x" + kDelimiter + "y", "/x" + kDelimiter + "y", "/x" + kDelimiter + "y/notes.ini"},
    };
    for (const Case& c : cases) {
        HyLNInstance instance(c.name, "CN=Srv/O=Org");
        ASSERT_TRUE(instance.Initialize()) << c.name;
        EXPECT_EQ(instance.GetDataDirectory(), c.data);
        EXPECT_TRUE(logged("GetDetails", 0, detailsLine(c.data, c.ini, c.name))) << c.name;
    }
}

TEST_F(Instance, InitializeRejectsEmptyNamesAndNamesWithoutDelimiter)
{
    EXPECT_FALSE(HyLNInstance().Initialize());
    HyLNInstance plain("plain", "srv");
    plain.SetDataDirectory("/kept");
    EXPECT_FALSE(plain.Initialize());
    EXPECT_EQ(plain.GetDataDirectory(), "/kept");
    EXPECT_EQ(logTexts(), (std::vector<std::string>{"invalid instance name. failed to initialize domino instance.",
                                                     "No delimiter found in instance name plain.",
                                                     "Failed to initialize Domino Instance."}));
    EXPECT_EQ(capturedLog()[1].function, "GetDetails");
    EXPECT_EQ(capturedLog()[2].function, "Initialize");
    EXPECT_EQ(capturedLog()[2].file, "HYLNTools/HYLNTool_Interface/HYLNTool_Instance.cpp");
}

TEST_F(Instance, DataDirectoryMustLeaveRoomForTheIniPath)
{
    // 1024-byte buffers: "/notes.ini" and the terminating zero take 11 of them.
    std::string fits = "/" + std::string(1012, 'd');
    HyLNInstance longest("label" + kDelimiter + fits, "srv");
    EXPECT_TRUE(longest.Initialize());
    EXPECT_EQ(longest.GetDataDirectory(), fits);

    std::string name = "label" + kDelimiter + fits + "d";
    HyLNInstance tooLong(name, "srv");
    tooLong.SetDataDirectory("/kept");
    EXPECT_FALSE(tooLong.Initialize());
    EXPECT_EQ(tooLong.GetDataDirectory(), "/kept");
    EXPECT_TRUE(logged("GetDetails", 0, "Data directory in instance name " + name + " is too long."));
    EXPECT_TRUE(logged("Initialize", 0, "Failed to initialize Domino Instance."));
}

TEST_F(Instance, InitializeNotesEnvStartsTheRuntimeAndConfirmsTheDataDirectory)
{
    std::string name = "label" + kDelimiter + dataDir + "/";
    HyLNInstance instance(name, "srv");
    instance.SetExePath("/opt/program");
    EXPECT_FALSE(instance.InitializeNotesEnv().IsErrorSet());
    // The runtime's Directory setting has no trailing slash.
    EXPECT_EQ(instance.GetDataDirectory(), dataDir);
    EXPECT_EQ(logTexts(), (std::vector<std::string>{
                              detailsLine(dataDir + "/", dataDir + "//notes.ini", name),
                              "Calling NotesInitExtended. exepath  inipath = =" + dataDir + "//notes.ini",
                              "Called NotesInitExtended (0).",
                              "confirmed data directory " + dataDir + ".",
                          }));

    // A copy carries the resolved details: no second derivation.
    HyLNInstance copy;
    copy = instance;
    captureLog();
    EXPECT_FALSE(copy.InitializeNotesEnv().IsErrorSet());
    EXPECT_EQ(capturedLog().size(), 3u);
    EXPECT_EQ(HyLNInstance(copy).GetServerName(), "srv");
}

TEST_F(Instance, InitializeNotesEnvCutsALongDataDirectoryToItsBuffer)
{
    std::string setting = dataDir + "/" + std::string(300, 'd');
    std::ofstream(dataDir + "/notes.ini") << "Directory=" << setting << "\n";
    HyLNInstance instance("long" + kDelimiter + dataDir, "srv");
    EXPECT_FALSE(instance.InitializeNotesEnv().IsErrorSet());
    EXPECT_EQ(instance.GetDataDirectory(), setting.substr(0, 255)) << "255 characters and the terminator";
    EXPECT_TRUE(logged("confirmed data directory " + setting.substr(0, 255) + "."));
}

TEST_F(Instance, InitializeNotesEnvFailures)
{
    EXPECT_FALSE(HyLNInstance("plain", "srv").InitializeNotesEnv().IsErrorSet());
    EXPECT_TRUE(logged("InitializeNotesEnv", 0, "Cannot get notes directory"));
    EXPECT_EQ(sim().callCount("NotesInitExtended"), 0u);

    sim().setFault("NotesInitExtended", ERR_NOEXIST, 0, 0);
    HyLNError status = HyLNInstance("l" + kDelimiter + dataDir, "srv").InitializeNotesEnv();
    EXPECT_EQ(status.GetErrorCode(), ERR_NOEXIST);
    EXPECT_EQ(status.GetMessage(), "File does not exist");
    EXPECT_TRUE(logged("Called NotesInitExtended (259)."));
    EXPECT_TRUE(logged("InitializeNotesEnv", 0,
                       "Notes Initialization for domino instance l" + kDelimiter + dataDir +
                           ", failed with error (259) File does not exist"));
}

TEST_F(Instance, InitializeNotesEnvForUnixLoadsAndStarts)
{
    HyLNInstance instance("unix", "srv");
    EXPECT_FALSE(instance.InitializeNotesEnvForUnix(dominoDir(), "=" + dataDir + "/notes.ini").IsErrorSet());
    char directory[MAXENVVALUE + 1] = {};
    HY_OSGetEnvironmentString("Directory", directory, MAXENVVALUE);
    EXPECT_EQ(directory, dataDir);
    EXPECT_TRUE(capturedLog().empty());

    sim().setFault("NotesInitExtended", ERR_NOEXIST, 0, 0);
    HyLNError status = instance.InitializeNotesEnvForUnix(dominoDir(), "=" + dataDir + "/notes.ini");
    EXPECT_EQ(status.GetErrorCode(), ERR_NOEXIST);
    EXPECT_TRUE(logged("InitializeNotesEnvForUnix", 0,
                       "Notes Initialization for domino instance unix, failed with error (259) "));
}

TEST_F(Instance, InitializeNotesEnvForUnixPassesLongArgumentsWhole)
{
    std::string deepDir = dataDir + "/" + std::string(200, 'x') + "/" + std::string(200, 'y') + "/" +
                          std::string(200, 'z') + "/" + std::string(200, 'w') + "/" + std::string(200, 'v');
    ASSERT_GT(deepDir.size(), 1024u);
    std::filesystem::create_directories(deepDir);
    writeNotesIni(deepDir);
    // The runtime starts only if it can read the ini file at the whole path.
    HyLNInstance instance("unix", "srv");
    EXPECT_FALSE(instance.InitializeNotesEnvForUnix(dominoDir(), "=" + deepDir + "/notes.ini").IsErrorSet());
}

TEST_F(Instance, InitializeNotesEnvForUnixReportsALoadFailure)
{
    HyLNError status;
    Output output = captureOutput(
        [&] { status = HyLNInstance("unix", "srv").InitializeNotesEnvForUnix("/nonexistent/hyln", "=x"); });
    const std::string tail = "dynamic loading failed";
    ASSERT_GE(output.out.size(), tail.size());
    EXPECT_EQ(output.out.substr(output.out.size() - tail.size()), tail);
    EXPECT_EQ(status.GetErrorCode(), 1);
    EXPECT_TRUE(status.IsErrorSet());
    EXPECT_EQ(sim().callCount("NotesInitExtended"), 0u);
}

TEST_F(Instance, ThreadsAndTermination)
{
    startRuntime(dataDir);
    HyLNInstance instance;
    unsigned short threadStatus = 1;
    std::thread worker([&] {
        threadStatus = instance.InitializeNotesThread();
        instance.TerminateNotesThread();
    });
    worker.join();
    EXPECT_EQ(threadStatus, NOERROR);
    EXPECT_EQ(sim().callCount("NotesTermThread"), 1u);
    instance.TerminateNotes();
    EXPECT_NE(instance.InitializeNotesThread(), NOERROR);
}

TEST_F(Instance, DebugMarkerDelaysTheStartUntilRemoved)
{
    const char marker[] = "/tmp/lndb_debug";
    std::ofstream(marker).put('x');
    std::thread remover([&] {
        std::this_thread::sleep_for(std::chrono::milliseconds(1500));
        unlink(marker);
    });
    HyLNInstance instance("l" + kDelimiter + dataDir, "srv");
    auto start = std::chrono::steady_clock::now();
    Output output = captureOutput([&] { instance.InitializeNotesEnv(); });
    auto waited = std::chrono::steady_clock::now() - start;
    remover.join();
    EXPECT_EQ(output.out, "sleeping: Please remove the file /tmp/lndb_debug to proceed\n");
    EXPECT_GE(waited, std::chrono::milliseconds(1500));
    EXPECT_TRUE(logged("Called NotesInitExtended (0)."));
}
