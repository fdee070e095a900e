// Mailbox discovery of 10,000 mail files: the library's reporting overload against a
// plain loop over the same API calls with no library in between.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <set>
#include <string>
#include <vector>

#include "HYLNTool.h"
#include "support/domino_fixture.h"

namespace {

// Every reported mail file stays open (discovery never closes it); the runtime keeps only
// a bounded number of their files open at a time.
const int kMailboxes = 10000;
size_t recordsSent = 0;

bool acceptRecord(char*)
{
    ++recordsSent;
    return false;
}
bool connected() { return false; }
void discardLog(const char*, int, const char*, int, const char*, ...) {}

std::string benchDataDir()
{
    return std::filesystem::temp_directory_path().string() + "/hyln-bench-mailboxes-" + std::to_string(kMailboxes);
}

void startRuntime(const std::string& dataDir)
{
    std::string program = HYLN_TEST_DOMINO_DIR;
    std::string ini = "=" + dataDir + "/notes.ini";
    char* argv[] = {program.data(), ini.data(), nullptr};
    if (!loadNotesFunctions(program) || HY_NotesInitExtended(3, argv) != NOERROR)
        throw std::runtime_error("cannot start the simulated runtime");
}

// Creates the server once; later runs reuse it.
void prepareServer()
{
    static bool ready = false;
    if (ready)
        return;
    std::string dataDir = benchDataDir();
    bool exists = std::filesystem::exists(dataDir + "/names.nsf");
    std::filesystem::create_directories(dataDir + "/mail");
    std::ofstream(dataDir + "/notes.ini") << "Directory=" << dataDir << "\nServerName=CN=HySrv01/O=HyOrg\n";
    startRuntime(dataDir);
    if (!exists) {
        std::vector<hyln_test::Person> people;
        for (int i = 0; i < kMailboxes; ++i) {
            std::string name = "user" + std::to_string(i);
            hyln_test::createDatabase("mail/" + name + ".nsf", "Mailbox of " + name, 0x85250000 + i, i);
            people.push_back({{"CN=" + name + "/O=HyOrg"}, "mail/" + name + ".nsf"});
        }
        hyln_test::addPeople(people);
    }
    SetLogCallback(discardLog);
    SetSendMsgCallback(acceptRecord);
    SetCheckConnectionCallback(connected);
    ready = true;
}

void BM_DiscoverMailboxesLibrary(benchmark::State& state)
{
    prepareServer();
    MailboxLookupStruct lookup;
    HyLNUtilities::InitializeMBLookup(lookup, true);
    for (auto _ : state) {
        std::set<std::string> reported;
        recordsSent = 0;
        HyLNUtilities::DiscoverMailboxes("", &reported, lookup, false);
        if (recordsSent != kMailboxes)
            state.SkipWithError("not every mailbox was reported");
    }
    state.SetItemsProcessed(state.iterations() * kMailboxes);
}

// The same calls, in the same order, written directly against the API.
void reportPlain(char* path, const char* owner, std::set<std::string>& reported)
{
    DBHANDLE database = NULLHANDLE;
    if (HY_NSFDbOpen(path, &database) != NOERROR)
        return;
    char info[NSF_INFO_SIZE] = {0};
    if (HY_NSFDbInfoGet(database, info) != NOERROR)
        return;
    char title[NSF_INFO_SIZE] = {0};
    HY_NSFDbInfoParse(info, INFOPARSE_TITLE, title, NSF_INFO_SIZE - 1);
    char titleOut[513] = {0};
    char pathOut[513] = {0};
    if (HY_OSTranslate(OS_TRANSLATE_LMBCS_TO_UTF8, title, static_cast<WORD>(strlen(title)), titleOut, 513) == 0 ||
        HY_OSTranslate(OS_TRANSLATE_LMBCS_TO_UTF8, path, static_cast<WORD>(strlen(path)), pathOut, 513) == 0)
        return;
    auto replica = std::make_unique<DBREPLICAINFO>();
    if (HY_NSFDbReplicaInfoGet(database, replica.get()) != NOERROR)
        return;
    char record[3072];
    snprintf(record, sizeof record, "%s%c%s%c%s%c%X:%08X%c%s", pathOut, 0x12, titleOut, 0x12, "($All)", 0x15,
             replica->ID.Innards[1], replica->ID.Innards[0], 0x15, owner);
    std::string key = pathOut;
    key = key.substr(0, key.find(".nsf"));
    if (reported.insert(key).second)
        SendDBMessage(record);
}

void BM_DiscoverMailboxesPlain(benchmark::State& state)
{
    prepareServer();
    for (auto _ : state) {
        std::set<std::string> reported;
        recordsSent = 0;
        DHANDLE lookupHandle = NULLHANDLE;
        if (HY_NAMELookup2("", 0x0121, 1, "$PEOPLE", 1, "", 2, "MailFile\0FullName", &lookupHandle) != NOERROR) {
            state.SkipWithError("lookup failed");
            break;
        }
        void* lookup = HY_OSLockObject(lookupHandle);
        DWORD matches = 0;
        void* name = HY_NAMELocateNextName2(lookup, nullptr, &matches);
        void* match = nullptr;
        for (DWORD i = 0; i < matches; ++i) {
            match = HY_NAMELocateNextMatch2(lookup, name, match);
            WORD type = 0, size = 0;
            const char* value = static_cast<const char*>(HY_NAMELocateItem2(match, 0, &type, &size));
            if (value == nullptr || type != TYPE_TEXT || size < 2)
                continue;
            char path[513] = {0};
            memcpy(path, value + 2, std::min<size_t>(size - 2, 512));
            char owner[1024] = {0};
            HY_NAMEGetTextItem2(match, 1, 0, owner, 1023);
            CheckConnection();
            reportPlain(path, owner, reported);
        }
        HY_OSUnlockObject(lookupHandle);
        HY_OSMemFree(lookupHandle);
        if (recordsSent != kMailboxes)
            state.SkipWithError("not every mailbox was reported");
    }
    state.SetItemsProcessed(state.iterations() * kMailboxes);
}

} // namespace

BENCHMARK(BM_DiscoverMailboxesLibrary)->Unit(benchmark::kMillisecond)->MinTime(2.0);
BENCHMARK(BM_DiscoverMailboxesPlain)->Unit(benchmark::kMillisecond)->MinTime(2.0);
