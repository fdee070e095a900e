// The status object and the runtime's error texts.
// The umbrella header comes first: it must compile on its own.
#include "HYLNTool.h"

#include <string>

#include "support/test_support.h"

using namespace hyln_test;

namespace {

void expectState(HyLNError status, unsigned short code, const std::string& text, bool set, bool notes)
{
    EXPECT_EQ(status.GetErrorCode(), code);
    EXPECT_EQ(status.GetMessage(), text);
    EXPECT_EQ(status.IsErrorSet(), set);
    EXPECT_EQ(status.notesError, notes);
}

class ErrorText : public LibraryTest {};

} // namespace

TEST(ErrorObject, StateAfterEachOperation)
{
    expectState(HyLNError(), 0, "", false, true);
    expectState(HyLNError(0, "text"), 0, "text", true, true);

    HyLNError status;
    status.SetError(0);
    expectState(status, 0, "", false, true);
    status.SetCustomMessage("earlier %d", 1);
    expectState(status, 65535, "earlier 1", true, false);
    status.SetErrorCode(7);
    expectState(status, 7, "earlier 1", true, false);
    HyLNError assigned;
    assigned = status;
    expectState(assigned, 7, "earlier 1", true, false);
    // A zero status keeps the earlier message and flag.
    status.SetError(0);
    expectState(status, 0, "earlier 1", true, true);

    status.SetCustomMessage("%s!", std::string(5000, 'a').c_str());
    EXPECT_EQ(status.GetMessage(), std::string(4095, 'a'));
    status.SetCustomMessage(std::string("%d unformatted"));
    EXPECT_EQ(status.GetMessage(), "%d unformatted");
}

TEST_F(ErrorText, SetErrorTakesTheRuntimeTextOfTheLow14Bits)
{
    HyLNError status;
    status.SetCustomMessage("mine");
    status.SetError(0xC000 | ERR_NOEXIST);
    expectState(status, 0xC000 | ERR_NOEXIST, "File does not exist", true, true);
    EXPECT_EQ(HyLNUtilities::GetNotesErrorMsg(0x4000 | ERR_TDI_CONV), "Unable to interpret Time or Date");
    EXPECT_TRUE(capturedLog().empty());
}

TEST_F(ErrorText, UnknownCodeIsLoggedUnmaskedAndYieldsEmptyText)
{
    HyLNError status;
    status.SetError(0x8000 | 0x0999);
    expectState(status, 0x8999, "", true, true);
    ASSERT_EQ(capturedLog().size(), 1u);
    const LogLine& line = capturedLog()[0];
    EXPECT_EQ(line.function, "GetNotesErrorMsg");
    EXPECT_EQ(line.level, 0);
    EXPECT_EQ(line.file, "HYLNTools/HYLNTool_Interface/HYLNTool_NotesUtilities.cpp");
    EXPECT_EQ(line.text, "Failed to fetch Notes Error Message, errorCode 35225");
}

TEST_F(ErrorText, UnresolvedLoadStringEntryGivesEmptyText)
{
    HY_OSLoadString_t saved = HY_OSLoadString;
    HY_OSLoadString = nullptr;
    HyLNError status;
    status.SetError(1);
    HY_OSLoadString = saved;
    expectState(status, 1, "", true, true);
    EXPECT_TRUE(logged("GetNotesErrorMsg", 0, "Failed to fetch Notes Error Message, errorCode 1"));
}
