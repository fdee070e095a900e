// Durability and sharing across processes: a writer killed mid-run loses nothing it
// was told was saved, and two processes can write one file at once.
#include <signal.h>
#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include "exit_child.h"
#include "sim/support/storage_fixture.h"

using storage_test::StorageTest;

namespace {

std::string bodyFor(DWORD index)
{
    return "note " + std::to_string(index) + std::string(4000 + index % 3000, static_cast<char>('a' + index % 26));
}

// Saves notes with a body of bodyFor(i); reports each saved note ID and index to `out`.
// Returns the number of failed saves.
int writeNotes(const char* path, DWORD count, int out)
{
    DBHANDLE db = NULLHANDLE;
    if (NSFDbOpen(path, &db) != NOERROR)
        return 1;
    int failures = 0;
    for (DWORD i = 0; count == 0 || i < count; ++i) {
        NOTEHANDLE note = NULLHANDLE;
        std::string body = bodyFor(i);
        NOTEID id = 0;
        bool saved = NSFNoteCreate(db, &note) == NOERROR &&
                     NSFItemAppend(note, 0, "Body", 4, TYPE_TEXT, body.data(), static_cast<DWORD>(body.size())) == NOERROR &&
                     NSFNoteUpdate(note, 0) == NOERROR;
        NSFNoteGetInfo(note, _NOTE_ID, &id);
        NSFNoteClose(note);
        DWORD record[2] = {id, i};
        if (!saved)
            ++failures;
        else if (out >= 0 && write(out, record, sizeof record) != static_cast<ssize_t>(sizeof record))
            return failures + 1;
    }
    NSFDbClose(db);
    return failures;
}

std::string integrityOf(const std::string& path)
{
    sqlite3* db = nullptr;
    std::string result = "cannot open";
    if (sqlite3_open_v2(path.c_str(), &db, SQLITE_OPEN_READONLY, nullptr) == SQLITE_OK) {
        sqlite3_stmt* check = nullptr;
        if (sqlite3_prepare_v2(db, "PRAGMA integrity_check", -1, &check, nullptr) == SQLITE_OK && sqlite3_step(check) == SQLITE_ROW)
            result = reinterpret_cast<const char*>(sqlite3_column_text(check, 0));
        sqlite3_finalize(check);
    }
    sqlite3_close(db);
    return result;
}

} // namespace

class StorageProcesses : public StorageTest {};

TEST_F(StorageProcesses, KilledWriterLosesNoSavedNote)
{
    NSFDbClose(createAndOpen("killed.nsf"));
    int pipeEnds[2];
    ASSERT_EQ(pipe(pipeEnds), 0);
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0) {
        // Killed mid-write, this child never gets to its leak check; the child of the
        // next test runs the same writing loop and is checked when it ends.
        close(pipeEnds[0]);
        process::exitChild(writeNotes("killed.nsf", 0, pipeEnds[1]));
    }
    close(pipeEnds[1]);
    std::vector<std::pair<NOTEID, DWORD>> saved;
    DWORD record[2];
    while (saved.size() < 150 && read(pipeEnds[0], record, sizeof record) == static_cast<ssize_t>(sizeof record))
        saved.emplace_back(record[0], record[1]);
    kill(child, SIGKILL);
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFSIGNALED(status)) << "the writer ended before it was killed, status " << status;
    while (read(pipeEnds[0], record, sizeof record) == static_cast<ssize_t>(sizeof record))
        saved.emplace_back(record[0], record[1]);
    close(pipeEnds[0]);
    ASSERT_GE(saved.size(), 150u);

    EXPECT_EQ(integrityOf(dataDir + "/killed.nsf"), "ok");
    DBHANDLE db = open("killed.nsf");
    for (const auto& [id, index] : saved) {
        NOTEHANDLE note = NULLHANDLE;
        ASSERT_EQ(NSFNoteOpen(db, id, 0, &note), NOERROR) << "note " << index;
        std::vector<char> body = itemBytes(note, "Body");
        std::string expected = bodyFor(index);
        EXPECT_EQ(std::string(body.begin() + 2, body.end()), expected) << "note " << index;
        NSFNoteClose(note);
    }
    NOTEID after = saveTextNote(db, "after the crash");
    EXPECT_GT(after, saved.back().first);
    NSFDbClose(db);
}

TEST_F(StorageProcesses, TwoProcessesWriteOneFileAtOnce)
{
    NSFDbClose(createAndOpen("shared.nsf"));
    pid_t child = fork();
    ASSERT_GE(child, 0);
    if (child == 0)
        process::exitChild(writeNotes("shared.nsf", 60, -1));
    EXPECT_EQ(writeNotes("shared.nsf", 60, -1), 0);
    int status = 0;
    waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status));
    EXPECT_EQ(WEXITSTATUS(status), 0) << "failed saves in the other process";

    DBHANDLE db = open("shared.nsf");
    size_t count = 0;
    EXPECT_EQ(NSFSearch(db, NULLHANDLE, nullptr, 0, NOTE_CLASS_ALL, nullptr,
                        [](void* counter, SEARCH_MATCH*, ITEM_TABLE*) -> STATUS {
                            ++*static_cast<size_t*>(counter);
                            return NOERROR;
                        },
                        &count, nullptr),
              NOERROR);
    EXPECT_EQ(count, 120u);
    NSFDbClose(db);
}
