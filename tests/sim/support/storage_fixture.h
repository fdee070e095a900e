// A started simulated runtime on a fresh data directory, for the storage tests.
#ifndef HYSIM_STORAGE_FIXTURE_H
#define HYSIM_STORAGE_FIXTURE_H

#include <gtest/gtest.h>
#include <stdlib.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "sim_core.h"

namespace storage_test {

inline std::string makeDataDirectory()
{
    std::filesystem::path base = std::filesystem::temp_directory_path() / "hysim-storage";
    std::filesystem::create_directories(base);
    std::string pattern = (base / "data-XXXXXX").string();
    if (mkdtemp(pattern.data()) == nullptr)
        throw std::runtime_error("mkdtemp failed");
    return pattern;
}

inline void writeFile(const std::string& path, const std::string& bytes)
{
    std::ofstream(path, std::ios::binary) << bytes;
}

class StorageTest : public ::testing::Test {
protected:
    void SetUp() override
    {
        dataDir = makeDataDirectory();
        writeFile(dataDir + "/notes.ini", "[Notes]\nDirectory=" + dataDir + "\nServerName=CN=HySrv01/O=HyOrg\n");
        std::string program = dataDir;
        std::string ini = "=" + dataDir + "/notes.ini";
        char* argv[] = {program.data(), ini.data(), nullptr};
        ASSERT_EQ(NotesInitExtended(2, argv), NOERROR);
    }
    void TearDown() override
    {
        NotesTerm();
        std::error_code ignored;
        std::filesystem::remove_all(dataDir, ignored);
    }

    DBHANDLE createAndOpen(const std::string& name)
    {
        EXPECT_EQ(NSFDbCreate(name.c_str(), DBCLASS_NOTEFILE, FALSE), NOERROR);
        return open(name);
    }
    DBHANDLE open(const std::string& name)
    {
        DBHANDLE handle = NULLHANDLE;
        EXPECT_EQ(NSFDbOpen(name.c_str(), &handle), NOERROR) << name;
        return handle;
    }
    static NOTEHANDLE newNote(DBHANDLE db)
    {
        NOTEHANDLE note = NULLHANDLE;
        EXPECT_EQ(NSFNoteCreate(db, &note), NOERROR);
        return note;
    }
    static void setText(NOTEHANDLE note, const char* name, const std::string& text)
    {
        ASSERT_EQ(NSFItemSetText(note, name, text.data(), static_cast<WORD>(text.size())), NOERROR);
    }
    static void append(NOTEHANDLE note, const char* name, WORD type, const void* value, DWORD length,
                       WORD flags = ITEM_SUMMARY)
    {
        ASSERT_EQ(NSFItemAppend(note, flags, name, static_cast<WORD>(std::strlen(name)), type, value, length), NOERROR);
    }
    static std::string text(NOTEHANDLE note, const char* name)
    {
        char buffer[1024] = {};
        WORD length = NSFItemGetText(note, name, buffer, sizeof buffer);
        return std::string(buffer, length);
    }
    // Saves a new note holding one text item; returns its note ID.
    static NOTEID saveTextNote(DBHANDLE db, const std::string& subject)
    {
        NOTEHANDLE note = newNote(db);
        setText(note, "Subject", subject);
        EXPECT_EQ(NSFNoteUpdate(note, 0), NOERROR);
        NOTEID id = 0;
        NSFNoteGetInfo(note, _NOTE_ID, &id);
        EXPECT_EQ(NSFNoteClose(note), NOERROR);
        return id;
    }
    // The whole value of an item (type word first), empty when missing.
    static std::vector<char> itemBytes(NOTEHANDLE note, const char* name)
    {
        BLOCKID value{};
        DWORD length = 0;
        if (NSFItemInfo(note, name, static_cast<WORD>(std::strlen(name)), nullptr, nullptr, &value, &length) != NOERROR)
            return {};
        const char* data = static_cast<const char*>(OSLockObject(value.pool)) + value.block;
        std::vector<char> bytes(data, data + length);
        OSUnlockObject(value.pool);
        return bytes;
    }

    std::string dataDir;
};

} // namespace storage_test

#endif
