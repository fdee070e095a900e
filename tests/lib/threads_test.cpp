// Host threads using the library at once. Eight threads, each bracketed by
// InitializeNotesThread and TerminateNotesThread, discover and read the databases of
// one seeded server together and must each see exactly what one thread doing the
// same work alone sees. Built with ThreadSanitizer (HYLN_TSAN), this is also the
// data-race check of the library, the runtime and the host callbacks.
#include <atomic>
#include <cstdio>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <vector>

#include "HYLNTool_Database.h"
#include "support/seed_run.h"
#include "support/test_support.h"

using namespace hyln_test;

namespace {

constexpr int kThreads = 8;

// What the host callbacks receive on one thread. The library calls the host back
// on the thread that called it, so each thread keeps its own.
struct ThreadRecord {
    std::vector<std::string> messages;
    std::vector<std::string> log;
};
thread_local ThreadRecord* currentRecord = nullptr;

void recordLog(const char* function, int level, const char*, int, const char* text, ...)
{
    if (currentRecord != nullptr)
        currentRecord->log.push_back(std::string(function) + " [" + std::to_string(level) + "] " + text);
}

bool recordMessage(char* message)
{
    if (currentRecord != nullptr)
        currentRecord->messages.emplace_back(message);
    return false; // delivered
}

bool sessionStillThere() { return false; }

unsigned short collectPath(void* context, SEARCH_MATCH*, ITEM_TABLE* summary)
{
    std::string path;
    if (HyLNUtilities::GetSummaryValue(summary, "$Path", path))
        static_cast<std::set<std::string>*>(context)->insert(path);
    return NOERROR;
}

// Records and information buffers hold control bytes; they are shown as <hex>.
std::string printable(const std::string& text)
{
    std::string shown;
    for (unsigned char c : text) {
        if (c >= 0x20) {
            shown += static_cast<char>(c);
            continue;
        }
        char hex[8];
        std::snprintf(hex, sizeof hex, "<%02X>", c);
        shown += hex;
    }
    return shown;
}

std::string statusText(HyLNError status)
{
    if (!status.IsErrorSet())
        return "ok";
    return "error " + std::to_string(status.GetErrorCode()) + " " + status.GetMessage();
}

std::string timeText(const TIMEDATE& time)
{
    char text[24];
    std::snprintf(text, sizeof text, "%08X:%08X", time.Innards[1], time.Innards[0]);
    return text;
}

// Everything one thread learned about the server, as text, and the counts that
// show there was something to learn.
struct Survey {
    std::string text;
    size_t databases = 0;
    size_t databasesRead = 0; // opened, read and closed without an error
    size_t mailboxRecords = 0;
    size_t additionalDatabases = 0;
};

void readDatabase(const std::string& path, Survey& survey, std::ostringstream& text)
{
    HyLNDatabase database(path, std::string());
    HyLNError status = database.Open(path, true);
    text << "database " << path << ": open " << statusText(status);
    if (!status.IsErrorSet()) {
        char info[NSF_INFO_SIZE] = {};
        std::string title;
        std::string replicaId;
        TIMEDATE created{};
        TIMEDATE modified{};
        HyLNError reads[] = {database.GetInfo(info), database.GetTitle(title), database.GetReplicaID(replicaId),
                             database.GetCreationTime(created), database.GetModifiedTime(modified)};
        text << " info " << printable(info) << " title " << printable(title) << " replica " << replicaId
             << " created " << timeText(created) << " modified " << timeText(modified);
        bool allRead = true;
        for (HyLNError& read : reads) {
            if (read.IsErrorSet())
                text << " " << statusText(read);
            allRead = allRead && !read.IsErrorSet();
        }
        status = database.Close();
        text << " close " << statusText(status);
        if (allRead && !status.IsErrorSet())
            ++survey.databasesRead;
    }
    text << "\n";
}

Survey surveyServer(const std::string& dataDir, ThreadRecord& record)
{
    Survey survey;
    std::ostringstream text;

    std::set<std::string> paths;
    text << "databases: " << statusText(HyLNUtilities::DiscoverDatabases(dataDir, &paths, collectPath)) << "\n";
    survey.databases = paths.size();
    for (const std::string& path : paths)
        readDatabase(path, survey, text);
    // A failure on every thread too: the status text and the log line it brings.
    Survey ignored;
    readDatabase("mail/nobody.nsf", ignored, text);

    // The lookup parameters freeze on the first call in the process; every thread
    // passes the same ones.
    MailboxLookupStruct lookup;
    HyLNUtilities::InitializeMBLookup(lookup, true);
    std::set<std::string> reported;
    text << "mailboxes: " << statusText(HyLNUtilities::DiscoverMailboxes("", &reported, lookup, false)) << "\n";
    for (const std::string& message : record.messages)
        text << "record " << printable(message) << "\n";
    survey.mailboxRecords = record.messages.size();

    std::set<std::string> names;
    std::string directories = dataDir + "/extra1?" + dataDir + "/extra2";
    bool scanned = HyLNUtilities::GetAdditionalDatabases(&names, &directories, false, false);
    text << "additional: " << (scanned ? "ok" : "failed") << "\n";
    for (const std::string& name : names)
        text << "additional " << name << "\n";
    survey.additionalDatabases = names.size();

    for (const std::string& line : record.log)
        text << "log " << printable(line) << "\n";
    survey.text = text.str();
    return survey;
}

struct Outcome {
    unsigned short threadStatus = 0xFFFF; // of InitializeNotesThread
    Survey survey;
};

// The work of one host thread, bracketed as hosts must bracket it.
Outcome workOnThisThread(HyLNInstance& instance, const std::string& dataDir)
{
    Outcome outcome;
    ThreadRecord record;
    currentRecord = &record;
    outcome.threadStatus = instance.InitializeNotesThread();
    if (outcome.threadStatus == NOERROR) {
        outcome.survey = surveyServer(dataDir, record);
        instance.TerminateNotesThread();
    }
    currentRecord = nullptr;
    return outcome;
}

class ConcurrentHosts : public LibraryTest {
protected:
    static void SetUpTestSuite()
    {
        dataDir = makeTempDir("threads") + "/server";
        seed = seed_run::runSeeder("--dir " + dataDir + " --users 12 --messages 2 --extra-dirs 2 --seed 11");
    }

    void SetUp() override
    {
        LibraryTest::SetUp();
        ASSERT_EQ(seed.exitCode, 0) << seed.output;
        SetLogCallback(recordLog);
        SetSendMsgCallback(recordMessage);
        SetCheckConnectionCallback(sessionStillThere);
        HyLNError status = instance.InitializeNotesEnvForUnix(dominoDir(), "=" + dataDir + "/notes.ini");
        ASSERT_FALSE(status.IsErrorSet()) << statusText(status);
    }

    void TearDown() override
    {
        instance.TerminateNotes();
        SetSendMsgCallback(nullptr);
        SetCheckConnectionCallback(nullptr);
        LibraryTest::TearDown();
    }

    static std::string dataDir;
    static seed_run::SeedRun seed;
    HyLNInstance instance{"threads", ""};
};

std::string ConcurrentHosts::dataDir;
seed_run::SeedRun ConcurrentHosts::seed;

} // namespace

TEST_F(ConcurrentHosts, EightThreadsAtOnceSeeWhatOneThreadSeesAlone)
{
    // The threads go first, so that whatever the library and the runtime set up on
    // first use (the mailbox lookup, converters, connections) is set up under contention.
    std::vector<Outcome> outcomes(kThreads);
    std::atomic<int> notYetStarted{kThreads};
    std::vector<std::thread> threads;
    for (int i = 0; i < kThreads; ++i)
        threads.emplace_back([&, i] {
            // All begin together, so that their calls interleave from the first one.
            notYetStarted.fetch_sub(1);
            while (notYetStarted.load() > 0)
                std::this_thread::yield();
            outcomes[i] = workOnThisThread(instance, dataDir);
        });
    for (std::thread& thread : threads)
        thread.join();

    Outcome alone;
    std::thread([&] { alone = workOnThisThread(instance, dataDir); }).join();
    ASSERT_EQ(alone.threadStatus, NOERROR);
    // The comparison only means something when there was something to see.
    EXPECT_GT(alone.survey.databases, 0u);
    EXPECT_EQ(alone.survey.databasesRead, alone.survey.databases) << alone.survey.text;
    EXPECT_GT(alone.survey.mailboxRecords, 0u) << alone.survey.text;
    EXPECT_GT(alone.survey.additionalDatabases, 0u) << alone.survey.text;

    for (int i = 0; i < kThreads; ++i) {
        EXPECT_EQ(outcomes[i].threadStatus, NOERROR) << "thread " << i;
        EXPECT_EQ(outcomes[i].survey.text, alone.survey.text) << "thread " << i;
    }
}
