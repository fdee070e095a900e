// Databases held open in greater number than the process has file descriptors for:
// every handle stays usable while only a few SQLite connections are open at a time.
#include <sys/resource.h>
#include <unistd.h>

#include <cstdio>

#include "sim/support/storage_fixture.h"
#include "storage.h"

using storage_test::StorageTest;

namespace {

const int kDatabases = 40;

std::string nameOf(int i)
{
    return "db-" + std::to_string(i) + ".nsf";
}

std::string titleOf(DBHANDLE db)
{
    char info[NSF_INFO_SIZE] = {};
    if (NSFDbInfoGet(db, info) != NOERROR)
        return "(failed)";
    char title[NSF_INFO_SIZE] = {};
    NSFDbInfoParse(info, INFOPARSE_TITLE, title, sizeof title - 1);
    return title;
}

// Runs in a child whose descriptor limit fits about five databases' connections.
std::string keepManyDatabasesOpen()
{
    struct rlimit limit;
    getrlimit(RLIMIT_NOFILE, &limit);
    limit.rlim_cur = 64;
    if (setrlimit(RLIMIT_NOFILE, &limit) != 0)
        return "cannot lower the descriptor limit";
    std::string failures;
    std::vector<DBHANDLE> handles;
    for (int i = 0; i < kDatabases; ++i) {
        DBHANDLE db = NULLHANDLE;
        if (NSFDbCreate(nameOf(i).c_str(), DBCLASS_NOTEFILE, FALSE) != NOERROR ||
            NSFDbOpen(nameOf(i).c_str(), &db) != NOERROR) {
            failures += " cannot create and open " + nameOf(i) + ";";
            break;
        }
        std::string title = "Title " + std::to_string(i);
        char info[NSF_INFO_SIZE] = {};
        title.copy(info, title.size());
        if (NSFDbInfoSet(db, info) != NOERROR)
            failures += " cannot write " + nameOf(i) + ";";
        handles.push_back(db);
    }
    if (handles.size() != kDatabases)
        return failures;
    if (sim::Storage::openConnectionCount() >= handles.size())
        failures += " a connection for every open database;";

    for (int i = 0; i < kDatabases; ++i)
        if (titleOf(handles[i]) != "Title " + std::to_string(i))
            failures += " " + nameOf(i) + " reads [" + titleOf(handles[i]) + "];";

    // A note written through a handle whose connection was closed meanwhile.
    NOTEHANDLE note = NULLHANDLE;
    NOTEID id = 0;
    if (NSFNoteCreate(handles[0], &note) != NOERROR || NSFItemSetText(note, "Subject", "late", MAXWORD) != NOERROR ||
        NSFNoteUpdate(note, 0) != NOERROR)
        failures += " cannot save a note;";
    NSFNoteGetInfo(note, _NOTE_ID, &id);
    NSFNoteClose(note);
    for (int i = 1; i < kDatabases; ++i)
        titleOf(handles[i]);
    char subject[16] = {};
    if (NSFNoteOpen(handles[0], id, 0, &note) != NOERROR || NSFItemGetText(note, "Subject", subject, sizeof subject) != 4)
        failures += " the note is not there;";
    NSFNoteClose(note);

    // A handle whose file was replaced while its connection was closed does not read the new file.
    if (NSFDbCreate(nameOf(1).c_str(), DBCLASS_NOTEFILE, TRUE) != NOERROR)
        failures += " cannot replace db-1;";
    char info[NSF_INFO_SIZE];
    if (NSFDbInfoGet(handles[1], info) != sim::STS_STORAGE)
        failures += " the old handle reads the new file;";

    for (DBHANDLE db : handles)
        if (NSFDbClose(db) != NOERROR)
            failures += " cannot close;";
    if (sim::Storage::openConnectionCount() != 0)
        failures += " connections stay open after the last handle: " +
                    std::to_string(sim::Storage::openConnectionCount()) + ";";
    return failures;
}

} // namespace

TEST_F(StorageTest, MoreOpenDatabasesThanDescriptorsStayUsable)
{
    ::testing::FLAGS_gtest_death_test_style = "fast";
    EXPECT_EXIT(
        {
            std::string failures = keepManyDatabasesOpen();
            std::fprintf(stderr, "%s\n", failures.c_str());
            _exit(failures.empty() ? 0 : 1);
        },
        ::testing::ExitedWithCode(0), "");
}
