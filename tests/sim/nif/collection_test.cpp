// NIFOpenCollection, NIFReadEntries and NIFCloseCollection over folders, views and
// the design collection: what is listed, positions, navigators and refreshes.
#include "nif_support.h"

#include <unistd.h>
#include <sys/wait.h>

#include "HySimControl.h"
#include "exit_child.h"

namespace {

using namespace sim::nif;
using nif_test::kDesignCollection;

class Collections : public nif_test::CollectionTest {
protected:
    // One read: the entries' note IDs (mask NOTEID), the position and signals after it.
    struct Read {
        STATUS status = NOERROR;
        std::vector<NOTEID> ids;
        DWORD skipped = 0;
        WORD signals = 0;
        WORD length = 0;
    };
    Read read(HCOLLECTION collection, COLLECTIONPOSITION& position, WORD skip, DWORD skipCount, WORD navigator,
              DWORD count = 0xFFFFFFFF)
    {
        Read result;
        DHANDLE buffer = NULLHANDLE;
        DWORD returned = 0;
        result.status = NIFReadEntries(collection, &position, skip, skipCount, navigator, count, kReadNoteId, &buffer,
                                       &result.length, &result.skipped, &returned, &result.signals);
        if (buffer != NULLHANDLE) {
            const char* bytes = static_cast<const char*>(OSLockObject(buffer));
            result.ids.resize(returned);
            std::memcpy(result.ids.data(), bytes, 4 * returned);
            OSUnlockObject(buffer);
            OSMemFree(buffer);
        }
        return result;
    }
    static COLLECTIONPOSITION at(DWORD first)
    {
        COLLECTIONPOSITION position{};
        position.Tumbler[0] = first;
        return position;
    }
};

TEST_F(Collections, DesignCollectionListsEveryDesignNoteWithItsClass)
{
    NOTEID view = addDesign("($All)", "", {nif_test::column("Subject", "Subject")});
    NOTEID folder = addFolder("Projects");
    NOTEHANDLE form = newNote(db);
    WORD formClass = NOTE_CLASS_FORM;
    NSFNoteSetInfo(form, _NOTE_CLASS, &formClass);
    setText(form, "$TITLE", "Memo");
    NOTEID formId = saveAndClose(form);
    addMemo("a document is not design");
    HCOLLECTION collection = open(kDesignCollection);
    std::vector<nif_test::Entry> entries = this->entries(collection);
    ASSERT_EQ(entries.size(), 3u);
    EXPECT_EQ(entries[0].id, view);
    EXPECT_EQ(entries[0].noteClass, NOTE_CLASS_VIEW);
    EXPECT_EQ(entries[1].id, folder);
    EXPECT_EQ(entries[1].noteClass, NOTE_CLASS_VIEW);
    EXPECT_EQ(entries[2].id, formId);
    EXPECT_EQ(entries[2].noteClass, NOTE_CLASS_FORM);
    EXPECT_EQ(NIFCloseCollection(collection), NOERROR);
    EXPECT_EQ(NIFCloseCollection(collection), sim::STS_INVALID_HANDLE);
}

TEST_F(Collections, BothStartingPositionsBeginAtTheFirstEntry)
{
    NOTEID folder = addFolder("F");
    std::vector<NOTEID> memos = {addMemo("a"), addMemo("b"), addMemo("c")};
    ASSERT_EQ(fileIn(folder, memos), NOERROR);
    HCOLLECTION collection = open(folder);
    COLLECTIONPOSITION zero = at(0);
    Read fromZero = read(collection, zero, kNavigateNext, 1, kNavigateNext);
    EXPECT_EQ(fromZero.ids, memos);
    EXPECT_EQ(fromZero.skipped, 1u);
    COLLECTIONPOSITION one = at(1);
    Read fromOne = read(collection, one, kNavigateCurrent, 1, kNavigateNext);
    EXPECT_EQ(fromOne.ids, memos);
    EXPECT_EQ(fromOne.signals & kSignalMoreToDo, 0);
    EXPECT_EQ(one.Level, 0);
    EXPECT_EQ(one.Tumbler[0], 3u) << "the position ends on the last entry read";
    NIFCloseCollection(collection);
}

TEST_F(Collections, ReturnCountCapsAReadAndTheNextReadGoesOn)
{
    NOTEID folder = addFolder("F");
    std::vector<NOTEID> memos = {addMemo("a"), addMemo("b"), addMemo("c")};
    ASSERT_EQ(fileIn(folder, memos), NOERROR);
    HCOLLECTION collection = open(folder);
    COLLECTIONPOSITION position = at(0);
    Read first = read(collection, position, kNavigateNext, 1, kNavigateNext, 2);
    EXPECT_EQ(first.ids, std::vector<NOTEID>(memos.begin(), memos.begin() + 2));
    EXPECT_EQ(first.signals & kSignalMoreToDo, 0) << "a reached count is not more to do";
    Read second = read(collection, position, kNavigateNext, 1, kNavigateNext, 2);
    EXPECT_EQ(second.ids, std::vector<NOTEID>{memos[2]});
    Read past = read(collection, position, kNavigateNext, 1, kNavigateNext);
    EXPECT_EQ(past.status, NOERROR);
    EXPECT_TRUE(past.ids.empty());
    EXPECT_EQ(past.skipped, 0u);
    EXPECT_EQ(past.length, 0);
    COLLECTIONPOSITION beyond = at(2);
    Read continued = read(collection, beyond, kNavigateNext | kNavigateContinue, 5, kNavigateNext);
    EXPECT_EQ(continued.ids, std::vector<NOTEID>{memos[2]}) << "CONTINUE returns from where the skip stopped";
    NIFCloseCollection(collection);
}

TEST_F(Collections, ANoteSavedAfterOpeningAppearsOnTheNextRead)
{
    NOTEID view = addDesign("Memos", "", {nif_test::column("Subject", "Subject")}, "Form = \"Memo\"");
    NOTEID first = addMemo("first");
    HCOLLECTION collection = open(view);
    EXPECT_EQ(ids(collection), std::vector<NOTEID>{first});
    NOTEID second = addMemo("second");
    COLLECTIONPOSITION position = at(0);
    Read after = read(collection, position, kNavigateNext, 1, kNavigateNext);
    EXPECT_EQ(after.ids, (std::vector<NOTEID>{first, second}));
    EXPECT_NE(after.signals & kSignalIndexModified, 0);
    NIFCloseCollection(collection);
}

TEST_F(Collections, ANoteSavedByAnotherProcessAppearsOnTheNextRead)
{
    NOTEID view = addDesign("Memos", "", {nif_test::column("Subject", "Subject")}, "Form = \"Memo\"");
    HCOLLECTION collection = open(view);
    EXPECT_TRUE(ids(collection).empty());
    pid_t child = fork();
    if (child == 0) {
        DBHANDLE own = NULLHANDLE;
        NOTEHANDLE note = NULLHANDLE;
        bool ok = NSFDbOpen("views.nsf", &own) == NOERROR && NSFNoteCreate(own, &note) == NOERROR &&
                  NSFItemSetText(note, "Form", "Memo", 4) == NOERROR && NSFNoteUpdate(note, 0) == NOERROR;
        process::exitChild(ok ? 0 : 1);
    }
    int status = 0;
    ASSERT_EQ(waitpid(child, &status, 0), child);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    EXPECT_EQ(ids(collection).size(), 1u);
    NIFCloseCollection(collection);
}

TEST_F(Collections, OpenFailsForNotesThatAreNoViews)
{
    NOTEID memo = addMemo("memo");
    NOTEID view = addDesign("Gone", "", {nif_test::column("Subject", "Subject")});
    ASSERT_EQ(NSFNoteDelete(db, view, 0), NOERROR);
    NOTEHANDLE bare = newNote(db);
    WORD viewClass = NOTE_CLASS_VIEW;
    NSFNoteSetInfo(bare, _NOTE_CLASS, &viewClass);
    setText(bare, "$TITLE", "No format");
    NOTEID noFormat = saveAndClose(bare);
    HCOLLECTION collection = 0;
    auto openStatus = [&](DBHANDLE handle, NOTEID id) {
        return NIFOpenCollection(handle, handle, id, 0, NULLHANDLE, &collection, nullptr, nullptr, nullptr, nullptr);
    };
    EXPECT_EQ(openStatus(db, memo), ERR_INVALID_NOTE);
    EXPECT_EQ(openStatus(db, view), ERR_NOTE_DELETED);
    EXPECT_EQ(openStatus(db, noFormat), ERR_ITEM_NOT_FOUND);
    EXPECT_EQ(openStatus(db, 0x7FF0), ERR_INVALID_NOTE);
    EXPECT_EQ(openStatus(NULLHANDLE, kDesignCollection), ERR_NULL_DBHANDLE);
    EXPECT_EQ(NIFReadEntries(0x7FFF, nullptr, 0, 0, 0, 0, 0, nullptr, nullptr, nullptr, nullptr, nullptr),
              sim::STS_INVALID_HANDLE);
}

TEST_F(Collections, OpenHandsOutTheViewUnidAndTablesTheCollectionOwns)
{
    NOTEID folder = addFolder("F");
    HCOLLECTION collection = 0;
    NOTEHANDLE viewNote = 0x1234;
    UNID unid{};
    DHANDLE collapsed = NULLHANDLE, selected = NULLHANDLE;
    ASSERT_EQ(NIFOpenCollection(db, db, folder, 0x29, NULLHANDLE, &collection, &viewNote, &unid, &collapsed, &selected),
              NOERROR);
    EXPECT_EQ(viewNote, NULLHANDLE);
    NOTEHANDLE note = NULLHANDLE;
    ASSERT_EQ(NSFNoteOpen(db, folder, 0, &note), NOERROR);
    ORIGINATORID oid{};
    NSFNoteGetInfo(note, _NOTE_OID, &oid);
    NSFNoteClose(note);
    EXPECT_EQ(std::memcmp(&unid, &oid, sizeof unid), 0);
    EXPECT_EQ(IDEntries(collapsed), 0u);
    size_t handlesBefore = HySimLiveHandleCount();
    EXPECT_EQ(NIFCloseCollection(collection), NOERROR);
    EXPECT_EQ(HySimLiveHandleCount(), handlesBefore - 3) << "the collection and its two tables";
}

} // namespace
