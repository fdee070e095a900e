// The status object and the runtime's error texts.
// The umbrella header comes first: it must compile on its own.
#include "HYLNTool.h"

#include <string>

#include "support/test_support.h"

using namespace hyln_test;

namespace {

const char kUtilitiesFile[] = "HYLNTools/HYLNTool_Interface/HYLNTool_NotesUtilities.cpp";

class ErrorText : public LibraryTest {};

} // namespace

TEST(ErrorObject, StateAfterEachWayOfMakingOrChangingIt)
{
    HyLNError fresh;
    EXPECT_EQ(fresh.GetErrorCode(), 0);
    EXPECT_EQ(fresh.GetMessage(), "");
    EXPECT_FALSE(fresh.IsErrorSet());
    EXPECT_TRUE(fresh.notesError);

    HyLNError withText(0, "text");
    EXPECT_TRUE(withText.IsErrorSet());
    EXPECT_EQ(withText.GetMessage(), "text");

    HyLNError custom;
    custom.SetCustomMessage("x");
    EXPECT_EQ(custom.GetErrorCode(), 65535);
    EXPECT_FALSE(custom.notesError);
    EXPECT_TRUE(custom.IsErrorSet());
    custom.SetErrorCode(7);
    EXPECT_EQ(custom.GetErrorCode(), 7);
    EXPECT_EQ(custom.GetMessage(), "x");
    EXPECT_FALSE(custom.notesError);

    HyLNError copy(custom);
    HyLNError assigned;
    assigned = custom;
    for (HyLNError* other : {&copy, &assigned}) {
        EXPECT_EQ(other->GetErrorCode(), 7);
        EXPECT_EQ(other->GetMessage(), "x");
        EXPECT_TRUE(other->IsErrorSet());
        EXPECT_FALSE(other->notesError);
    }
}

TEST(ErrorObject, SetErrorZeroKeepsAnEarlierError)
{
    HyLNError clean;
    clean.SetError(0);
    EXPECT_FALSE(clean.IsErrorSet());

    HyLNError failed;
    failed.SetCustomMessage("earlier %d", 1);
    failed.SetError(0);
    EXPECT_EQ(failed.GetErrorCode(), 0);
    EXPECT_EQ(failed.GetMessage(), "earlier 1");
    EXPECT_TRUE(failed.IsErrorSet());
    EXPECT_TRUE(failed.notesError);

    HyLNError flagged;
    flagged.SetStatus();
    EXPECT_TRUE(flagged.IsErrorSet());
    EXPECT_EQ(flagged.GetMessage(), "");
}

TEST(ErrorObject, FormattedCustomMessageIsCutTo4095Characters)
{
    std::string longText(5000, 'a');
    HyLNError status;
    status.SetCustomMessage("%s!", longText.c_str());
    EXPECT_EQ(status.GetMessage(), std::string(4095, 'a'));
    status.SetCustomMessage(std::string("%d unformatted"));
    EXPECT_EQ(status.GetMessage(), "%d unformatted");
}

TEST_F(ErrorText, SetErrorTakesTheRuntimeTextAndIgnoresTheFlagBits)
{
    HyLNError status;
    status.SetCustomMessage("mine");
    status.SetError(ERR_NOEXIST);
    EXPECT_EQ(status.GetErrorCode(), ERR_NOEXIST);
    EXPECT_EQ(status.GetMessage(), "File does not exist");
    EXPECT_TRUE(status.notesError);
    EXPECT_TRUE(status.IsErrorSet());

    EXPECT_EQ(HyLNUtilities::GetNotesErrorMsg(0xC000 | ERR_NULL_DBHANDLE), "The database handle is NULL");
    EXPECT_EQ(HyLNUtilities::GetNotesErrorMsg(0x4000 | ERR_TDI_CONV), "Unable to interpret Time or Date");
    EXPECT_TRUE(capturedLog().empty());
}

TEST_F(ErrorText, UnknownCodeIsLoggedUnmaskedAndYieldsEmptyText)
{
    EXPECT_EQ(HyLNUtilities::GetNotesErrorMsg(0x8000 | 0x0999), "");
    ASSERT_EQ(capturedLog().size(), 1u);
    const LogLine& line = capturedLog()[0];
    EXPECT_EQ(line.function, "GetNotesErrorMsg");
    EXPECT_EQ(line.level, 0);
    EXPECT_EQ(line.file, kUtilitiesFile);
    EXPECT_EQ(line.text, "Failed to fetch Notes Error Message, errorCode 35225");

    HyLNError status;
    status.SetError(0x0999);
    EXPECT_TRUE(status.IsErrorSet());
    EXPECT_EQ(status.GetMessage(), "");
}

TEST_F(ErrorText, MissingLoadStringEntryGivesEmptyText)
{
    HY_OSLoadString_t saved = HY_OSLoadString;
    HY_OSLoadString = nullptr;
    HyLNError status;
    status.SetError(1);
    HY_OSLoadString = saved;
    EXPECT_EQ(status.GetErrorCode(), 1);
    EXPECT_EQ(status.GetMessage(), "");
    EXPECT_TRUE(logged("GetNotesErrorMsg", 0, "Failed to fetch Notes Error Message, errorCode 1"));
}
