// HyLNView: finding and opening the view note, item reads, collections and the column
// titles read from $ViewFormat (written through the API, and real ones imported as DXL).
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <sstream>
#include <string>
#include <tuple>
#include <vector>

#include "HYLNTool_Database.h"
#include "HySimControl.h"
#include "support/test_support.h"
#include "support/view_format.h"

using namespace hyln_test;

namespace {

const char* const kSource = "HYLNTools/HYLNTool_Interface/HYLNTool_Database.cpp";
const char kSep = 0x12;

std::string messageOf(STATUS status) { return HyLNUtilities::GetNotesErrorMsg(status); }

// Every captured line, checked byte for byte with its function, level and file.
void expectLines(const std::vector<std::tuple<std::string, int, std::string>>& expected)
{
    ASSERT_EQ(capturedLog().size(), expected.size()) << ::testing::PrintToString(logTexts());
    for (size_t i = 0; i < expected.size(); ++i) {
        const LogLine& line = capturedLog()[i];
        EXPECT_EQ(line.function, std::get<0>(expected[i]));
        EXPECT_EQ(line.level, std::get<1>(expected[i]));
        EXPECT_EQ(line.file, kSource);
        EXPECT_EQ(line.text, std::get<2>(expected[i]));
    }
}

std::string titlesOf(std::initializer_list<const char*> titles)
{
    std::string out;
    for (const char* title : titles)
        out += kSep + std::string(title);
    return out;
}

class View : public RuntimeTest {
protected:
    void SetUp() override
    {
        RuntimeTest::SetUp();
        ASSERT_FALSE(db.Create().IsErrorSet());
        ASSERT_FALSE(db.Open().IsErrorSet());
        captureLog();
        sim().traceClear();
    }

    // A view note holding one item of the given type; returns its note ID.
    NOTEID addViewNote(const std::string& value, WORD type = TYPE_VIEW_FORMAT, const char* item = "$ViewFormat")
    {
        NOTEHANDLE note = NULLHANDLE;
        EXPECT_EQ(HY_NSFNoteCreate(db.GetHandle(), &note), NOERROR);
        WORD viewClass = NOTE_CLASS_VIEW;
        HY_NSFNoteSetInfo(note, _NOTE_CLASS, &viewClass);
        EXPECT_EQ(HY_NSFItemAppend(note, ITEM_SUMMARY, item, static_cast<WORD>(std::strlen(item)), type, value.data(),
                                   static_cast<DWORD>(value.size())),
                  NOERROR);
        EXPECT_EQ(HY_NSFNoteUpdate(note, 0), NOERROR);
        NOTEID id = 0;
        HY_NSFNoteGetInfo(note, _NOTE_ID, &id);
        HY_NSFNoteClose(note);
        return id;
    }

    HyLNDatabase db{"views.nsf", "CN=HySrv01/O=HyOrg"};
};

} // namespace

// ---- Finding the view note ----

TEST_F(View, FindIDRefusesMissingNamesAndTheNoViewMarker)
{
    HyLNDatabase closed("views.nsf", "");
    unsigned int id = 7;
    EXPECT_EQ(HyLNView(db, "").FindID(id).GetMessage(), "Invalid view name or database handle.");
    EXPECT_EQ(HyLNView(closed, "Inbox").FindID(id).GetMessage(), "Invalid view name or database handle.");
    EXPECT_EQ(id, 7u);

    HyLNView none(db, "No View Selected");
    HyLNError error = none.FindID(id);
    EXPECT_EQ(error.GetMessage(), "Default view is NO VIEW SELECTED");
    EXPECT_EQ(error.GetErrorCode(), 0xFFFF);
    EXPECT_EQ(id, 0xFFFFFFFFu);
    EXPECT_EQ(sim().callCount("NIFFindDesignNoteExt"), 0u);
    // Only the two temporaries' destructors have logged, closing notes never opened.
    EXPECT_EQ(logTexts(), std::vector<std::string>(2, "Unable to close view"));
}

TEST_F(View, FindIDSearchesTheAliasBehindTheLastBar)
{
    sim().setFault("NIFFindDesignNoteExt", ERR_NOT_FOUND, 0, HYSIM_FAULT_RETURN);
    const std::pair<const char*, const char*> cases[] = {
        {"Inbox|($Inbox)", "($Inbox)"}, {"a|b|  c", "c"}, {"Plain name", "Plain name"}};
    for (const auto& names : cases) {
        captureLog();
        HyLNView view(db, names.first);
        unsigned int id = 0;
        HyLNError error = view.FindID(id);
        EXPECT_EQ(error.GetErrorCode(), ERR_NOT_FOUND);
        EXPECT_EQ(id, 0xFFFFFFFFu);
        expectLines({{"FindID", 3, "Locating default view .."},
                     {"FindID", 0, formatted("Could not find view %s in database views.nsf", names.second)}});
    }

    // An untranslatable name is searched as it is.
    sim().setFault("OSTranslate", 0, 0, HYSIM_FAULT_RETURN);
    captureLog();
    HyLNView view(db, "Inbox|($Inbox)");
    unsigned int id = 0;
    view.FindID(id);
    expectLines({{"FindID", 0, "OSTranslate failed on default view name: Inbox|($Inbox)"},
                 {"FindID", 3, "Locating default view .."},
                 {"FindID", 0, "Could not find view ($Inbox) in database views.nsf"}});
}

// ---- The view note and its items ----

TEST_F(View, OpenFailuresAndTheExceptionGuard)
{
    NOTEID id = addViewNote(ViewFormatBuilder().build());
    HyLNView view(db, id);
    sim().setFault("NSFNoteOpen", ERR_NOTE_DELETED, 1, HYSIM_FAULT_RETURN);
    HyLNError error = view.Open(0);
    EXPECT_EQ(error.GetErrorCode(), ERR_NOTE_DELETED);
    expectLines({{"Open", 0,
                  formatted("Error: unable to open view: [%08x]. NSFNoteOpen(...) returned: %d - %s", id,
                            ERR_NOTE_DELETED, messageOf(ERR_NOTE_DELETED).c_str())}});

    captureLog();
    sim().setFault("NSFNoteOpen", 0, 1, HYSIM_FAULT_THROW);
    EXPECT_EQ(view.Open(0).GetErrorCode(), 0x0227);
    expectLines({{"Open", 0,
                  "Error: caught an exception of unknown type thrown by Domino API function: [NSFNoteOpen(...)]."}});

    captureLog();
    ASSERT_FALSE(view.Open(OPEN_SUMMARY).IsErrorSet());
    NOTEHANDLE opened = view.noteHandle;
    sim().setFault("NSFNoteClose", ERR_INVALID_NOTE, 1, HYSIM_FAULT_RETURN);
    EXPECT_EQ(view.Close().GetErrorCode(), ERR_INVALID_NOTE);
    expectLines({{"Close", 0, "Unable to close view"}});
    EXPECT_FALSE(view.Close().IsErrorSet());
    EXPECT_EQ(view.noteHandle, opened); // never reset
}

TEST_F(View, DestructorClosesEvenANoteNeverOpened)
{
    {
        HyLNView view(db, 0x20u);
    }
    EXPECT_EQ(sim().callCount("NSFNoteClose"), 1u);
    expectLines({{"Close", 0, "Unable to close view"}});
}

TEST_F(View, GetItemInfoLeavesOutTheNamesLastCharacter)
{
    std::string value = ViewFormatBuilder().column({"Subject", "Subject"}).build();
    NOTEID id = addViewNote(value);
    HyLNView view(db, id);
    unsigned short type = 0;
    BLOCKID block{};
    unsigned int length = 0;
    EXPECT_EQ(view.GetItemInfo("$ViewFormatX", type, block, length).GetMessage(), "Invalid view handle.");
    EXPECT_EQ(sim().callCount("NSFItemInfo"), 0u);

    ASSERT_FALSE(view.Open(0).IsErrorSet());
    ASSERT_FALSE(view.GetItemInfo("$ViewFormatX", type, block, length).IsErrorSet());
    EXPECT_EQ(type, TYPE_VIEW_FORMAT);
    EXPECT_EQ(length, value.size() + 2);

    // "$ViewFormat" asks for "$ViewForma", which the note does not hold.
    captureLog();
    HyLNError error = view.GetItemInfo("$ViewFormat", type, block, length);
    EXPECT_EQ(error.GetErrorCode(), ERR_ITEM_NOT_FOUND);
    expectLines({{"GetItemInfo", 0,
                  formatted("Cannot get view format information for note 0x%x - %s", id,
                            messageOf(ERR_ITEM_NOT_FOUND).c_str())}});
}

// ---- Collections ----

TEST_F(View, OpenCollectionFailures)
{
    HCOLLECTION collection = 0;
    NOTEHANDLE viewNote = NULLHANDLE;
    HyLNView noNote(db, 0u);
    HyLNError error = noNote.OpenCollection(0, NULLHANDLE, &collection, &viewNote, nullptr, nullptr, nullptr);
    EXPECT_EQ(error.GetMessage(), "Invalid database handle or viewId.");
    EXPECT_EQ(sim().callCount("NIFOpenCollection"), 0u);
    expectLines({{"OpenCollection", -1, "Error: Invalid Database Handle"}});

    HyLNView view(db, 0x1234u);
    // The flag bits above the code do not hide a known code.
    const std::pair<STATUS, std::string> cases[] = {
        {ERR_NOTE_DELETED, "Error: Document has been deleted"},
        {0x4000 | ERR_ITEM_NOT_FOUND, "Error: Note item not found"},
        {ERR_NOT_FOUND, formatted("Error: Failed to Open view Collection for db views.nsf viewid 4660, "
                                  "NIFOpenCollection Returned... %d - %s",
                                  ERR_NOT_FOUND, messageOf(ERR_NOT_FOUND).c_str())}};
    for (const auto& failure : cases) {
        captureLog();
        sim().setFault("NIFOpenCollection", failure.first, 1, HYSIM_FAULT_RETURN);
        error = view.OpenCollection(0, NULLHANDLE, &collection, &viewNote, nullptr, nullptr, nullptr);
        EXPECT_EQ(error.GetErrorCode(), failure.first);
        expectLines({{"OpenCollection", -1, failure.second}});
    }
}

TEST_F(View, ReadAndCloseCollectionFailures)
{
    HyLNView view(db, "Inbox");
    COLLECTIONPOSITION position{};
    DHANDLE buffer = NULLHANDLE;
    WORD bufferLength = 0;
    DWORD skipped = 0, returned = 0;
    WORD signal = 0;
    HyLNError error = view.ReadColection(nullptr, &position, 0, 0, 1, 1, 1, &buffer, &bufferLength, &skipped,
                                         &returned, &signal);
    EXPECT_EQ(error.GetMessage(), "ReadColection() called with Invalid view colelction handle.");
    EXPECT_EQ(sim().callCount("NIFReadEntries"), 0u);
    expectLines({{"ReadColection", -1, "Invalid view colelction handle passed in"}});

    captureLog();
    HCOLLECTION collection = 9;
    sim().setFault("NIFReadEntries", ERR_NOACCESS, 1, HYSIM_FAULT_RETURN);
    error = view.ReadColection(&collection, &position, 0, 0, 1, 1, 1, &buffer, &bufferLength, &skipped, &returned,
                               &signal);
    EXPECT_EQ(error.GetErrorCode(), ERR_NOACCESS);
    expectLines({{"ReadColection", -1,
                  formatted("Cannot read entries in view [Inbox] error: %d - %s.", ERR_NOACCESS,
                            messageOf(ERR_NOACCESS).c_str())}});

    captureLog();
    sim().setFault("NIFCloseCollection", ERR_NOACCESS, 1, HYSIM_FAULT_RETURN);
    EXPECT_EQ(view.CloseCollection(collection).GetErrorCode(), ERR_NOACCESS);
    EXPECT_EQ(collection, 9);
    expectLines({{"CloseCollection", -1,
                  formatted("Error: Failed to close view collection. NIFCloseCollection(...) returned %d - %s",
                            ERR_NOACCESS, messageOf(ERR_NOACCESS).c_str())}});
}

// ---- Column titles ----

TEST_F(View, TitlesOfVisibleColumnsAndTheMapOfAll)
{
    NOTEID id = addViewNote(ViewFormatBuilder()
                                .column({"Subject", "Sub:ject", 0x0001, "@Text(Subject)"})
                                .column({"$Cat", "Category", 0x0002})
                                .column({"$Hide", "Hidden", 0x0008})
                                .column({"$Resp", "Responses", 0x0010})
                                .column({"$Icon", "Icon", 0x0040})
                                .column({"$ThreadsEmbed", "Threads"})
                                .column({"Subject", "Again", 0x0008})
                                .column({"$Empty", ""})
                                .column({"From", "From"})
                                .build());
    HyLNView view(db, id);
    std::string titles = "untouched";
    ASSERT_FALSE(view.GetCoulmnTitles(&titles).IsErrorSet());
    EXPECT_EQ(titles, titlesOf({"Sub ject", "", "From"}));
    EXPECT_EQ(view.columnTitles, titles);
    EXPECT_EQ(view.columnCount, 3u);
    std::map<std::string, unsigned short> expected = {{"Subject", 0x0001}, {"$Cat", 0x0002}, {"$Hide", 0x0008},
                                                      {"$Resp", 0x0010},   {"$Icon", 0x0040}, {"$ThreadsEmbed", 0},
                                                      {"$Empty", 0},       {"From", 0}};
    EXPECT_EQ(*view.columnIndex, expected);
    expectLines({{"GetCoulmnTitles", 3, "Getting view title info .."}});
    EXPECT_NE(view.noteHandle, NULLHANDLE); // left open
}

TEST_F(View, TitlesStopBefore200Bytes)
{
    ViewFormatBuilder format;
    for (int i = 0; i < 30; ++i)
        format.column({formatted("C%02d", i), formatted("Title %04d", i)});
    HyLNView view(db, addViewNote(format.build()));
    std::string titles;
    ASSERT_FALSE(view.GetCoulmnTitles(&titles).IsErrorSet());
    EXPECT_EQ(view.columnCount, 17u);
    EXPECT_EQ(titles.size(), 187u);
    EXPECT_EQ(view.columnIndex->size(), 17u);
    EXPECT_EQ(view.columnIndex->count("C16"), 1u);
    EXPECT_EQ(view.columnIndex->count("C17"), 0u);
}

TEST_F(View, LongNamesAndTitlesAreCutTo127Bytes)
{
    std::string name(130, 'n');
    std::string title(130, 't');
    HyLNView view(db, addViewNote(ViewFormatBuilder().column({name, title}).column({"Next", "Next"}).build()));
    std::string titles;
    ASSERT_FALSE(view.GetCoulmnTitles(&titles).IsErrorSet());
    EXPECT_EQ(titles, titlesOf({std::string(127, 't').c_str(), "Next"}));
    EXPECT_EQ(view.columnIndex->count(std::string(127, 'n')), 1u);
    EXPECT_EQ(view.columnIndex->count("Next"), 1u);
}

TEST_F(View, TitlesOfOtherFormatsAndFailures)
{
    // A version other than 1 leaves titles and count as they were, without an error.
    NOTEID newer = addViewNote(ViewFormatBuilder().version(2).column({"A", "A"}).build());
    HyLNView view(db, newer);
    view.columnTitles = "before";
    std::string titles = "before";
    EXPECT_FALSE(view.GetCoulmnTitles(&titles).IsErrorSet());
    EXPECT_EQ(titles, "before");
    EXPECT_EQ(view.columnTitles, "before");
    expectLines({{"GetCoulmnTitles", 3, "Getting view title info .."},
                 {"GetCoulmnTitles", 0,
                  formatted("View information format version for note %d is incompatible - 2", newer)}});

    // A calendar view reads no column.
    HyLNView calendar(db, addViewNote(ViewFormatBuilder().style(0x10).column({"A", "A"}).build()));
    ASSERT_FALSE(calendar.GetCoulmnTitles(&titles).IsErrorSet());
    EXPECT_EQ(titles, "");
    EXPECT_TRUE(calendar.columnIndex->empty());

    captureLog();
    NOTEID text = addViewNote("not a format", TYPE_TEXT);
    HyLNView wrongType(db, text);
    EXPECT_EQ(wrongType.GetCoulmnTitles(&titles).GetMessage(), "Not a View Type Format");
    expectLines({{"GetCoulmnTitles", 3, "Getting view title info .."},
                 {"GetCoulmnTitles", 0,
                  formatted("Cannot get view format information for note 0x%x - Not a View Type Format", text)}});

    captureLog();
    NOTEID other = addViewNote("x", TYPE_TEXT, "$Other");
    HyLNView missing(db, other);
    EXPECT_EQ(missing.GetCoulmnTitles(&titles).GetErrorCode(), ERR_ITEM_NOT_FOUND);
    expectLines({{"GetCoulmnTitles", 3, "Getting view title info .."},
                 {"GetCoulmnTitles", 0,
                  formatted("Cannot get view format information for note 0x%x - %s", other,
                            messageOf(ERR_ITEM_NOT_FOUND).c_str())}});

    captureLog();
    sim().setFault("NSFNoteOpen", ERR_NOTE_DELETED, 1, HYSIM_FAULT_RETURN);
    EXPECT_EQ(HyLNView(db, other).GetCoulmnTitles(&titles).GetErrorCode(), ERR_NOTE_DELETED);
    ASSERT_EQ(capturedLog().size(), 4u); // title info, the open's line, this line, the destructor's close
    EXPECT_EQ(capturedLog()[2].text, formatted("Cannot open view note 0x%x - %s", other,
                                               messageOf(ERR_NOTE_DELETED).c_str()));
}

TEST_F(View, TitlesStopAtTheEndOfATruncatedValue)
{
    std::string value = ViewFormatBuilder().announcedColumns(3).column({"Subject", "Subject"}).column({"B", "B"}).build();
    // Two descriptors of three: the packed texts are where the third descriptor should be.
    HyLNView view(db, addViewNote(value));
    std::string titles;
    ASSERT_FALSE(view.GetCoulmnTitles(&titles).IsErrorSet());
    EXPECT_EQ(titles, "");
    EXPECT_TRUE(view.columnIndex->empty());

    // The title runs past the value's end.
    std::string cut = ViewFormatBuilder().column({"A", "A"}).column({"Subject", "Subject"}).build();
    cut.resize(cut.size() - 3);
    HyLNView shortened(db, addViewNote(cut));
    ASSERT_FALSE(shortened.GetCoulmnTitles(&titles).IsErrorSet());
    EXPECT_EQ(titles, titlesOf({"A"}));
    EXPECT_EQ(shortened.columnIndex->size(), 1u);

    HyLNView headerOnly(db, addViewNote(std::string("\x01", 1)));
    ASSERT_FALSE(headerOnly.GetCoulmnTitles(&titles).IsErrorSet());
    EXPECT_EQ(titles, "");
}

TEST_F(View, UntranslatableTitleIsKept)
{
    HyLNView view(db, addViewNote(ViewFormatBuilder().column({"Subject", "Subject"}).build()));
    sim().setFault("OSTranslate", 0, 0, HYSIM_FAULT_RETURN);
    std::string titles;
    ASSERT_FALSE(view.GetCoulmnTitles(&titles).IsErrorSet());
    EXPECT_EQ(titles, titlesOf({"Subject"}));
    expectLines({{"GetCoulmnTitles", 3, "Getting view title info .."},
                 {"GetCoulmnTitles", 0, "OSTranslate failed on view title column: Subject"}});
}

// ---- Success paths over the runtime's collections ----

namespace {

const WORD kNavigateNext = 1;
const DWORD kReadMaskNoteId = 0x00000001;

} // namespace

TEST_F(View, FindsByAliasThenReadsTheCollection)
{
    NOTEHANDLE note = NULLHANDLE;
    ASSERT_EQ(HY_NSFNoteCreate(db.GetHandle(), &note), NOERROR);
    WORD viewClass = NOTE_CLASS_VIEW;
    HY_NSFNoteSetInfo(note, _NOTE_CLASS, &viewClass);
    ASSERT_EQ(HY_NSFItemSetText(note, "$TITLE", "Inbox|($Inbox)", MAXWORD), NOERROR);
    std::string format = ViewFormatBuilder().column({"Subject", "Subject"}).build();
    ASSERT_EQ(HY_NSFItemAppend(note, ITEM_SUMMARY, "$ViewFormat", 11, TYPE_VIEW_FORMAT, format.data(),
                               static_cast<DWORD>(format.size())),
              NOERROR);
    ASSERT_EQ(HY_NSFNoteUpdate(note, 0), NOERROR);
    NOTEID viewId = 0;
    HY_NSFNoteGetInfo(note, _NOTE_ID, &viewId);
    HY_NSFNoteClose(note);
    std::vector<NOTEID> documents;
    for (const char* subject : {"one", "two"}) {
        ASSERT_EQ(HY_NSFNoteCreate(db.GetHandle(), &note), NOERROR);
        ASSERT_EQ(HY_NSFItemSetText(note, "Subject", subject, MAXWORD), NOERROR);
        ASSERT_EQ(HY_NSFNoteUpdate(note, 0), NOERROR);
        NOTEID id = 0;
        HY_NSFNoteGetInfo(note, _NOTE_ID, &id);
        documents.push_back(id);
        HY_NSFNoteClose(note);
    }

    captureLog();
    HyLNView view(db, "Inbox|($Inbox)");
    unsigned int found = 0;
    ASSERT_FALSE(view.FindID(found).IsErrorSet());
    EXPECT_EQ(found, viewId);
    EXPECT_EQ(view.noteId, viewId);
    expectLines({{"FindID", 3, "Locating default view .."}});

    HCOLLECTION collection = 0;
    UNIVERSALNOTEID unid{};
    ASSERT_FALSE(view.OpenCollection(0, NULLHANDLE, &collection, nullptr, &unid, nullptr, nullptr).IsErrorSet());
    COLLECTIONPOSITION position{};
    DHANDLE buffer = NULLHANDLE;
    WORD length = 0;
    DWORD skipped = 0, returned = 0;
    WORD signal = 0;
    ASSERT_FALSE(view.ReadColection(&collection, &position, kNavigateNext, 1, kNavigateNext, 0xFFFF, kReadMaskNoteId,
                                    &buffer, &length, &skipped, &returned, &signal)
                     .IsErrorSet());
    ASSERT_EQ(returned, 2u);
    ASSERT_NE(buffer, NULLHANDLE);
    std::vector<NOTEID> read(2);
    std::memcpy(read.data(), HY_OSLockObject(buffer), 2 * sizeof(NOTEID));
    HY_OSUnlockObject(buffer);
    HY_OSMemFree(buffer);
    EXPECT_EQ(read, documents);
    ASSERT_FALSE(view.CloseCollection(collection).IsErrorSet());
    EXPECT_EQ(logTexts().size(), 1u);
}

// ---- Real $ViewFormat items, imported as design notes ----

namespace {

std::string realDataDir()
{
    std::string dir = std::string(HYLN_TEST_SHARED_DIR) + "/realdata";
    std::ifstream probe(dir + "/expected/EXPECTED-VALUES.md");
    return probe ? dir : std::string();
}

struct ImportSource {
    std::string text;
    size_t at = 0;
};

DWORD readImport(BYTE* buffer, DWORD length, void* action)
{
    auto* source = static_cast<ImportSource*>(action);
    size_t count = std::min<size_t>(length, source->text.size() - source->at);
    std::memcpy(buffer, source->text.data() + source->at, count);
    source->at += count;
    return static_cast<DWORD>(count);
}

STATUS collectView(void* context, SEARCH_MATCH* match, ITEM_TABLE*)
{
    static_cast<std::vector<NOTEID>*>(context)->push_back(match->ID.NoteID);
    return NOERROR;
}

// The column map of one file as the expected-values notes give it: item name -> Flags1,
// the first occurrence of a name winning.
std::map<std::string, unsigned short> expectedColumns(const std::string& notes, const std::string& file)
{
    std::map<std::string, unsigned short> columns;
    size_t start = notes.find("`dxl-design/" + file + "`");
    if (start == std::string::npos)
        return columns;
    std::istringstream lines(notes.substr(start));
    std::string row;
    std::getline(lines, row);
    int tableRows = 0;
    while (std::getline(lines, row)) {
        if (row.empty() || row[0] != '|') {
            if (tableRows > 0)
                break;
            continue;
        }
        ++tableRows;
        unsigned int flags = 0;
        char name[128] = {};
        if (std::sscanf(row.c_str(), "| %*d | 0x%x | `%127[^`]`", &flags, name) == 2)
            columns.emplace(name, static_cast<unsigned short>(flags));
    }
    return columns;
}

class RealView : public View {
protected:
    void SetUp() override
    {
        real = realDataDir();
        if (real.empty())
            GTEST_SKIP() << "the shared real data is not present";
        View::SetUp();
    }

    // Imports one view design note and returns its note ID (0 when the import failed).
    NOTEID importView(DBHANDLE database, const std::string& file)
    {
        std::ifstream in(real + "/dxl-design/" + file, std::ios::binary);
        ImportSource source{std::string(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>())};
        DXLIMPORTHANDLE importer = NULLHANDLE;
        EXPECT_EQ(HY_DXLCreateImporter(&importer), NOERROR);
        int create = 2; // DXLIMPORTOPTION_CREATE for design notes (property 2)
        EXPECT_EQ(HY_DXLSetImporterProperty(importer, 2, &create), NOERROR);
        STATUS status = HY_DXLImport(importer, readImport, database, &source);
        HY_DXLDeleteImporter(importer);
        EXPECT_EQ(status, NOERROR) << file;
        std::vector<NOTEID> views;
        HY_NSFSearch(database, NULLHANDLE, nullptr, 0, NOTE_CLASS_VIEW, nullptr, collectView, &views, nullptr);
        return views.empty() ? 0 : views.back();
    }

    std::string real;
};

} // namespace

TEST_F(RealView, TitlesAndColumnMapsOfRealViews)
{
    std::ifstream in(real + "/expected/EXPECTED-VALUES.md");
    const std::string notes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    const std::pair<const char*, std::string> cases[] = {
        {"domino-jnx/testDbDesignCollections/view-example.xml",
         titlesOf({"Size", "Modified", "", "#", "", "Names Guy 2", "", "Column of constant value"})},
        {"domino-jnx/testDbDesignCollections/view-coldeletion.xml",
         titlesOf({"Shared Col to Delete", "Real col", "#", "Shared Col to Delete", "Real col 2", "I am test col 2"})},
        {"domino-jnx/testDbDesignCollections/col-test2.xml", titlesOf({""})},
        // An old view names the item in capitals; its blank titles stay blanks.
        {"domino-jnx/testV1discuss/2198.xml", titlesOf({" ", " ", "Date", "Topic"})},
        {"domino-jnx/testV1discuss/2202.xml", titlesOf({"Date", "Rsp", "Topic"})},
        {"domino-jnx/testV1discuss/2210.xml", titlesOf({"#", "Date", "Rsp", "Topic"})},
    };
    for (const auto& view : cases) {
        SCOPED_TRACE(view.first);
        HyLNDatabase own("real" + std::to_string(&view - cases) + ".nsf", "");
        ASSERT_FALSE(own.Create().IsErrorSet());
        ASSERT_FALSE(own.Open().IsErrorSet());
        NOTEID id = importView(own.GetHandle(), view.first);
        ASSERT_NE(id, 0u);
        HyLNView reader(own, id);
        std::string titles;
        ASSERT_FALSE(reader.GetCoulmnTitles(&titles).IsErrorSet());
        EXPECT_EQ(titles, view.second);
        std::map<std::string, unsigned short> expected = expectedColumns(notes, view.first);
        ASSERT_FALSE(expected.empty());
        EXPECT_EQ(*reader.columnIndex, expected);
    }
}
