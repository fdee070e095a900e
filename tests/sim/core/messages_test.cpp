// OSLoadString: texts by error number, truncation, unknown codes and the
// "does not provide" range.
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "sim_core.h"

namespace {

std::string loaded(STATUS code, WORD& length, WORD bufferLength = 1023)
{
    char buffer[1024];
    std::memset(buffer, '#', sizeof buffer);
    length = OSLoadString(NULLHANDLE, code, buffer, bufferLength);
    return std::string(buffer, strnlen(buffer, sizeof buffer));
}

std::string loaded(STATUS code)
{
    WORD length = 0;
    return loaded(code, length);
}

} // namespace

TEST(SimCoreMessages, PublishedTextsAreLookedUpByErrorNumber)
{
    WORD length = 0;
    EXPECT_EQ(loaded(4996, length), "The database handle is NULL");
    EXPECT_EQ(length, 27);
    EXPECT_EQ(loaded(0x8000 | 0x4000 | 1028), "Entry not found in index") << "flag bits are ignored";
    EXPECT_EQ(loaded(0x1104), "Recipient user name %a not unique.  Several matches found in Domino Directory.");
    for (STATUS code : {1, 259, 546, 551, 572, 1028, 1036, 1037, 4996, 5051, 5086})
        EXPECT_FALSE(loaded(code).empty()) << code;
    for (STATUS code : {sim::STS_INVALID_HANDLE, sim::STS_STORAGE, sim::STS_NOT_INITIALIZED, sim::STS_INI_MISSING,
                        sim::STS_BAD_ARGUMENT, sim::STS_HANDLE_LOCKED, sim::STS_SERVER_NOT_RESPONDING,
                        sim::STS_PATH_OUTSIDE, sim::STS_UNSUPPORTED})
        EXPECT_FALSE(loaded(code).empty()) << code;
}

TEST(SimCoreMessages, TextIsCutAtTheBufferLength)
{
    char buffer[8];
    std::memset(buffer, '#', sizeof buffer);
    EXPECT_EQ(OSLoadString(NULLHANDLE, 4996, buffer, 5), 5);
    EXPECT_EQ(std::string(buffer), "The d");
    EXPECT_EQ(buffer[6], '#');
}

TEST(SimCoreMessages, UnknownCodesGiveAnEmptyText)
{
    WORD length = 9;
    EXPECT_EQ(loaded(0x3FFE, length), "");
    EXPECT_EQ(length, 0);
    EXPECT_EQ(loaded(0, length), "");
    EXPECT_EQ(loaded(static_cast<STATUS>(sim::STS_NOT_PROVIDED_BASE + sim::kEntryCount), length), "");
}

TEST(SimCoreMessages, UnprovidedEntriesNameThemselves)
{
    STATUS status = sim::notProvided<STATUS>("NSFRemoteConsole", true);
    EXPECT_EQ(loaded(status), "The simulated runtime does not provide NSFRemoteConsole.");
    EXPECT_EQ(loaded(sim::STS_NOT_PROVIDED_BASE), "The simulated runtime does not provide ConvertTextToTIMEDATE.");
}
