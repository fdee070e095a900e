// NSFSearch over a database: class mask, time limits, summaries, stopping, directories.
#include <unistd.h>

#include "sim/support/storage_fixture.h"
#include "summary.h"

using storage_test::StorageTest;

namespace {

struct Seen {
    NOTEID id;
    WORD noteClass;
    BYTE flags;
    TIMEDATE modified;
    DWORD sequence;
    std::string subject;
    bool hasBody;
    bool hasSummary;
};

struct Collector {
    std::vector<Seen> seen;
    size_t stopAfter = 0;
};

STATUS collect(void* parameter, SEARCH_MATCH* match, ITEM_TABLE* summary)
{
    auto* collector = static_cast<Collector*>(parameter);
    SEARCH_MATCH copy;
    std::memcpy(&copy, match, sizeof copy);
    Seen seen{copy.ID.NoteID, copy.NoteClass, copy.SERetFlags, copy.ID.Note, copy.OriginatorID.Sequence, "", false,
              summary != nullptr};
    sim::SummaryValue value;
    if (summary != nullptr && sim::findSummaryValue(summary, "subject", value))
        seen.subject.assign(value.data, value.length);
    seen.hasBody = summary != nullptr && sim::findSummaryValue(summary, "Body", value);
    collector->seen.push_back(seen);
    return collector->stopAfter != 0 && collector->seen.size() == collector->stopAfter ? 0x1234 : NOERROR;
}

} // namespace

class StorageSearch : public StorageTest {
protected:
    void SetUp() override
    {
        StorageTest::SetUp();
        db = createAndOpen("search.nsf");
        for (const char* subject : {"one", "two", "three"})
            documents.push_back(saveNote(subject, NOTE_CLASS_DOCUMENT));
        form = saveNote("form", NOTE_CLASS_FORM);
    }
    void TearDown() override
    {
        NSFDbClose(db);
        StorageTest::TearDown();
    }
    NOTEID saveNote(const std::string& subject, WORD noteClass)
    {
        NOTEHANDLE note = newNote(db);
        NSFNoteSetInfo(note, _NOTE_CLASS, &noteClass);
        setText(note, "Subject", subject);
        append(note, "Body", TYPE_COMPOSITE, "x", 1, 0);
        EXPECT_EQ(NSFNoteUpdate(note, 0), NOERROR);
        NOTEID id = 0;
        NSFNoteGetInfo(note, _NOTE_ID, &id);
        NSFNoteClose(note);
        return id;
    }
    Collector search(WORD flags, WORD classMask, TIMEDATE* since, TIMEDATE* until = nullptr, size_t stopAfter = 0,
                     STATUS expected = NOERROR)
    {
        Collector collector;
        collector.stopAfter = stopAfter;
        EXPECT_EQ(NSFSearch(db, NULLHANDLE, nullptr, flags, classMask, since, collect, &collector, until), expected);
        return collector;
    }
    DBHANDLE db = NULLHANDLE;
    std::vector<NOTEID> documents;
    NOTEID form = 0;
};

TEST_F(StorageSearch, AllCurrentNotesOfTheClassInNoteIdOrder)
{
    Collector found = search(0, NOTE_CLASS_DOCUMENT, nullptr);
    ASSERT_EQ(found.seen.size(), 3u);
    for (size_t i = 0; i < 3; ++i) {
        EXPECT_EQ(found.seen[i].id, documents[i]);
        EXPECT_EQ(found.seen[i].noteClass, NOTE_CLASS_DOCUMENT);
        EXPECT_EQ(found.seen[i].flags, SE_FMATCH);
        EXPECT_EQ(found.seen[i].sequence, 1u);
        EXPECT_FALSE(found.seen[i].hasSummary);
        TIMEDATE modified{};
        ASSERT_EQ(NSFDbGetNoteInfo(db, documents[i], nullptr, &modified, nullptr), NOERROR);
        EXPECT_EQ(std::memcmp(&modified, &found.seen[i].modified, sizeof modified), 0);
    }
    EXPECT_EQ(search(0, NOTE_CLASS_ALL, nullptr).seen.size(), 4u);
    Collector forms = search(0, NOTE_CLASS_FORM | NOTE_CLASS_VIEW, nullptr);
    ASSERT_EQ(forms.seen.size(), 1u);
    EXPECT_EQ(forms.seen[0].id, form);
}

TEST_F(StorageSearch, SummaryHoldsOnlySummaryItems)
{
    Collector found = search(SEARCH_SUMMARY, NOTE_CLASS_DOCUMENT, nullptr);
    ASSERT_EQ(found.seen.size(), 3u);
    EXPECT_EQ(found.seen[1].subject, "two");
    EXPECT_TRUE(found.seen[1].hasSummary);
    EXPECT_FALSE(found.seen[1].hasBody);
}

TEST_F(StorageSearch, SinceGivesOnlyNotesModifiedFromThenOn)
{
    TIMEDATE until{};
    // Saves within one hundredth are stamped apart, into the next hundredths; let the clock pass them.
    usleep(60000);
    search(0, NOTE_CLASS_ALL, nullptr, &until);
    EXPECT_EQ(search(0, NOTE_CLASS_ALL, &until).seen.size(), 0u);
    usleep(20000);
    NOTEHANDLE note = NULLHANDLE;
    ASSERT_EQ(NSFNoteOpen(db, documents[1], 0, &note), NOERROR);
    setText(note, "Subject", "two again");
    ASSERT_EQ(NSFNoteUpdate(note, 0), NOERROR);
    NSFNoteClose(note);
    TIMEDATE next{};
    Collector changed = search(0, NOTE_CLASS_ALL, &until, &next);
    ASSERT_EQ(changed.seen.size(), 1u);
    EXPECT_EQ(changed.seen[0].id, documents[1]);
    EXPECT_EQ(changed.seen[0].sequence, 2u);
    EXPECT_EQ(TimeDateCompare(&next, &until), 1);
    TIMEDATE wildcard{{ALLDAY, ANYDAY}};
    EXPECT_EQ(search(0, NOTE_CLASS_ALL, &wildcard).seen.size(), 4u);
}

TEST_F(StorageSearch, NonZeroCallbackStatusStopsTheSearch)
{
    Collector stopped = search(0, NOTE_CLASS_ALL, nullptr, nullptr, 2, 0x1234);
    EXPECT_EQ(stopped.seen.size(), 2u);
}

TEST_F(StorageSearch, DirectoryHandleSearchesFiles)
{
    DBHANDLE dir = NULLHANDLE;
    ASSERT_EQ(NSFDbOpen("", &dir), NOERROR);
    Collector files;
    ASSERT_EQ(NSFSearch(dir, NULLHANDLE, nullptr, SEARCH_FILETYPE | SEARCH_SUMMARY, FILE_ANYNOTEFILE | FILE_RECURSE,
                        nullptr, collect, &files, nullptr),
              NOERROR);
    EXPECT_EQ(files.seen.size(), 1u) << "search.nsf";
    NSFDbClose(dir);
}
