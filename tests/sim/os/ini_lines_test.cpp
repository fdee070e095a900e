// notes.ini at start-up: which lines become settings and how they read back.
#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>

#include "sim_core.h"

namespace {

class SimOsEnvironment : public ::testing::Test {
protected:
    void SetUp() override
    {
        char pattern[] = "/tmp/hysim_env_XXXXXX";
        ASSERT_NE(mkdtemp(pattern), nullptr);
        dir = pattern;
    }
    void TearDown() override
    {
        NotesTerm();
        std::error_code ignored;
        std::filesystem::remove_all(dir, ignored);
    }
    // Starts the runtime on a notes.ini holding exactly `bytes`.
    STATUS start(const std::string& bytes)
    {
        std::ofstream(dir + "/notes.ini", std::ios::binary) << bytes;
        std::string ini = "=" + dir + "/notes.ini";
        char* argv[] = {dir.data(), ini.data(), nullptr};
        return NotesInitExtended(2, argv);
    }
    static std::string setting(const char* name)
    {
        char value[64];
        std::memset(value, '#', sizeof value);
        return OSGetEnvironmentString(name, value, sizeof value - 1) ? value : "<absent>";
    }
    std::string dir;
};

} // namespace

TEST_F(SimOsEnvironment, ALineEndsAtANulByte)
{
    using namespace std::string_literals;
    EXPECT_EQ(start("[Notes]\nDirectory=\0/tmp/hidden\n"s), sim::STS_INI_MISSING)
        << "a data directory that reads back empty is no data directory";

    ASSERT_EQ(start("Directory="s + dir + "\0/junk\n"s), NOERROR);
    EXPECT_EQ(setting("Directory"), dir);
    EXPECT_EQ(NSFDbCreate("a.nsf", DBCLASS_NOTEFILE, FALSE), NOERROR)
        << "databases resolve under the directory the setting names";
    EXPECT_TRUE(std::filesystem::exists(dir + "/a.nsf"));
}

TEST_F(SimOsEnvironment, SettingsReadBackTrimmedAndFirstOneWins)
{
    ASSERT_EQ(start("; comment=1\n[Notes]\r\n  Directory = " + dir + " \r\nKeep=first\nKEEP=second\n# x=y\nnovalue\n"),
              NOERROR);
    EXPECT_EQ(setting("directory"), dir);
    EXPECT_EQ(setting("keep"), "first");
    EXPECT_EQ(setting("comment"), "<absent>");
    EXPECT_EQ(setting("# x"), "<absent>");
    EXPECT_EQ(setting("novalue"), "<absent>");
    EXPECT_EQ(OSGetEnvironmentLong("Keep"), 0);
}

TEST_F(SimOsEnvironment, ValuesAreCutToTheLengthAsked)
{
    ASSERT_EQ(start("Directory=" + dir + "\nLong=abcdefgh\n"), NOERROR);
    char value[8];
    std::memset(value, '#', sizeof value);
    ASSERT_TRUE(OSGetEnvironmentString("Long", value, 4));
    EXPECT_EQ(std::string(value, 5), std::string("abcd\0", 5)) << "BufferLength characters, then the NUL";
    EXPECT_EQ(value[5], '#');
}
