// NIFFindDesignNoteExt: titles and aliases, classes and the views-and-folders pattern.
#include "nif_support.h"

namespace {

constexpr const char* kViewsAndFolders = "-G40n^";

class FindDesignNote : public nif_test::CollectionTest {
protected:
    STATUS find(const char* name, NOTEID& id, WORD noteClass = NOTE_CLASS_VIEW, const char* pattern = kViewsAndFolders)
    {
        id = 0;
        return NIFFindDesignNoteExt(db, name, noteClass, pattern, &id, 0);
    }
};

TEST_F(FindDesignNote, FindsByTitleOrAnyAliasIgnoringCase)
{
    NOTEID inbox = addDesign("($Inbox)|$Inbox", "F", {nif_test::column("Subject", "Subject")});
    NOTEID all = addDesign("All Documents | ($All) | everything", "", {nif_test::column("Subject", "Subject")});
    NOTEID id = 0;
    EXPECT_EQ(find("($Inbox)", id), NOERROR);
    EXPECT_EQ(id, inbox);
    EXPECT_EQ(find("$inbox", id), NOERROR);
    EXPECT_EQ(id, inbox);
    EXPECT_EQ(find("($ALL)", id), NOERROR);
    EXPECT_EQ(id, all);
    EXPECT_EQ(find("Everything", id), NOERROR);
    EXPECT_EQ(id, all);
    EXPECT_EQ(find("All", id), ERR_NOT_FOUND) << "a part of a name is not a name";
    EXPECT_EQ(find("Inbox", id), ERR_NOT_FOUND);
}

TEST_F(FindDesignNote, PatternKeepsViewsAndFoldersOnly)
{
    std::vector<nif_test::Column> columns = {nif_test::column("Subject", "Subject")};
    addDesign("Map", "G", columns);          // navigator
    addDesign("SharedCol", "P^Y", columns);  // shared column
    addDesign("Hidden", "n", columns);       // hidden from Notes
    NOTEID folder = addDesign("Projects\\Alpha", "F", columns);
    NOTEID id = 0;
    for (const char* excluded : {"Map", "SharedCol", "Hidden"}) {
        EXPECT_EQ(find(excluded, id), ERR_NOT_FOUND) << excluded;
        EXPECT_EQ(find(excluded, id, NOTE_CLASS_VIEW, ""), NOERROR) << excluded << " without a pattern";
    }
    EXPECT_EQ(find("projects\\alpha", id), NOERROR);
    EXPECT_EQ(id, folder);
    EXPECT_EQ(find("Map", id, NOTE_CLASS_VIEW, "+G"), NOERROR);
    EXPECT_EQ(find("Projects\\Alpha", id, NOTE_CLASS_VIEW, "*FG"), ERR_NOT_FOUND);
    EXPECT_EQ(find("Projects\\Alpha", id, NOTE_CLASS_VIEW, "(+F)"), sim::STS_UNSUPPORTED);
}

TEST_F(FindDesignNote, OtherClassesDocumentsAndDeletedNotesAreNotFound)
{
    NOTEID view = addDesign("Memos", "", {nif_test::column("Subject", "Subject")});
    NOTEHANDLE form = newNote(db);
    WORD formClass = NOTE_CLASS_FORM;
    NSFNoteSetInfo(form, _NOTE_CLASS, &formClass);
    setText(form, "$TITLE", "Memo");
    saveAndClose(form);
    NOTEHANDLE document = newNote(db);
    setText(document, "$TITLE", "Stray");
    saveAndClose(document);
    NOTEID id = 0;
    EXPECT_EQ(find("Memo", id), ERR_NOT_FOUND);
    EXPECT_EQ(find("Memo", id, NOTE_CLASS_FORM, ""), NOERROR);
    EXPECT_EQ(find("Stray", id, NOTE_CLASS_ALL, ""), ERR_NOT_FOUND);
    ASSERT_EQ(NSFNoteDelete(db, view, 0), NOERROR);
    EXPECT_EQ(find("Memos", id), ERR_NOT_FOUND);
}

TEST_F(FindDesignNote, RefusesBadArguments)
{
    NOTEID id = 0;
    EXPECT_EQ(NIFFindDesignNoteExt(NULLHANDLE, "x", NOTE_CLASS_VIEW, kViewsAndFolders, &id, 0), ERR_NULL_DBHANDLE);
    EXPECT_EQ(NIFFindDesignNoteExt(db, nullptr, NOTE_CLASS_VIEW, kViewsAndFolders, &id, 0), sim::STS_BAD_ARGUMENT);
    EXPECT_EQ(NIFFindDesignNoteExt(db, "x", NOTE_CLASS_VIEW, kViewsAndFolders, &id, 1), sim::STS_UNSUPPORTED);
}

} // namespace
