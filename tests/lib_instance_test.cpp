// The Domino instance: name parsing, runtime start and end, threads.
#include <unistd.h>

#include <chrono>
#include <cstdio>
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

std::string currentDirectorySetting()
{
    char value[MAXENVVALUE + 1] = {};
    HY_OSGetEnvironmentString("Directory", value, MAXENVVALUE);
    return value;
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
        captureLog();
        HyLNInstance instance(c.name, "CN=Srv/O=Org");
        ASSERT_TRUE(instance.Initialize()) << c.name;
        EXPECT_EQ(instance.GetDataDirectory(), c.data);
        EXPECT_EQ(instance.GetServerName(), "CN=Srv/O=Org");
        EXPECT_TRUE(logged("GetDetails", 0, detailsLine(c.data, c.ini, c.name))) << c.name;
    }
}

TEST_F(Instance, InitializeRejectsEmptyNamesAndNamesWithoutDelimiter)
{
    HyLNInstance unnamed;
    EXPECT_FALSE(unnamed.Initialize());
    EXPECT_TRUE(logged("Initialize", 0, "invalid instance name. failed to initialize domino instance."));

    captureLog();
    HyLNInstance plain("plain", "srv");
    plain.SetDataDirectory("/kept");
    EXPECT_FALSE(plain.Initialize());
    EXPECT_EQ(plain.GetDataDirectory(), "/kept");
    EXPECT_EQ(logTexts(), (std::vector<std::string>{"No delimiter found in instance name plain.",
                                                     "Failed to initialize Domino Instance."}));
    EXPECT_EQ(capturedLog()[0].function, "GetDetails");
    EXPECT_EQ(capturedLog()[0].file, "HYLNTools/HYLNTool_Interface/HYLNTool_Instance.cpp");
}

TEST_F(Instance, CopiesCarryEveryField)
{
    HyLNInstance original("tag", "l" + kDelimiter + dataDir, "srv", true);
    original.Initialize();
    HyLNInstance assigned;
    assigned = original;
    HyLNInstance copied(original);
    for (HyLNInstance* other : {&assigned, &copied}) {
        EXPECT_EQ(other->GetServerName(), "srv");
        EXPECT_EQ(other->GetDataDirectory(), dataDir);
        captureLog();
        // Details travel with the copy: no second derivation.
        EXPECT_FALSE(other->InitializeNotesEnv().IsErrorSet());
        EXPECT_TRUE(logged("Calling NotesInitExtended. exepath  inipath = =" + dataDir + "/notes.ini"));
        EXPECT_FALSE(logged("GetDetails", 0, detailsLine(dataDir, dataDir + "/notes.ini", "l" + kDelimiter + dataDir)));
    }
}

TEST_F(Instance, InitializeNotesEnvStartsTheRuntimeAndConfirmsTheDataDirectory)
{
    std::string name = "label" + kDelimiter + dataDir + "/";
    HyLNInstance instance(name, "srv");
    instance.SetExePath("/opt/program");
    HyLNError status = instance.InitializeNotesEnv();
    EXPECT_FALSE(status.IsErrorSet());
    EXPECT_EQ(instance.GetDataDirectory(), dataDir);
    EXPECT_EQ(logTexts(), (std::vector<std::string>{
                              detailsLine(dataDir + "/", dataDir + "//notes.ini", name),
                              "Calling NotesInitExtended. exepath  inipath = =" + dataDir + "//notes.ini",
                              "Called NotesInitExtended (0).",
                              "confirmed data directory " + dataDir + ".",
                          }));
    EXPECT_EQ(capturedLog()[3].function, "InitializeNotesEnv");
}

TEST_F(Instance, InitializeNotesEnvFailures)
{
    HyLNInstance plain("plain", "srv");
    HyLNError status = plain.InitializeNotesEnv();
    EXPECT_FALSE(status.IsErrorSet());
    EXPECT_TRUE(logged("InitializeNotesEnv", 0, "Cannot get notes directory"));
    EXPECT_EQ(sim().callCount("NotesInitExtended"), 0u);

    captureLog();
    sim().setFault("NotesInitExtended", ERR_NOEXIST, 0, 0);
    HyLNInstance instance("l" + kDelimiter + dataDir, "srv");
    status = instance.InitializeNotesEnv();
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
    HyLNError status = instance.InitializeNotesEnvForUnix(dominoDir(), "=" + dataDir + "/notes.ini");
    EXPECT_FALSE(status.IsErrorSet());
    EXPECT_EQ(currentDirectorySetting(), dataDir);
    EXPECT_TRUE(capturedLog().empty());

    sim().setFault("NotesInitExtended", ERR_NOEXIST, 0, 0);
    status = instance.InitializeNotesEnvForUnix(dominoDir(), "=" + dataDir + "/notes.ini");
    EXPECT_EQ(status.GetErrorCode(), ERR_NOEXIST);
    EXPECT_TRUE(status.IsErrorSet());
    EXPECT_TRUE(logged("InitializeNotesEnvForUnix", 0,
                       "Notes Initialization for domino instance unix, failed with error (259) "));
}

TEST_F(Instance, InitializeNotesEnvForUnixReportsALoadFailure)
{
    HyLNInstance instance("unix", "srv");
    HyLNError status;
    Output output = captureOutput([&] { status = instance.InitializeNotesEnvForUnix("/nonexistent/hyln", "=x"); });
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
    EXPECT_EQ(sim().callCount("NotesTerm"), 1u);
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
