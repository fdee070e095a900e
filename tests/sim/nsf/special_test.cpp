// NSFTranslateSpecial: special texts resolved for one entry, ordinary text untouched.
#include <gtest/gtest.h>

#include <string>

#include "sim_core.h"
#include "special_text.h"

namespace {

// The third child of the second entry, at the second level: position 2.3.
struct Place {
    Place()
    {
        position.Level = 1;
        position.Tumbler[0] = 2;
        position.Tumbler[1] = 3;
        info.IndexSiblings = 4;
        info.IndexChildren = 5;
        info.IndexDescendants = 6;
    }
    COLLECTIONPOSITION position{};
    INDEXSPECIALINFO info{};
};

std::string special(char code, std::initializer_list<std::string> arguments = {})
{
    std::string text(1, sim::kSpecialMark);
    text += code;
    for (const std::string& argument : arguments)
        text += sim::kSpecialArgument + argument;
    return text + sim::kSpecialMark;
}

STATUS translate(const std::string& in, std::string& out, NOTEID noteId = 0x20, Place place = Place(),
                 WORD outSize = 80, bool withPlace = true)
{
    char buffer[256] = {};
    WORD length = 0xFFFF;
    std::string input = in;
    STATUS status = impl::NSFTranslateSpecial(&input[0], static_cast<WORD>(input.size()), buffer, outSize, noteId,
                                              withPlace ? &place.position : nullptr,
                                              withPlace ? &place.info : nullptr, NULLHANDLE, NULLHANDLE, nullptr,
                                              nullptr, &length);
    out.assign(buffer, status == NOERROR ? length : 0);
    return status;
}

std::string resolved(const std::string& in, NOTEID noteId = 0x20)
{
    std::string out;
    EXPECT_EQ(translate(in, out, noteId), NOERROR) << in;
    return out;
}

} // namespace

TEST(SimNsfSpecialText, OrdinaryTextIsCopiedUnchanged)
{
    EXPECT_EQ(resolved("Subject: hello"), "Subject: hello");
    EXPECT_EQ(resolved(std::string("a\0b", 3)), std::string("a\0b", 3));
    // A lone mark, or one without its closing mark, is ordinary text.
    EXPECT_EQ(resolved("x\x7fy"), "x\x7fy");
    EXPECT_EQ(resolved("\x7f\x7f"), "\x7f\x7f");
}

TEST(SimNsfSpecialText, PositionFunctions)
{
    EXPECT_EQ(resolved("No. " + special(sim::kDocNumber) + "!"), "No. 2.3!");
    EXPECT_EQ(resolved(special(sim::kDocNumber, {"-"})), "2-3");
    EXPECT_EQ(resolved(special(sim::kDocNumber, {""})), "3");
    EXPECT_EQ(resolved(special(sim::kDocParentNumber)), "2");
    EXPECT_EQ(resolved(special(sim::kDocLevel)), "2");
    EXPECT_EQ(resolved(special(sim::kDocSiblings) + "/" + special(sim::kDocChildren) + "/" +
                       special(sim::kDocDescendants)),
              "4/5/6");

    Place top;
    top.position.Level = 0;
    std::string out;
    ASSERT_EQ(translate(special(sim::kDocParentNumber) + "|" + special(sim::kDocNumber), out, 0x20, top), NOERROR);
    EXPECT_EQ(out, "|2");
}

TEST(SimNsfSpecialText, ChoicesFollowTheEntry)
{
    EXPECT_EQ(resolved(special(sim::kIsExpandable)), "+");
    EXPECT_EQ(resolved(special(sim::kIsCategory)), "");
    EXPECT_EQ(resolved(special(sim::kIsCategory), NOTEID_CATEGORY | 7), "*");
    EXPECT_EQ(resolved(special(sim::kIsCategory, {"cat", "doc"})), "doc");
    EXPECT_EQ(resolved(special(sim::kIsCategory, {"cat"}), NOTEID_CATEGORY), "cat");

    Place leaf;
    leaf.info.IndexChildren = 0;
    std::string out;
    ASSERT_EQ(translate(special(sim::kIsExpandable) + special(sim::kIsExpandable, {"more"}), out, 0x20, leaf),
              NOERROR);
    EXPECT_EQ(out, "-");
}

TEST(SimNsfSpecialText, FailuresAndTheOutputLimit)
{
    std::string out;
    EXPECT_EQ(translate(special('Q'), out), sim::STS_UNSUPPORTED);
    EXPECT_EQ(translate(special(sim::kDocChildren, {"a"}), out), sim::STS_UNSUPPORTED);
    EXPECT_EQ(translate(special(sim::kDocNumber), out, 0x20, Place(), 80, false), sim::STS_BAD_ARGUMENT);
    Place deep;
    deep.position.Level = MAXTUMBLERLEVELS;
    EXPECT_EQ(translate(special(sim::kDocNumber), out, 0x20, deep), sim::STS_BAD_ARGUMENT);
    // Text without special text needs no place.
    ASSERT_EQ(translate("plain", out, 0x20, Place(), 80, false), NOERROR);
    EXPECT_EQ(out, "plain");

    ASSERT_EQ(translate("No. " + special(sim::kDocNumber), out, 0x20, Place(), 5), NOERROR);
    EXPECT_EQ(out, "No. 2");
}
