// HyLNView: finding and opening the view note, item reads, collections and the column
// titles read from $ViewFormat (written through the API, and real ones imported as DXL).
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fstream>
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

std::string formatted(const char* format, ...) __attribute__((format(printf, 1, 2)));
std::string formatted(const char* format, ...)
{
    char text[2048];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    return text;
}

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
