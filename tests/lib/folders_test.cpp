// HyLNDatabase folder operations: widening a folder list with its subfolders,
// filtering a note table by folders, and putting restored notes back into folders.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include "HYLNTool_Database.h"
#include "support/document_fixture.h"

using namespace hyln_test;

namespace {

const char* const kDatabaseSource = "HYLNTools/HYLNTool_Interface/HYLNTool_Database.cpp";
const STATUS kFault = 0x0103;
const int kReturn = 0; // fault mode of the runtime's control interface
const char* const kWithoutMode = "Warning: folder filter function called without filter mode set to false.";

std::string messageOf(STATUS status)
{
    HyLNError error;
    error.SetError(status);
    return error.GetMessage();
}

bool neverQuit()
{
    return false;
}

// Every call that made something has a call that released it; `failed` names a call
// that an injected fault made fail once, so it made nothing.
void expectEverythingReleased(const std::string& failed = "")
{
    auto made = [&failed](const char* api) { return sim().callCount(api) - (failed == api ? 1 : 0); };
    EXPECT_EQ(made("IDCreateTable") + made("IDTableCopy"), sim().callCount("IDDestroyTable"));
    EXPECT_EQ(made("NIFOpenCollection"), sim().callCount("NIFCloseCollection"));
    EXPECT_EQ(made("NSFNoteOpen"), sim().callCount("NSFNoteClose"));
    EXPECT_EQ(made("OSLockObject"), sim().callCount("OSUnlockObject"));
}

class Folders : public DocumentTest {
protected:
    void SetUp() override
    {
        DocumentTest::SetUp();
        SetJobQuitCallback(neverQuit);
        inbox = addDesign("Inbox", "F");
        projects = addDesign("Projects", "F");
        alpha = addDesign("Projects\\Alpha", "F");
        old = addDesign("Projects\\Alpha\\Old", "F");
        lookalike = addDesign("Projectsville", "F");
        for (const char* subject : {"m1", "m2", "m3", "m4", "m5", "m6"})
            memos.push_back(saveNote(subject));
        file(inbox, {memos[0]});
        file(projects, {memos[1]});
        file(alpha, {memos[2]});
        file(old, {memos[3]});
        file(lookalike, {memos[4]});
        table = tableOf(memos);
        ASSERT_FALSE(database.Open().IsErrorSet());
        captureLog();
        sim().traceClear();
    }
    void TearDown() override
    {
        if (table != NULLHANDLE)
            HY_IDDestroyTable(table);
        SetJobQuitCallback(nullptr);
        database.Close();
        DocumentTest::TearDown();
    }
    // A view or folder design note with an empty column list.
    NOTEID addDesign(const std::string& title, const std::string& flags)
    {
        const char format[10] = {1, 0}; // version 1, table style, no columns
        NOTEHANDLE note = NULLHANDLE;
        EXPECT_EQ(HY_NSFNoteCreate(db, &note), NOERROR);
        WORD viewClass = NOTE_CLASS_VIEW;
        HY_NSFNoteSetInfo(note, _NOTE_CLASS, &viewClass);
        if (!title.empty()) {
            EXPECT_EQ(HY_NSFItemSetText(note, "$TITLE", title.data(), static_cast<WORD>(title.size())), NOERROR);
        }
        EXPECT_EQ(HY_NSFItemSetText(note, "$Flags", flags.data(), static_cast<WORD>(flags.size())), NOERROR);
        EXPECT_EQ(HY_NSFItemAppend(note, ITEM_SUMMARY, "$ViewFormat", 11, TYPE_VIEW_FORMAT, format, sizeof format),
                  NOERROR);
        EXPECT_EQ(HY_NSFNoteUpdate(note, 0), NOERROR);
        NOTEID id = 0;
        HY_NSFNoteGetInfo(note, _NOTE_ID, &id);
        HY_NSFNoteClose(note);
        return id;
    }
    DHANDLE tableOf(const std::vector<NOTEID>& ids)
    {
        DHANDLE made = NULLHANDLE;
        EXPECT_EQ(HY_IDCreateTable(0, &made), NOERROR);
        for (NOTEID id : ids)
            HY_IDInsert(made, id, nullptr);
        return made;
    }
    void file(NOTEID folder, const std::vector<NOTEID>& ids)
    {
        DHANDLE members = tableOf(ids);
        ASSERT_EQ(HY_FolderDocAdd(db, NULLHANDLE, folder, members, 0), NOERROR);
        HY_IDDestroyTable(members);
    }
    std::vector<NOTEID> idsOf(DHANDLE ids)
    {
        std::vector<NOTEID> out;
        DWORD id = 0;
        for (BOOL more = HY_IDScan(ids, TRUE, &id); more; more = HY_IDScan(ids, FALSE, &id))
            out.push_back(id);
        return out;
    }
    // Filters the table of all memos; returns what is left of it.
    std::vector<NOTEID> filter(std::string& folders, unsigned long mode, HyLNError& error)
    {
        error = database.FilterDocumentsOfFolders(folders, table, mode);
        return idsOf(table);
    }
    std::vector<NOTEID> memosAt(std::initializer_list<size_t> positions)
    {
        std::vector<NOTEID> ids;
        for (size_t at : positions)
            ids.push_back(memos[at]);
        return ids;
    }

    HyLNDatabase database{"jdoe.nsf", "CN=HySrv01/O=HyOrg"};
    NOTEID inbox = 0, projects = 0, alpha = 0, old = 0, lookalike = 0;
    std::vector<NOTEID> memos;
    unsigned int table = NULLHANDLE;
};

} // namespace

TEST_F(Folders, SubfoldersJoinTheListOncePerNameTheyAreBelow)
{
    std::string folders = "Inbox;Projects";
    ASSERT_FALSE(database.AddSubFolders(folders).IsErrorSet());
    EXPECT_EQ(folders, "Inbox;Projects;Projects\\Alpha;Projects\\Alpha\\Old");

    folders = "Projects;Projects\\Alpha";
    ASSERT_FALSE(database.AddSubFolders(folders).IsErrorSet());
    EXPECT_EQ(folders, "Projects;Projects\\Alpha;Projects\\Alpha;Projects\\Alpha\\Old;Projects\\Alpha\\Old");

    folders = "Proj;Inbox";
    ASSERT_FALSE(database.AddSubFolders(folders).IsErrorSet());
    EXPECT_EQ(folders, "Proj;Inbox");
    EXPECT_TRUE(logTexts().empty());
    expectEverythingReleased();
}

TEST_F(Folders, AnUntitledViewIsReportedInDetailOnly)
{
    addDesign("", "");
    captureLog();
    std::string folders = "Inbox";
    ASSERT_FALSE(database.AddSubFolders(folders).IsErrorSet());
    ASSERT_EQ(capturedLog().size(), 1u);
    EXPECT_EQ(capturedLog()[0].function, "AddSubFolders");
    EXPECT_EQ(capturedLog()[0].level, 3);
    EXPECT_EQ(capturedLog()[0].text, "Warning: found a view/folder without a title.");
}

TEST_F(Folders, IncludingKeepsTheNotesOfTheFoldersAndTheirSubfolders)
{
    std::string folders = "Inbox;Projects";
    HyLNError error;
    Output output = captureOutput([&] { EXPECT_EQ(filter(folders, 1, error), memosAt({0, 1, 2, 3})); });
    EXPECT_FALSE(error.IsErrorSet());
    EXPECT_EQ(output.out, "\n FolderName in Interface = Inbox\n ");
    // The host's string keeps its subfolders, cut where the separators were.
    EXPECT_EQ(folders, std::string("Inbox\0Projects\0Projects\\Alpha\0Projects\\Alpha\\Old", 48));
    EXPECT_EQ(logTexts(), std::vector<std::string>{kWithoutMode});
    expectEverythingReleased();
}

TEST_F(Folders, ExcludingDropsThemAndOtherModesDropNothing)
{
    std::string folders = "Projects";
    HyLNError error;
    captureOutput([&] { EXPECT_EQ(filter(folders, 2, error), memosAt({0, 4, 5})); });
    EXPECT_FALSE(error.IsErrorSet());
    EXPECT_TRUE(logTexts().empty());

    for (NOTEID id : memos)
        HY_IDInsert(table, id, nullptr);
    folders = "Projects";
    captureOutput([&] { EXPECT_EQ(filter(folders, 3, error), memos); });
    EXPECT_FALSE(error.IsErrorSet());
    EXPECT_EQ(logTexts(), std::vector<std::string>{kWithoutMode});
    expectEverythingReleased();
}

TEST_F(Folders, AnUnknownFolderLeavesNothingToKeepAndItsErrorInTheStatus)
{
    std::string folders = "Nowhere;Inbox";
    HyLNError error;
    captureOutput([&] { EXPECT_EQ(filter(folders, 1, error), memosAt({0})); });
    ASSERT_TRUE(error.IsErrorSet());
    STATUS notFound = error.GetErrorCode();
    EXPECT_EQ(logTexts(),
              (std::vector<std::string>{"Warning: unable to find a folder/view. NIFFindView(...) returned: [" +
                                            std::to_string(notFound) + "]. Resulting error string: [" +
                                            messageOf(notFound) + "].",
                                        kWithoutMode}));
}

TEST_F(Folders, AHostThatAsksToQuitGetsItsTableBack)
{
    SetJobQuitCallback(nullptr); // without a callback the job counts as stopped
    std::string folders = "Inbox";
    HyLNError error;
    captureOutput([&] { EXPECT_EQ(filter(folders, 1, error), memos); });
    EXPECT_FALSE(error.IsErrorSet());
    EXPECT_EQ(sim().callCount("IDInsert"), 0u);
    EXPECT_EQ(sim().callCount("IDDelete"), 0u);
}

TEST_F(Folders, ArgumentsAreCheckedBeforeAnyCall)
{
    HyLNDatabase closed("jdoe.nsf", "");
    std::string folders = "Inbox";
    unsigned int some = 1;
    EXPECT_EQ(closed.FilterDocumentsOfFolders(folders, some, 1).GetErrorCode(), ERR_NULL_DBHANDLE);
    EXPECT_EQ(closed.AddSubFolders(folders).GetErrorCode(), ERR_NULL_DBHANDLE);
    unsigned int none = NULLHANDLE;
    std::string empty;
    for (HyLNError error : {database.FilterDocumentsOfFolders(folders, none, 1),
                            database.FilterDocumentsOfFolders(empty, some, 1), database.AddSubFolders(empty)})
        EXPECT_EQ(error.GetMessage(), "Invalid parameters passed in.");
    EXPECT_EQ(sim().callCount("IDCreateTable") + sim().callCount("NIFOpenCollection"), 0u);
}

namespace {

// One runtime call failing during an excluding run over "Inbox": the lines it leaves
// (%d the code, %s its text, {id} the note involved), whether the run still got as far
// as removing the folder's note, and the status it ends with.
struct FilterFault {
    const char* api;
    unsigned int nth;
    std::vector<std::string> lines;
    bool filtered;
    STATUS code;
};

const char* const kNoSubfolders = "Error: unable to find subfolders for folder filtering.";

std::vector<FilterFault> filterFaults()
{
    return {
        {"IDCreateTable", 1,
         {"Error: unable to create a temporary document table for folder/view filtering. IDCreateTable(...) "
          "returned: [%d]. Resulting error string: [%s]."},
         false, kFault},
        {"NIFOpenCollection", 1,
         {"Error: unable to open collection to get subfolders. NIFOpenCollection(...) returned: [%d]. Resulting "
          "error string: [%s].",
          kNoSubfolders},
         true, kFault},
        {"NIFReadEntries", 1,
         {"Error: unable to read entries while getting subfolders. NIFReadEntries(...) returned: [%d]. Resulting "
          "error string: [%s].",
          kNoSubfolders},
         true, kFault},
        {"OSLockObject", 1, {"Error: OSLockObject(...) returned a NULL buffer while getting subfolders."}, true, 0},
        {"NSFNoteOpen", 1,
         {"Error: unable to open note: [{id}] while getting subfolders. NSFNoteOpen(...) returned: [%d]. Resulting "
          "error string is: [%s].",
          kNoSubfolders},
         true, kFault},
        {"NIFFindDesignNoteExt", 1,
         {"Warning: unable to find a folder/view. NIFFindView(...) returned: [%d]. Resulting error string: [%s]."},
         false, kFault},
        {"NIFOpenCollection", 2,
         {"Error: unable to open collection for folder/view: [Inbox]. NIFOpenCollection(...) returned: [%d]. "
          "Resulting error string: [%s]."},
         false, kFault},
        {"NIFReadEntries", 2,
         {"Error: unable to read entries in view/folder: [Inbox]. NIFReadEntries(...) returned: [%d]. Resulting "
          "error string: [%s]."},
         false, kFault},
        {"OSLockObject", 2, {"Error: OSLockObject(...) returned a NULL buffer during folder filetering."}, false, 0},
        {"IDInsert", 1,
         {"Error: unable to insert note ID into document table. NIFReadEntries(...) returned: [%d]. Resulting error "
          "string: [%s]."},
         false, kFault},
        // The design collection is closed by the library alone: its failure is nobody's concern.
        {"NIFCloseCollection", 1, {}, true, 0},
        {"NIFCloseCollection", 2,
         {"Error: unable to close collection during folder/view filtering. NIFCloseCollection(...) returned: [%d]. "
          "Resulting error string: [%s]."},
         false, kFault},
        {"IDTableCopy", 1,
         {"Error: unable to create a temporary working copy of the note table. IDTableCopy(...) returned: [%d]. "
          "Resulting error string: [%s]."},
         false, kFault},
        {"IDDelete", 1,
         {"Error: unable to delete note: [{id}] from ID table during folder filtering. IDDelete(...) returned: [%d]. "
          "Resulting error string is: [%s]."},
         false, kFault},
    };
}

std::string expanded(std::string line, STATUS code, NOTEID id)
{
    auto replace = [&line](const std::string& what, const std::string& with) {
        size_t at = line.find(what);
        if (at != std::string::npos)
            line.replace(at, what.size(), with);
    };
    replace("{id}", std::to_string(id));
    replace("%d", std::to_string(code));
    replace("%s", messageOf(code));
    return line;
}

void PrintTo(const FilterFault& fault, std::ostream* out)
{
    *out << fault.api << " failing at call " << fault.nth;
}

class FilterFaults : public Folders, public ::testing::WithParamInterface<FilterFault> {};

} // namespace

TEST_P(FilterFaults, EachFailureHasItsLineAndReleasesWhatWasMade)
{
    const FilterFault& fault = GetParam();
    NOTEID involved = std::string(fault.api) == "NSFNoteOpen" ? inbox : memos[0];
    std::string folders = "Inbox";
    ASSERT_EQ(sim().setFault(fault.api, kFault, fault.nth, kReturn), 0);
    HyLNError error;
    captureOutput([&] {
        std::vector<NOTEID> left = filter(folders, 2, error);
        EXPECT_EQ(left.size(), fault.filtered ? memos.size() - 1 : memos.size());
    });
    std::vector<std::string> expected;
    for (const std::string& line : fault.lines)
        expected.push_back(expanded(line, kFault, involved));
    EXPECT_EQ(logTexts(), expected);
    EXPECT_EQ(error.GetErrorCode(), fault.code);
    for (const LogLine& line : capturedLog())
        EXPECT_EQ(line.file, kDatabaseSource);
    expectEverythingReleased(fault.api);
}

INSTANTIATE_TEST_SUITE_P(EveryCall, FilterFaults, ::testing::ValuesIn(filterFaults()),
                         [](const ::testing::TestParamInfo<FilterFault>& info) {
                             return std::string(info.param.api) + std::to_string(info.param.nth);
                         });

namespace {

struct FolderRecord {
    UNID folder;
    std::vector<UNID> notes;
};

std::string timeTextOf(const TIMEDATE& time)
{
    std::string text;
    HyLNUtilities::GetTimeString(time, text);
    return text;
}

class Restore : public Folders {
protected:
    void SetUp() override
    {
        Folders::SetUp();
        entrySize = HY_ODSLength(_UNIVERSALNOTEID);
        ASSERT_GE(entrySize, sizeof(UNID));
        sim().traceClear();
    }
    UNID unidOf(NOTEID id)
    {
        OID oid{};
        EXPECT_EQ(HY_NSFDbGetNoteInfo(db, id, &oid, nullptr, nullptr), NOERROR);
        UNID unid;
        std::memcpy(&unid, &oid, sizeof unid);
        return unid;
    }
    // The host's folder-information buffer: per record the folder's identity (its UNID,
    // then 12 bytes nobody reads), the entry count, and entries of the runtime's stride.
    std::vector<char> bufferOf(const std::vector<FolderRecord>& records)
    {
        std::vector<char> buffer;
        for (const FolderRecord& record : records) {
            size_t at = buffer.size();
            buffer.resize(at + 32 + record.notes.size() * entrySize, '\x5A');
            std::memcpy(&buffer[at], &record.folder, sizeof(UNID));
            DWORD count = static_cast<DWORD>(record.notes.size());
            std::memcpy(&buffer[at + 28], &count, sizeof count);
            for (size_t i = 0; i < record.notes.size(); ++i)
                std::memcpy(&buffer[at + 32 + i * entrySize], &record.notes[i], sizeof(UNID));
        }
        return buffer;
    }
    HyLNError restore(std::vector<char> buffer)
    {
        captureLog();
        return database.PutNotesInFolders(buffer.data(), static_cast<unsigned int>(buffer.size()), nullptr);
    }
    std::vector<NOTEID> membersOf(NOTEID folder)
    {
        HCOLLECTION collection = 0;
        EXPECT_EQ(HY_NIFOpenCollection(db, db, folder, 0, NULLHANDLE, &collection, nullptr, nullptr, nullptr, nullptr),
                  NOERROR);
        COLLECTIONPOSITION position{};
        DHANDLE buffer = NULLHANDLE;
        DWORD count = 0;
        WORD signals = 0;
        EXPECT_EQ(HY_NIFReadEntries(collection, &position, NAVIGATE_NEXT, 1, NAVIGATE_NEXT, 0xFFFF, READ_MASK_NOTEID,
                                    &buffer, nullptr, nullptr, &count, &signals),
                  NOERROR);
        std::vector<NOTEID> ids(count);
        if (buffer != NULLHANDLE) {
            std::memcpy(ids.data(), HY_OSLockObject(buffer), count * sizeof(NOTEID));
            HY_OSUnlockObject(buffer);
            HY_OSMemFree(buffer);
        }
        HY_NIFCloseCollection(collection);
        return ids;
    }
    std::string progressLine(const UNID& folder, size_t count, size_t offset, size_t length)
    {
        char text[256];
        std::snprintf(text, sizeof text,
                      "Processing folder (UNID %08x%08x:%08x%08x) info with %d items (size=%d, at offset %d/%d).",
                      folder.File.Innards[1], folder.File.Innards[0], folder.Note.Innards[1], folder.Note.Innards[0],
                      static_cast<int>(count), static_cast<int>(count * entrySize + 4), static_cast<int>(offset),
                      static_cast<int>(length));
        return text;
    }
    // A UNID no note of the database has.
    UNID strangerUnid()
    {
        UNID unid = unidOf(memos[0]);
        unid.File.Innards[0] ^= 0x5A5A5A5A;
        return unid;
    }

    DWORD entrySize = 0;
};

} // namespace

TEST_F(Restore, NotesReturnToTheirFoldersRecordByRecord)
{
    const UNID projectsUnid = unidOf(projects);
    std::vector<char> buffer = bufferOf({{projectsUnid, {unidOf(memos[4]), unidOf(memos[5])}},
                                         {unidOf(inbox), {}},
                                         {projectsUnid, {unidOf(memos[0])}}});
    const size_t third = 32 + 2 * entrySize + 32;
    ASSERT_FALSE(restore(buffer).IsErrorSet());
    EXPECT_EQ(membersOf(projects), memosAt({0, 1, 4, 5}));
    EXPECT_EQ(membersOf(inbox), memosAt({0}));
    EXPECT_EQ(sim().callCount("FolderDocAdd"), 2u) << "an empty record adds nothing";
    ASSERT_EQ(capturedLog().size(), 2u);
    EXPECT_EQ(capturedLog()[0].level, 2);
    EXPECT_EQ(capturedLog()[0].function, "PutNotesInFolders");
    EXPECT_EQ(capturedLog()[0].text, progressLine(projectsUnid, 2, 0, buffer.size()));
    EXPECT_EQ(capturedLog()[1].text, progressLine(projectsUnid, 1, third, buffer.size()));
    EXPECT_EQ(sim().callCount("IDCreateTable"), sim().callCount("IDDestroyTable"));
}

TEST_F(Restore, MailDeletedSinceTheBackupIsSkippedWithoutALineButStaysInTheStatus)
{
    HyLNError error = restore(bufferOf({{unidOf(alpha), {strangerUnid(), unidOf(memos[5])}}}));
    EXPECT_EQ(error.GetErrorCode(), ERR_NOT_FOUND);
    EXPECT_TRUE(error.IsErrorSet());
    EXPECT_EQ(capturedLog().size(), 1u) << "the progress line alone";
    EXPECT_EQ(membersOf(alpha), memosAt({2, 5}));
}

TEST_F(Restore, AnUnknownFolderIsReportedAndItsNotesGoNowhere)
{
    const UNID stranger = strangerUnid();
    HyLNError error = restore(bufferOf({{stranger, {unidOf(memos[5])}}, {unidOf(old), {unidOf(memos[4])}}}));
    EXPECT_EQ(error.GetErrorCode(), ERR_NOT_FOUND);
    char line[512];
    std::snprintf(line, sizeof line,
                  "Could not get noteID from UNID DBID=%8x:%8x Creation Time=%s for folder reconstruction - %s",
                  stranger.File.Innards[0], stranger.File.Innards[1], timeTextOf(stranger.Note).c_str(),
                  messageOf(ERR_NOT_FOUND).c_str());
    ASSERT_GE(capturedLog().size(), 1u);
    EXPECT_EQ(capturedLog()[0].text, line);
    EXPECT_EQ(capturedLog()[0].level, 0);
    EXPECT_EQ(sim().callCount("NSFDbGetNoteInfoByUNID"), 4u) << "the entries are still looked up";
    EXPECT_EQ(sim().callCount("FolderDocAdd"), 1u);
    EXPECT_EQ(membersOf(old), memosAt({3, 4}));
}

TEST_F(Restore, AWalkEndsWhereTheBufferEnds)
{
    std::vector<char> full = bufferOf({{unidOf(projects), {unidOf(memos[4]), unidOf(memos[5]), unidOf(memos[0])}}});
    // The record announces three entries; the buffer holds two and half of the third,
    // in a heap block of exactly that size.
    full.resize(32 + 2 * entrySize + entrySize / 2);
    ASSERT_FALSE(restore(full).IsErrorSet());
    EXPECT_EQ(membersOf(projects), memosAt({1, 4, 5}));

    // A header that does not fit is not read at all.
    std::vector<char> cut = bufferOf({{unidOf(inbox), {unidOf(memos[5])}}});
    cut.resize(cut.size() + 20, '\x5A');
    sim().traceClear();
    ASSERT_FALSE(restore(cut).IsErrorSet());
    EXPECT_EQ(sim().callCount("NSFDbGetNoteInfoByUNID"), 2u);
    EXPECT_EQ(membersOf(inbox), memosAt({0, 5}));
}

TEST_F(Restore, NothingToDoWithoutADatabaseOrABuffer)
{
    HyLNDatabase closed("jdoe.nsf", "");
    std::vector<char> buffer = bufferOf({{unidOf(inbox), {unidOf(memos[5])}}});
    sim().traceClear();
    EXPECT_EQ(closed.PutNotesInFolders(buffer.data(), static_cast<unsigned int>(buffer.size()), nullptr).GetErrorCode(),
              ERR_NULL_DBHANDLE);
    EXPECT_FALSE(database.PutNotesInFolders(buffer.data(), 0, nullptr).IsErrorSet());
    EXPECT_EQ(sim().callCount("NSFDbGetNoteInfoByUNID"), 0u);

    // A runtime that knows no entry length gives entries that cannot hold a UNID.
    sim().setFault("ODSLength", 0, 0, kReturn);
    EXPECT_FALSE(restore(buffer).IsErrorSet());
    EXPECT_EQ(sim().callCount("NSFDbGetNoteInfoByUNID"), 1u) << "the folder alone";
    EXPECT_EQ(membersOf(inbox), memosAt({0}));
}

TEST_F(Restore, FailuresThatEndTheRunAndOnesThatDoNot)
{
    std::vector<char> buffer = bufferOf({{unidOf(inbox), {unidOf(memos[4]), unidOf(memos[5])}},
                                         {unidOf(projects), {unidOf(memos[4])}}});
    auto lineWithout = [&](const std::string& progress) {
        std::vector<std::string> texts = logTexts();
        texts.erase(std::remove_if(texts.begin(), texts.end(),
                                   [&](const std::string& text) { return text.rfind(progress, 0) == 0; }),
                    texts.end());
        return texts;
    };
    const std::string fault = messageOf(kFault);

    sim().setFault("IDCreateTable", kFault, 1, kReturn);
    EXPECT_EQ(restore(buffer).GetErrorCode(), kFault);
    EXPECT_EQ(lineWithout("Processing"),
              std::vector<std::string>{"Could not allocate IDTable for folder reconstruction - " + fault});
    EXPECT_EQ(sim().callCount("FolderDocAdd"), 0u) << "the run ends at the first folder";

    sim().traceClear();
    sim().setFault("IDInsert", kFault, 2, kReturn);
    EXPECT_EQ(restore(buffer).GetErrorCode(), kFault);
    EXPECT_EQ(lineWithout("Processing"),
              std::vector<std::string>{"Could not insert noteID " + std::to_string(memos[5]) +
                                       " into IDTable for folder reconstruction - " + fault + "."});
    EXPECT_EQ(sim().callCount("FolderDocAdd"), 0u);
    EXPECT_EQ(sim().callCount("IDCreateTable"), sim().callCount("IDDestroyTable"));

    sim().traceClear();
    sim().setFault("NSFDbGetNoteInfoByUNID", kFault, 2, kReturn);
    sim().setFault("FolderDocAdd", kFault, 1, kReturn);
    EXPECT_EQ(restore(buffer).GetErrorCode(), kFault);
    const UNID lost = unidOf(memos[4]);
    char lookup[512];
    std::snprintf(lookup, sizeof lookup,
                  "Could not get noteID from UNID DBID=%8x:%8x Creation Time=%s to insert into folder noteID %d - %s",
                  lost.File.Innards[0], lost.File.Innards[1], timeTextOf(lost.Note).c_str(), static_cast<int>(inbox),
                  fault.c_str());
    EXPECT_EQ(lineWithout("Processing"),
              (std::vector<std::string>{lookup, "Could not add IDTable to folder note " + std::to_string(inbox) +
                                                    " - " + fault}));
    EXPECT_EQ(sim().callCount("FolderDocAdd"), 2u) << "the next folder is still restored";
    EXPECT_EQ(membersOf(projects), memosAt({1, 4}));
}
