// Note tables of a database: modified since a time (with deletions), unread per user,
// and the profile documents.
#include "HySimControl.h"
#include "sim/support/storage_fixture.h"

using storage_test::StorageTest;

namespace {

const char* const kJane = "CN=Jane Doe/O=HyOrg";
const char* const kJohn = "CN=John Roe/O=HyOrg";

std::vector<DWORD> idsOf(DHANDLE table)
{
    std::vector<DWORD> ids;
    DWORD id = 0;
    for (BOOL more = IDScan(table, TRUE, &id); more; more = IDScan(table, FALSE, &id))
        ids.push_back(id);
    return ids;
}

class NoteTables : public StorageTest {
protected:
    void SetUp() override
    {
        StorageTest::SetUp();
        HySimSetClock(1700000000, 0);
        db = createAndOpen("tables.nsf");
        first = saveTextNote(db, "first");
        second = saveTextNote(db, "second");
        view = saveDesignNote();
    }
    void TearDown() override
    {
        for (DHANDLE table : tables)
            IDDestroyTable(table);
        NSFDbClose(db);
        HySimUseRealClock();
        StorageTest::TearDown();
    }
    NOTEID saveDesignNote()
    {
        NOTEHANDLE note = newNote(db);
        WORD viewClass = NOTE_CLASS_VIEW;
        NSFNoteSetInfo(note, _NOTE_CLASS, &viewClass);
        setText(note, "$TITLE", "All");
        EXPECT_EQ(NSFNoteUpdate(note, 0), NOERROR);
        NOTEID id = 0;
        NSFNoteGetInfo(note, _NOTE_ID, &id);
        NSFNoteClose(note);
        return id;
    }
    // The table's IDs, or the status when the call failed.
    STATUS modifiedSince(const TIMEDATE& since, std::vector<DWORD>& ids, TIMEDATE* until = nullptr,
                         WORD classMask = NOTE_CLASS_DOCUMENT)
    {
        DHANDLE table = NULLHANDLE;
        STATUS status = NSFDbGetModifiedNoteTable(db, classMask, since, until, &table);
        if (table != NULLHANDLE)
            tables.push_back(table);
        ids = status == NOERROR ? idsOf(table) : std::vector<DWORD>();
        return status;
    }
    STATUS unread(const std::string& user, BOOL create, DHANDLE& table)
    {
        std::string name = user;
        STATUS status = NSFDbGetUnreadNoteTable(db, name.data(), static_cast<WORD>(name.size()), create, &table);
        if (table != NULLHANDLE)
            tables.push_back(table);
        return status;
    }
    std::vector<DWORD> unreadIds(const std::string& user)
    {
        DHANDLE table = NULLHANDLE;
        EXPECT_EQ(unread(user, FALSE, table), NOERROR);
        return table == NULLHANDLE ? std::vector<DWORD>() : idsOf(table);
    }
    TIMEDATE now()
    {
        TIMEDATE time{};
        OSCurrentTIMEDATE(&time);
        return time;
    }

    DBHANDLE db = NULLHANDLE;
    NOTEID first = 0;
    NOTEID second = 0;
    NOTEID view = 0;
    std::vector<DHANDLE> tables;
};

} // namespace

TEST_F(NoteTables, ModifiedSinceATimeListsLaterChangesAndMarksDeletions)
{
    TIMEDATE start{};
    std::vector<DWORD> ids;
    ASSERT_EQ(modifiedSince(start, ids), NOERROR);
    EXPECT_EQ(ids, (std::vector<DWORD>{first, second}));
    ASSERT_EQ(modifiedSince(start, ids, nullptr, NOTE_CLASS_VIEW), NOERROR);
    EXPECT_EQ(ids, (std::vector<DWORD>{view}));

    HySimSetClock(1700000100, 0);
    TIMEDATE since = now();
    HySimSetClock(1700000200, 0);
    NOTEID third = saveTextNote(db, "third");
    ASSERT_EQ(NSFNoteDelete(db, first, 0), NOERROR);
    TIMEDATE until{};
    ASSERT_EQ(modifiedSince(since, ids, &until), NOERROR);
    EXPECT_EQ(ids, (std::vector<DWORD>{third, first | RRV_DELETED}));
    TIMEDATE current = now();
    EXPECT_GE(TimeDateCompare(&until, &current), 0);

    // From the very start a deleted note is no news: it is simply not there.
    ASSERT_EQ(modifiedSince(start, ids), NOERROR);
    EXPECT_EQ(ids, (std::vector<DWORD>{second, third}));
}

TEST_F(NoteTables, NothingChangedSinceTheLastReadingIsItsOwnStatus)
{
    TIMEDATE until{};
    std::vector<DWORD> ids;
    ASSERT_EQ(modifiedSince(TIMEDATE{}, ids, &until), NOERROR);
    HySimSetClock(1700000300, 0);
    DHANDLE table = 0x4711;
    TIMEDATE again{};
    EXPECT_EQ(NSFDbGetModifiedNoteTable(db, NOTE_CLASS_DOCUMENT, until, &again, &table), ERR_NO_MODIFIED_NOTES);
    EXPECT_EQ(table, 0x4711u);
    EXPECT_EQ(TimeDateCompare(&again, &until), 1);

    NOTEID later = saveTextNote(db, "later");
    ASSERT_EQ(modifiedSince(again, ids), NOERROR);
    EXPECT_EQ(ids, (std::vector<DWORD>{later}));
}

TEST_F(NoteTables, WithoutAStoredListEveryDocumentIsUnreadOrNoTableIsMade)
{
    DHANDLE table = 0x4711;
    ASSERT_EQ(unread(kJane, FALSE, table), NOERROR);
    EXPECT_EQ(table, NULLHANDLE);
    ASSERT_EQ(unread(kJane, TRUE, table), NOERROR);
    ASSERT_NE(table, NULLHANDLE);
    EXPECT_EQ(idsOf(table), (std::vector<DWORD>{first, second}));
}

TEST_F(NoteTables, UnreadMarksAreKeptPerUserAcrossHandles)
{
    ASSERT_EQ(HySimSetUnread(db, kJane, second, 1), NOERROR);
    ASSERT_EQ(HySimSetUnread(db, kJohn, first, 1), NOERROR);
    ASSERT_EQ(HySimSetUnread(db, kJohn, second, 1), NOERROR);
    ASSERT_EQ(HySimSetUnread(db, kJohn, first, 0), NOERROR);

    DBHANDLE other = open("tables.nsf");
    std::string upper = "cn=JANE DOE/o=hyorg";
    DHANDLE table = NULLHANDLE;
    ASSERT_EQ(NSFDbGetUnreadNoteTable(other, upper.data(), static_cast<WORD>(upper.size()), TRUE, &table), NOERROR);
    EXPECT_EQ(idsOf(table), (std::vector<DWORD>{second}));
    IDDestroyTable(table);
    NSFDbClose(other);
    EXPECT_EQ(unreadIds(kJohn), (std::vector<DWORD>{second}));

    // A user whose marks were all cleared has read everything.
    ASSERT_EQ(HySimSetUnread(db, kJohn, second, 0), NOERROR);
    ASSERT_EQ(unread(kJohn, TRUE, table), NOERROR);
    EXPECT_TRUE(idsOf(table).empty());
}

TEST_F(NoteTables, DeletedNotesLeaveTheUnreadListAndCannotBeMarked)
{
    ASSERT_EQ(HySimSetUnread(db, kJane, first, 1), NOERROR);
    ASSERT_EQ(HySimSetUnread(db, kJane, second, 1), NOERROR);
    ASSERT_EQ(NSFNoteDelete(db, first, 0), NOERROR);
    EXPECT_EQ(unreadIds(kJane), (std::vector<DWORD>{second}));
    EXPECT_EQ(HySimSetUnread(db, kJane, first, 1), ERR_NOTE_DELETED);
    EXPECT_EQ(HySimSetUnread(db, kJane, 0x7FF0, 1), ERR_INVALID_NOTE);
    EXPECT_EQ(HySimSetUnread(NULLHANDLE, kJane, second, 1), ERR_NULL_DBHANDLE);
    DHANDLE table = NULLHANDLE;
    EXPECT_EQ(NSFDbGetUnreadNoteTable(db, nullptr, 0, TRUE, &table), sim::STS_BAD_ARGUMENT);
}

namespace {

struct ProfileSeen {
    std::string name;
    std::string user;
    NOTEID id;
};

struct ProfileWalk {
    std::vector<ProfileSeen> seen;
    DBHANDLE db = NULLHANDLE;
    STATUS stopWith = NOERROR;
};

STATUS collectProfile(DBHANDLE hDB, void* context, char* name, WORD nameLength, char* user, WORD userLength,
                      NOTEID id)
{
    auto* walk = static_cast<ProfileWalk*>(context);
    walk->db = hDB;
    walk->seen.push_back({std::string(name, nameLength), std::string(user, userLength), id});
    return walk->stopWith;
}

class Profiles : public StorageTest {
protected:
    void SetUp() override
    {
        StorageTest::SetUp();
        db = createAndOpen("profiles.nsf");
        calendar = saveNamed("$profile_015calendarprofile_");
        janes = saveNamed("$Profile_008Delegate_CN=Jane Doe/O=HyOrg");
        saveNamed("$profile_099short_");    // the length runs past the text
        saveNamed("$profile_abcdelegate_"); // no length
        saveNamed("($Inbox)");
        saveTextNote(db, "no name at all");
    }
    void TearDown() override
    {
        NSFDbClose(db);
        StorageTest::TearDown();
    }
    NOTEID saveNamed(const std::string& name)
    {
        NOTEHANDLE note = newNote(db);
        setText(note, "$Name", name);
        EXPECT_EQ(NSFNoteUpdate(note, 0), NOERROR);
        NOTEID id = 0;
        NSFNoteGetInfo(note, _NOTE_ID, &id);
        NSFNoteClose(note);
        return id;
    }
    STATUS enumerate(const char* name, ProfileWalk& walk)
    {
        WORD length = name != nullptr ? static_cast<WORD>(std::strlen(name)) : 0;
        return NSFProfileEnum(db, name, length, collectProfile, &walk, 0);
    }
    DBHANDLE db = NULLHANDLE;
    NOTEID calendar = 0;
    NOTEID janes = 0;
};

} // namespace

TEST_F(Profiles, EveryWellFormedProfileWithItsUser)
{
    ProfileWalk walk;
    ASSERT_EQ(enumerate(nullptr, walk), NOERROR);
    ASSERT_EQ(walk.seen.size(), 2u);
    EXPECT_EQ(walk.db, db);
    EXPECT_EQ(walk.seen[0].name, "calendarprofile");
    EXPECT_EQ(walk.seen[0].user, "");
    EXPECT_EQ(walk.seen[0].id, calendar);
    EXPECT_EQ(walk.seen[1].name, "Delegate");
    EXPECT_EQ(walk.seen[1].user, "CN=Jane Doe/O=HyOrg");
    EXPECT_EQ(walk.seen[1].id, janes);
}

TEST_F(Profiles, ANamedProfileMatchesWithoutRegardToCase)
{
    ProfileWalk walk;
    ASSERT_EQ(enumerate("DELEGATE", walk), NOERROR);
    ASSERT_EQ(walk.seen.size(), 1u);
    EXPECT_EQ(walk.seen[0].id, janes);
    walk.seen.clear();
    ASSERT_EQ(enumerate("delegat", walk), NOERROR);
    EXPECT_TRUE(walk.seen.empty());
}

TEST_F(Profiles, TheCallbacksStatusEndsTheWalk)
{
    ProfileWalk walk;
    walk.stopWith = 0x1234;
    EXPECT_EQ(enumerate(nullptr, walk), 0x1234);
    EXPECT_EQ(walk.seen.size(), 1u);
    ASSERT_EQ(NSFNoteDelete(db, calendar, 0), NOERROR);
    walk = ProfileWalk();
    ASSERT_EQ(enumerate(nullptr, walk), NOERROR);
    ASSERT_EQ(walk.seen.size(), 1u);
    EXPECT_EQ(walk.seen[0].id, janes);
    EXPECT_EQ(NSFProfileEnum(db, nullptr, 0, nullptr, nullptr, 0), sim::STS_BAD_ARGUMENT);
}
