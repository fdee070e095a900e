// View and folder notes written through the C API, and collection reads, for the
// collection and folder tests.
#ifndef HYSIM_NIF_SUPPORT_H
#define HYSIM_NIF_SUPPORT_H

#include <cstring>
#include <string>
#include <vector>

#include "collections.h"
#include "sim/support/storage_fixture.h"
#include "view_format.h"

namespace nif_test {

using sim::viewformat::Column;
using sim::viewformat::Format;

// A compiled formula's bytes (NSFFormulaCompile).
inline std::vector<char> compiled(const std::string& text)
{
    FORMULAHANDLE handle = NULLHANDLE;
    WORD length = 0;
    STATUS error = NOERROR;
    WORD line = 0, column = 0, offset = 0, size = 0;
    EXPECT_EQ(NSFFormulaCompile(nullptr, 0, text.data(), static_cast<WORD>(text.size()), &handle, &length, &error,
                                &line, &column, &offset, &size),
              NOERROR)
        << text;
    const char* bytes = static_cast<const char*>(OSLockObject(handle));
    std::vector<char> out(bytes, bytes + length);
    OSUnlockObject(handle);
    OSMemFree(handle);
    return out;
}

inline Column column(const std::string& item, const std::string& title, WORD flags = 0, const std::string& formula = "")
{
    Column out;
    out.itemName = item;
    out.title = title;
    out.flags1 = flags;
    if (!formula.empty())
        out.formula = compiled(formula);
    return out;
}

// NOTE_ID_SPECIAL | NOTE_CLASS_DESIGN.
constexpr NOTEID kDesignCollection = 0xFFFF0020u;

// The title of a "$TITLE" text: what comes before the first "|", blanks trimmed.
inline std::string firstDesignName(const std::string& title)
{
    std::string name = title.substr(0, title.find('|'));
    size_t first = name.find_first_not_of(' ');
    size_t last = name.find_last_not_of(' ');
    return first == std::string::npos ? std::string() : name.substr(first, last - first + 1);
}

struct Entry {
    NOTEID id = 0;
    WORD noteClass = 0;
};

class CollectionTest : public storage_test::StorageTest {
protected:
    void SetUp() override
    {
        StorageTest::SetUp();
        db = createAndOpen("views.nsf");
    }
    void TearDown() override
    {
        NSFDbClose(db);
        StorageTest::TearDown();
    }

    // A view (flags without 'F') or folder note; `selection` is a formula text, "" for none.
    NOTEID addDesign(const std::string& title, const std::string& flags, const std::vector<Column>& columns,
                     const std::string& selection = "", WORD tableFlags = 0)
    {
        Format format;
        format.flags = tableFlags;
        format.columns = columns;
        std::vector<char> value = sim::viewformat::encode(format);
        NOTEHANDLE note = NULLHANDLE;
        EXPECT_EQ(NSFNoteCreate(db, &note), NOERROR);
        WORD viewClass = NOTE_CLASS_VIEW;
        NSFNoteSetInfo(note, _NOTE_CLASS, &viewClass);
        setText(note, "$TITLE", title);
        setText(note, "$Flags", flags);
        append(note, "$ViewFormat", TYPE_VIEW_FORMAT, value.data(), static_cast<DWORD>(value.size()));
        if (!selection.empty()) {
            std::vector<char> formula = compiled(selection);
            append(note, "$FORMULA", TYPE_FORMULA, formula.data(), static_cast<DWORD>(formula.size()));
        }
        return saveAndClose(note);
    }
    NOTEID addFolder(const std::string& title) { return addDesign(title, "F", {column("Subject", "Subject")}); }

    // A memo with a subject and a sender; `parent` makes it a response.
    NOTEID addMemo(const std::string& subject, const std::string& from = "Ann", NOTEID parent = 0)
    {
        NOTEHANDLE note = newNote(db);
        setText(note, "Form", parent ? "Reply" : "Memo");
        setText(note, "Subject", subject);
        setText(note, "From", from);
        if (parent != 0)
            setParent(note, parent);
        return saveAndClose(note);
    }

    NOTEID saveAndClose(NOTEHANDLE note)
    {
        EXPECT_EQ(NSFNoteUpdate(note, 0), NOERROR);
        NOTEID id = 0;
        NSFNoteGetInfo(note, _NOTE_ID, &id);
        EXPECT_EQ(NSFNoteClose(note), NOERROR);
        return id;
    }

    void setParent(NOTEHANDLE note, NOTEID parent)
    {
        ORIGINATORID oid{};
        NOTEHANDLE parentNote = NULLHANDLE;
        ASSERT_EQ(NSFNoteOpen(db, parent, 0, &parentNote), NOERROR);
        NSFNoteGetInfo(parentNote, _NOTE_OID, &oid);
        NSFNoteClose(parentNote);
        std::vector<char> ref(sizeof(LIST) + sizeof(UNID));
        LIST list{1};
        std::memcpy(ref.data(), &list, sizeof list);
        std::memcpy(ref.data() + sizeof list, &oid, sizeof(UNID));
        append(note, "$REF", TYPE_NOTEREF_LIST, ref.data(), static_cast<DWORD>(ref.size()));
    }

    STATUS fileIn(NOTEID folder, const std::vector<NOTEID>& ids)
    {
        DHANDLE table = NULLHANDLE;
        EXPECT_EQ(IDCreateTable(0, &table), NOERROR);
        for (NOTEID id : ids)
            IDInsert(table, id, nullptr);
        STATUS status = FolderDocAdd(db, NULLHANDLE, folder, table, 0);
        IDDestroyTable(table);
        return status;
    }

    HCOLLECTION open(NOTEID view)
    {
        HCOLLECTION collection = 0;
        EXPECT_EQ(NIFOpenCollection(db, db, view, 0, NULLHANDLE, &collection, nullptr, nullptr, nullptr, nullptr),
                  NOERROR);
        return collection;
    }

    // Every entry, read from position 0 with NEXT as the folder filter reads.
    std::vector<Entry> entries(HCOLLECTION collection)
    {
        std::vector<Entry> out;
        COLLECTIONPOSITION position{};
        WORD signals = sim::nif::kSignalMoreToDo;
        while (signals & sim::nif::kSignalMoreToDo) {
            DHANDLE buffer = NULLHANDLE;
            DWORD returned = 0;
            EXPECT_EQ(NIFReadEntries(collection, &position, sim::nif::kNavigateNext, 1, sim::nif::kNavigateNext,
                                     0xFFFFFFFF, sim::nif::kReadNoteId | sim::nif::kReadNoteClass, &buffer, nullptr,
                                     nullptr, &returned, &signals),
                      NOERROR);
            if (buffer == NULLHANDLE)
                break;
            const char* bytes = static_cast<const char*>(OSLockObject(buffer));
            for (DWORD i = 0; i < returned; ++i) {
                Entry entry;
                std::memcpy(&entry.id, bytes + 6 * i, 4);
                std::memcpy(&entry.noteClass, bytes + 6 * i + 4, 2);
                out.push_back(entry);
            }
            OSUnlockObject(buffer);
            OSMemFree(buffer);
        }
        return out;
    }
    std::vector<NOTEID> ids(HCOLLECTION collection)
    {
        std::vector<NOTEID> out;
        for (const Entry& entry : entries(collection))
            out.push_back(entry.id);
        return out;
    }

    DBHANDLE db = NULLHANDLE;
};

} // namespace nif_test

#endif
