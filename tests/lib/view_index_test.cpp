// HyLNView::AddEntryToNoteIndex and convertTimeRange over hand-built summary buffers.
#include <cstring>
#include <string>
#include <vector>

#include "HYLNTool_Database.h"
#include "HySimControl.h"
#include "support/test_support.h"

using namespace hyln_test;

namespace {

const char kSep = 0x12;
const char* const kSource = "HYLNTools/HYLNTool_Interface/HYLNTool_Database.cpp";

std::string word(WORD value) { return std::string(reinterpret_cast<const char*>(&value), sizeof value); }
std::string number(double value) { return std::string(reinterpret_cast<const char*>(&value), sizeof value); }
std::string time(const TIMEDATE& value) { return std::string(reinterpret_cast<const char*>(&value), sizeof value); }

// An ITEM_TABLE, its ITEMs and the name/value pairs; values carry their type word.
class Summary {
public:
    Summary& item(const std::string& name, WORD type, const std::string& data)
    {
        items_.push_back({name, word(type) + data});
        return *this;
    }
    Summary& text(const std::string& name, const std::string& value) { return item(name, TYPE_TEXT, value); }
    Summary& num(const std::string& name, double value) { return item(name, TYPE_NUMBER, number(value)); }
    Summary& empty(const std::string& name)
    {
        items_.push_back({name, std::string()});
        return *this;
    }
    // Bytes appended behind the pairs, counted in the table's length.
    Summary& trailer(const std::string& bytes)
    {
        trailer_ = bytes;
        return *this;
    }
    // `declaredLength` replaces the table's true length when given.
    std::vector<unsigned char> build(int declaredLength = -1) const
    {
        std::string body;
        for (const auto& entry : items_)
            body += word(static_cast<WORD>(entry.first.size())) + word(static_cast<WORD>(entry.second.size()));
        for (const auto& entry : items_)
            body += entry.first + entry.second;
        body += trailer_;
        WORD length = static_cast<WORD>(declaredLength >= 0 ? declaredLength : 4 + body.size());
        std::string all = word(length) + word(static_cast<WORD>(items_.size())) + body;
        return std::vector<unsigned char>(all.begin(), all.end());
    }

private:
    std::vector<std::pair<std::string, std::string>> items_;
    std::string trailer_;
};

std::string textList(const std::vector<std::string>& texts)
{
    std::string out = word(static_cast<WORD>(texts.size()));
    for (const std::string& text : texts)
        out += word(static_cast<WORD>(text.size()));
    for (const std::string& text : texts)
        out += text;
    return out;
}

std::string numberRange(const std::vector<double>& list, const std::vector<std::pair<double, double>>& ranges = {})
{
    std::string out = word(static_cast<WORD>(list.size())) + word(static_cast<WORD>(ranges.size()));
    for (double value : list)
        out += number(value);
    for (const auto& range : ranges)
        out += number(range.first) + number(range.second);
    return out;
}

std::string fields(std::initializer_list<std::string> texts)
{
    std::string out;
    for (const std::string& text : texts)
        out += text + kSep;
    return out;
}

class IndexLine : public RuntimeTest {
protected:
    void SetUp() override
    {
        RuntimeTest::SetUp();
        captureLog();
    }

    // The line for one entry of the view; the summary sits in a buffer of its exact size.
    std::string line(const Summary& summary, NOTEID noteId = 0x1F5, int declaredLength = -1)
    {
        std::vector<unsigned char> buffer = summary.build(declaredLength);
        std::vector<char> out(512, '\x7f');
        EXPECT_EQ(view.AddEntryToNoteIndex(out.data(), buffer.data(), noteId, info, position, 0), 0);
        return out.data();
    }

    static std::string blanked(std::string text)
    {
        HyLNUtilities::NormalizeText(&text[0]);
        return text;
    }

    std::string timeText(const TIMEDATE& value)
    {
        char text[80] = {};
        WORD length = 0;
        EXPECT_EQ(HY_ConvertTIMEDATEToText(nullptr, nullptr, &value, text, sizeof text, &length), NOERROR);
        return std::string(text, length);
    }

    static TIMEDATE at(long long unixSeconds)
    {
        sim().setClock(unixSeconds, 0);
        TIMEDATE value;
        HY_OSCurrentTIMEDATE(&value);
        return value;
    }

    HyLNDatabase db{"index.nsf", ""};
    HyLNView view{db, 0x20u};
    INDEXSPECIALINFO info{};
    COLLECTIONPOSITION position{};
};

} // namespace

TEST_F(IndexLine, NoteIdAloneAndEmptyColumns)
{
    EXPECT_EQ(line(Summary()), "000001f5\x12");
    EXPECT_EQ(line(Summary(), 0x80000003u), "80000003\x12");
    (*view.columnIndex)["Hidden"] = 0x0008;
    EXPECT_EQ(line(Summary().empty("Shown").empty("Hidden").empty("Unlisted")), "000001f5\x12" + fields({"", ""}));
}

TEST_F(IndexLine, Numbers)
{
    EXPECT_EQ(line(Summary().num("a", 3.0).num("b", 3.25).num("c", -0.0000001).num("d", -7.0).num("e", 1e10)),
              "000001f5\x12" + fields({"3", "3.250000", "0", "-7", "10000000000"}));
    EXPECT_EQ(line(Summary().item("r", TYPE_NUMBER_RANGE, numberRange({1.5, 2}, {{3, 4}}))),
              "000001f5\x12" + fields({"1.5000002.0000003.000000 - 4.000000"}));
}

// The range stops once its text passes 65 bytes, and the next item is read from
// where the rendering stopped, inside the range.
TEST_F(IndexLine, TruncatedNumberRangeLeavesTheReadPositionInsideIt)
{
    std::string leftover = std::string("Tail") + word(TYPE_TEXT) + "ok"; // read as the next name and value
    ASSERT_EQ(leftover.size(), 8u);
    std::string range = numberRange({1e6, 1e6, 1e6, 1e6, 1e6}) + leftover;
    range[0] = 6; // six entries announced, the sixth is the leftover bytes
    Summary summary;
    summary.item("r", TYPE_NUMBER_RANGE, range).text("Tail", "no");
    EXPECT_EQ(line(summary), "000001f5\x12" + fields({"1000000.0000001000000.0000001000000.0000001000000.0000001000000.000000",
                                                 "ok"}));
}

TEST_F(IndexLine, TextsAndTextLists)
{
    EXPECT_EQ(line(Summary().text("s", "Hello").item("l", TYPE_TEXT_LIST, textList({"Alpha", "Beta"}))),
              "000001f5\x12" + fields({"Hello", "Alpha Beta "}));
    // Control bytes and the characters a file name cannot hold become blanks.
    EXPECT_EQ(line(Summary().text("s", "a:b\tc/d|e%f")), "000001f5\x12" + fields({"a b c d e f"}));
    // Only the first 80 bytes of a text are read; the next item follows the whole value.
    EXPECT_EQ(line(Summary().text("s", std::string(100, 'x')).text("t", "next")),
              "000001f5\x12" + fields({std::string(80, 'x'), "next"}));
    // The list ends with the first text that would take it past 79 bytes.
    EXPECT_EQ(line(Summary().item("l", TYPE_TEXT_LIST, textList({std::string(70, 'a'), "bcdefghij", "c"}))),
              "000001f5\x12" + fields({std::string(70, 'a') + " "}));
    // Other types give an empty field and are stepped over.
    EXPECT_EQ(line(Summary().item("o", TYPE_COMPOSITE, "abcdef").text("t", "after")),
              "000001f5\x12" + fields({"", "after"}));
}

TEST_F(IndexLine, SpecialTextIsResolvedForTheEntry)
{
    position.Level = 1;
    position.Tumbler[0] = 4;
    position.Tumbler[1] = 2;
    info.IndexChildren = 3;
    EXPECT_EQ(line(Summary().text("n", "No. \x7fN\x7f, \x7f" "C\x7f children")),
              "000001f5\x12" + fields({"No. 4.2, 3 children"}));

    sim().setFault("NSFTranslateSpecial", ERR_MEMORY, 1, HYSIM_FAULT_RETURN);
    captureLog();
    EXPECT_EQ(line(Summary().text("n", "lost").text("m", "kept")), "000001f5\x12" + fields({"", "kept"}));
    ASSERT_EQ(capturedLog().size(), 1u);
    EXPECT_EQ(capturedLog()[0].function, "AddEntryToNoteIndex");
    EXPECT_EQ(capturedLog()[0].level, -1);
    EXPECT_EQ(capturedLog()[0].file, kSource);
    EXPECT_EQ(capturedLog()[0].text,
              "Error: unable to convert TYPE_TEXT to text. NSFTranslateSpecial(...) returned: [263]. Resulting error "
              "string: [" + HyLNUtilities::GetNotesErrorMsg(ERR_MEMORY) + "].");
}

TEST_F(IndexLine, TimesAndTimeRanges)
{
    TIMEDATE first = at(1700000000);
    TIMEDATE second = at(1700086400);
    TIMEDATE third = at(1700172800);
    std::string one = timeText(first), two = timeText(second), three = timeText(third);
    EXPECT_EQ(line(Summary().item("t", TYPE_TIME, time(first))), "000001f5\x12" + fields({blanked(one)}));
    std::string range = word(1) + word(1) + time(first) + time(second) + time(third);
    EXPECT_EQ(line(Summary().item("r", TYPE_TIME_RANGE, range).text("n", "next")),
              "000001f5\x12" + fields({blanked(one + " ; " + two + "-" + three), "next"}));

    // convertTimeRange stops the list once 56 bytes are written and returns where it stopped.
    std::string list = word(5) + word(0);
    for (int i = 0; i < 5; ++i)
        list += time(first);
    char out[144] = {};
    unsigned char* value = reinterpret_cast<unsigned char*>(&list[0]);
    size_t shown = 0;
    std::string expected;
    while (expected.size() < 56) {
        expected += (shown == 0 ? "" : ",") + one;
        ++shown;
    }
    EXPECT_EQ(convertTimeRange(value, out) - value, static_cast<long>(4 + 8 * shown));
    EXPECT_EQ(std::string(out), expected);
}

TEST_F(IndexLine, TimeConversionFailuresLeaveEmptyTexts)
{
    TIMEDATE first = at(1700000000);
    sim().setFault("ConvertTIMEDATEToText", ERR_TDO_CONV, 0, HYSIM_FAULT_RETURN);
    std::string range = word(1) + word(0) + time(first);
    EXPECT_EQ(line(Summary().item("t", TYPE_TIME, time(first)).item("r", TYPE_TIME_RANGE, range)),
              "000001f5\x12" + fields({"", ""}));
    std::string text = "Error: unable to convert TIMEDATE to text. ConvertTIMEDATEToText(...) returned: [1037]. "
                       "Resulting error string: [" + HyLNUtilities::GetNotesErrorMsg(ERR_TDO_CONV) + "].";
    ASSERT_EQ(capturedLog().size(), 2u);
    EXPECT_EQ(capturedLog()[0].function, "AddEntryToNoteIndex");
    EXPECT_EQ(capturedLog()[1].function, "convertTimeRange");
    for (const LogLine& logged : capturedLog()) {
        EXPECT_EQ(logged.level, -1);
        EXPECT_EQ(logged.text, text);
    }
}

TEST_F(IndexLine, ColumnClassesContributeNothing)
{
    (*view.columnIndex)["Cat"] = 0x0002;
    (*view.columnIndex)["Hide"] = 0x0008;
    (*view.columnIndex)["Resp"] = 0x0010;
    (*view.columnIndex)["Icon"] = 0x0040;
    (*view.columnIndex)["Sort"] = 0x0001;
    Summary summary;
    summary.text("Cat", "c").text("Hide", "h").text("Resp", "r").text("Icon", "i").text("Sort", "s").text("New", "n");
    EXPECT_EQ(line(summary), "000001f5\x12" + fields({"s", "n"}));
}

// A categorized column's text is blanked on documents only, so on a category entry it
// still counts toward the 240-byte end although it is never shown.
TEST_F(IndexLine, CategoryTextCountsTowardTheEndOnCategoryEntries)
{
    (*view.columnIndex)["Cat"] = 0x0002;
    Summary summary;
    summary.text("a", std::string(80, 'a')).text("b", std::string(75, 'b')).text("Cat", std::string(80, 'c'));
    summary.text("z", "z");
    std::string start = fields({std::string(80, 'a'), std::string(75, 'b')});
    EXPECT_EQ(line(summary, 0x1F5), "000001f5\x12" + start + fields({"z"}));
    EXPECT_EQ(line(summary, 0x80000001u), "80000001\x12" + start);
}

TEST_F(IndexLine, LineEndsBeforePassing240Bytes)
{
    // 9 bytes of note ID, then 191 bytes of fields: the line holds 200 bytes.
    Summary base;
    base.text("a", std::string(79, 'a')).text("b", std::string(79, 'b')).text("c", std::string(30, 'c'));
    Summary fits = base;
    fits.text("d", std::string(40, 'd')).text("e", "");
    std::string head = "000001f5\x12" + fields({std::string(79, 'a'), std::string(79, 'b'), std::string(30, 'c')});
    ASSERT_EQ(head.size(), 200u);
    // 240 bytes of text and its separator: past the end, even an empty text ends the line.
    EXPECT_EQ(line(fits), head + fields({std::string(40, 'd')}));
    Summary passes = base;
    passes.text("d", std::string(41, 'd')).text("e", "e");
    EXPECT_EQ(line(passes), head);
}

TEST_F(IndexLine, UntranslatableColumnIsKept)
{
    sim().setFault("OSTranslate", 0, 0, HYSIM_FAULT_RETURN);
    EXPECT_EQ(line(Summary().text("s", "a:b")), "000001f5\x12" + fields({"a b"}));
    ASSERT_EQ(capturedLog().size(), 1u);
    EXPECT_EQ(capturedLog()[0].function, "AddEntryToNoteIndex");
    EXPECT_EQ(capturedLog()[0].level, -1);
    EXPECT_EQ(capturedLog()[0].text, "OSTranslate failed on column string: a:b");
}

TEST_F(IndexLine, ReadsStopAtTheTablesLength)
{
    Summary summary;
    summary.text("s", "first").text("t", "second");
    std::vector<unsigned char> whole = summary.build();
    // The second value ends two bytes past the declared length: the line ends before it.
    EXPECT_EQ(line(summary, 0x1F5, static_cast<int>(whole.size()) - 2), "000001f5\x12" + fields({"first"}));
    // Descriptors beyond the length, and tables too short for their header.
    EXPECT_EQ(line(summary, 0x1F5, 6), "000001f5\x12");
    EXPECT_EQ(line(summary, 0x1F5, 0), "000001f5\x12");
    // A list whose texts pass the end ends the line.
    EXPECT_EQ(line(Summary().text("a", "x").item("l", TYPE_TEXT_LIST, word(1) + word(50) + "short")),
              "000001f5\x12" + fields({"x"}));
    // A number announced by a short value still needs its 8 bytes.
    EXPECT_EQ(line(Summary().text("a", "x").item("n", TYPE_NUMBER, "1234")), "000001f5\x12" + fields({"x"}));
}

TEST_F(IndexLine, PredicatesByFlagBits)
{
    EXPECT_TRUE(isCategory(0x0002));
    EXPECT_TRUE(isIcon(0x0040));
    EXPECT_TRUE(isResponse(0x0010));
    EXPECT_FALSE(isCategory(0xFFFD) || isIcon(0xFFBF) || isResponse(0xFFEF));
    for (int flags : {0x0008, 0x0002, 0x0040, 0x0010})
        EXPECT_TRUE(isHidden(flags)) << flags;
    EXPECT_FALSE(isHidden(0xFFFF & ~(0x0008 | 0x0002 | 0x0040 | 0x0010)));
}

TEST(NormalizeText, BlanksUnsafeBytesInPlace)
{
    char text[] = "a\\b/c:d*e?f\"g<h>i|j%k\x01l\x1fm\xffn\x80o~";
    HyLNUtilities::NormalizeText(text);
    EXPECT_STREQ(text, "a b c d e f g h i j k l m n\x80o~");
    HyLNUtilities::NormalizeText(nullptr);
}
