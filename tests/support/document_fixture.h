// A database with mail notes written through the C API, for the document tests.
#ifndef HYLN_DOCUMENT_FIXTURE_H
#define HYLN_DOCUMENT_FIXTURE_H

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <vector>

#include "support/domino_fixture.h"
#include "support/test_support.h"

namespace hyln_test {

const char* const kDocumentSource = "HYLNTools/HYLNTool_Interface/HYLNTool_Document.cpp";
const STATUS kItemNotFound = 0x0222; // "Note item not found"

class DocumentTest : public RuntimeTest {
protected:
    void SetUp() override
    {
        RuntimeTest::SetUp();
        createDatabase("jdoe.nsf", "Jane Doe");
        ASSERT_EQ(HY_NSFDbOpen("jdoe.nsf", &db), NOERROR);
        captureLog();
        sim().traceClear();
    }
    void TearDown() override
    {
        HY_NSFDbClose(db);
        RuntimeTest::TearDown();
    }

    // Saves a note with a Subject and, when given, more text items; returns its ID.
    NOTEID saveNote(const std::string& subject, const std::vector<std::pair<std::string, std::string>>& texts = {})
    {
        NOTEHANDLE note = NULLHANDLE;
        EXPECT_EQ(HY_NSFNoteCreate(db, &note), NOERROR);
        EXPECT_EQ(HY_NSFItemSetText(note, "Subject", subject.data(), static_cast<WORD>(subject.size())), NOERROR);
        for (const auto& item : texts)
            EXPECT_EQ(HY_NSFItemSetText(note, item.first.c_str(), item.second.data(),
                                        static_cast<WORD>(item.second.size())),
                      NOERROR);
        EXPECT_EQ(HY_NSFNoteUpdate(note, 0), NOERROR);
        NOTEID id = 0;
        HY_NSFNoteGetInfo(note, _NOTE_ID, &id);
        HY_NSFNoteClose(note);
        return id;
    }

    // A file of `bytes` in the data directory; returns its path.
    std::string writeFile(const std::string& name, const std::string& bytes)
    {
        std::string path = dataDir + "/" + name;
        std::ofstream(path, std::ios::binary) << bytes;
        return path;
    }

    // The whole value of an item after its type word; `found` false when absent.
    static std::string itemData(NOTEHANDLE note, const char* name, bool& found)
    {
        BLOCKID value{};
        DWORD length = 0;
        found = HY_NSFItemInfo(note, name, static_cast<WORD>(std::strlen(name)), nullptr, nullptr, &value, &length) ==
                NOERROR;
        if (!found)
            return std::string();
        const char* data = static_cast<const char*>(HY_OSLockObject(value.pool)) + value.block;
        std::string bytes(data + 2, length - 2);
        HY_OSUnlockObject(value.pool);
        return bytes;
    }

    static void appendTime(NOTEHANDLE note, const char* name, const TIMEDATE& time)
    {
        ASSERT_EQ(HY_NSFItemAppend(note, ITEM_SUMMARY, name, static_cast<WORD>(std::strlen(name)), TYPE_TIME, &time,
                                   sizeof time),
                  NOERROR);
    }

    static TIMEDATE at(long long unixSeconds)
    {
        sim().setClock(unixSeconds, 0);
        TIMEDATE value;
        HY_OSCurrentTIMEDATE(&value);
        return value;
    }

    // The one line logged, checked byte for byte with its function, level and file.
    static void expectOnlyLine(const std::string& function, int level, const std::string& text)
    {
        ASSERT_EQ(capturedLog().size(), 1u) << text;
        const LogLine& line = capturedLog().front();
        EXPECT_EQ(line.function, function);
        EXPECT_EQ(line.level, level);
        EXPECT_EQ(line.file, kDocumentSource);
        EXPECT_EQ(line.text, text);
    }

    DBHANDLE db = NULLHANDLE;
};

inline std::string formatted(const char* format, ...) __attribute__((format(printf, 1, 2)));
inline std::string formatted(const char* format, ...)
{
    char text[2048];
    va_list args;
    va_start(args, format);
    std::vsnprintf(text, sizeof text, format, args);
    va_end(args);
    return text;
}

} // namespace hyln_test

#endif
