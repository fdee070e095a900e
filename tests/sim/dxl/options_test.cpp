// The importer's options and the ACL export, through the C API.
#include <gtest/gtest.h>

#include "sim/dxl/dxl_support.h"
#include "sim/support/storage_fixture.h"

namespace {

using namespace dxl_test;

constexpr int kDocumentsImportOption = 3;
constexpr int kReplicaRequired = 7;
constexpr int kUnknownTokenLogOption = 9;

class DxlOptions : public storage_test::StorageTest {
protected:
    void SetUp() override
    {
        StorageTest::SetUp();
        db = createAndOpen("options.nsf");
        ASSERT_EQ(DXLCreateImporter(&importer), NOERROR);
        ASSERT_EQ(DXLCreateExporter(&exporter), NOERROR);
        NOTEHANDLE note = newNote(db);
        setText(note, "Subject", "original");
        setText(note, "Kept", "only in the database");
        ASSERT_EQ(NSFNoteUpdate(note, 0), NOERROR);
        NSFNoteGetInfo(note, _NOTE_ID, &id);
        ASSERT_EQ(exportNote(exporter, note, dxl), NOERROR);
        NSFNoteClose(note);
    }
    void TearDown() override
    {
        DXLDeleteImporter(importer);
        DXLDeleteExporter(exporter);
        NSFDbClose(db);
        StorageTest::TearDown();
    }

    // The exported note with its Subject changed and its Kept item gone.
    std::string edited(const std::string& replicaId = std::string()) const
    {
        std::string text = dxl;
        text.replace(text.find(">original<"), 10, ">edited<");
        size_t kept = text.find("<item name=\"Kept\"");
        text.erase(kept, text.find("</item>", kept) + 7 - kept);
        if (!replicaId.empty()) {
            size_t at = text.find("replicaid=\"") + 11;
            text.replace(at, 16, replicaId);
        }
        return text;
    }

    std::string subjectOf(NOTEID note) const
    {
        NOTEHANDLE handle = NULLHANDLE;
        EXPECT_EQ(NSFNoteOpen(db, note, 0, &handle), NOERROR);
        std::string result = text(handle, "Subject") + "|" + text(handle, "Kept");
        NSFNoteClose(handle);
        return result;
    }

    DBHANDLE db = NULLHANDLE;
    DXLIMPORTHANDLE importer = NULLHANDLE;
    DXLEXPORTHANDLE exporter = NULLHANDLE;
    NOTEID id = 0;
    std::string dxl;
};

TEST_F(DxlOptions, EachDocumentsOptionTreatsAnExistingNoteAsPublished)
{
    struct Case {
        int option;
        size_t notes;
        std::string original;
    };
    // Same replica: replace drops Kept, update keeps it, create adds a note with a new UNID.
    const Case cases[] = {{1, 1, "original|only in the database"}, {2, 2, "original|only in the database"},
                          {3, 1, "original|only in the database"}, {5, 1, "edited|"},
                          {6, 1, "edited|"},                       {9, 1, "edited|only in the database"},
                          {10, 1, "edited|only in the database"}};
    for (const Case& c : cases) {
        SCOPED_TRACE(c.option);
        TearDown();
        SetUp();
        ASSERT_EQ(setImportOption(importer, kDocumentsImportOption, c.option), NOERROR);
        ASSERT_EQ(importText(importer, db, edited()), NOERROR) << resultLog(importer);
        EXPECT_EQ(noteIds(db).size(), c.notes);
        EXPECT_EQ(subjectOf(id), c.original);
    }
    for (int reserved : {0, 4, 7, 8, 11, 12})
        EXPECT_EQ(setImportOption(importer, kDocumentsImportOption, reserved), sim::STS_BAD_ARGUMENT) << reserved;
}

TEST_F(DxlOptions, ReplicaRequirementDecidesWhetherAnotherReplicaMayReplace)
{
    ASSERT_EQ(setImportOption(importer, kDocumentsImportOption, 5), NOERROR);
    // Another replica's DXL, replica required (the default): the note counts as absent.
    ASSERT_EQ(importText(importer, db, edited("0123456789ABCDEF")), NOERROR);
    EXPECT_EQ(subjectOf(id), "original|only in the database");
    ASSERT_EQ(setImportOption(importer, kDocumentsImportOption, 6), NOERROR);
    ASSERT_EQ(importText(importer, db, edited("0123456789ABCDEF")), NOERROR);
    EXPECT_EQ(noteIds(db).size(), 2u);
    EXPECT_EQ(subjectOf(id), "original|only in the database");
    ASSERT_EQ(setImportOption(importer, kReplicaRequired, 0), NOERROR);
    ASSERT_EQ(importText(importer, db, edited("0123456789ABCDEF")), NOERROR);
    EXPECT_EQ(subjectOf(id), "edited|");
    EXPECT_EQ(noteIds(db).size(), 2u);
}

TEST_F(DxlOptions, UnknownElementsFailUnlessTheLogOptionLetsThemPass)
{
    std::string text = dxl;
    text.insert(text.find("<item "), "<gadget/>");
    EXPECT_EQ(importText(importer, db, text), sim::STS_DXL_IMPORT_FAILED);
    EXPECT_NE(resultLog(importer).find("unknown element 'gadget' in &lt;document&gt;"), std::string::npos)
        << resultLog(importer);
    EXPECT_EQ(noteIds(db).size(), 1u);
    ASSERT_EQ(setImportOption(importer, kUnknownTokenLogOption, 2), NOERROR);
    ASSERT_EQ(setImportOption(importer, kDocumentsImportOption, 2), NOERROR);
    EXPECT_EQ(importText(importer, db, text), NOERROR);
    EXPECT_NE(resultLog(importer).find("<warning>line 3: unknown element 'gadget' in &lt;document&gt; skipped</warning>"),
              std::string::npos)
        << resultLog(importer);
    EXPECT_EQ(noteIds(db).size(), 2u);
    // Items the runtime cannot take are errors, never skipped.
    std::string formula = dxl;
    formula.insert(formula.find("<item "), "<item name=\"F\"><formula>@Now</formula></item>");
    EXPECT_EQ(importText(importer, db, formula), sim::STS_DXL_IMPORT_FAILED);
    EXPECT_NE(resultLog(importer).find("formula items cannot be compiled"), std::string::npos);
    EXPECT_EQ(noteIds(db).size(), 2u);
}

TEST_F(DxlOptions, ExportPropertiesShapeTheOutput)
{
    int off = 0;
    ASSERT_EQ(DXLSetExporterProperty(exporter, 33, &off), NOERROR);
    ASSERT_EQ(DXLSetExporterProperty(exporter, 34, &off), NOERROR);
    EXPECT_EQ(DXLSetExporterProperty(exporter, 1, &off), sim::STS_BAD_ARGUMENT);
    int utf16 = 1;
    EXPECT_EQ(DXLSetExporterProperty(exporter, 5, &utf16), sim::STS_UNSUPPORTED);
    std::string text;
    ASSERT_EQ(exportNoteId(exporter, db, id, text), NOERROR);
    EXPECT_EQ(text.rfind("<document xmlns=\"http://www.lotus.com/dxl\"", 0), 0u) << text.substr(0, 200);
    EXPECT_EQ(dxl.rfind("<?xml version='1.0' encoding='utf-8'?>\n<!DOCTYPE document SYSTEM", 0), 0u)
        << dxl.substr(0, 200);
    int on = 1;
    ASSERT_EQ(DXLSetExporterProperty(exporter, 30, &on), NOERROR);
    ASSERT_EQ(exportNoteId(exporter, db, id, text), NOERROR);
    EXPECT_NE(text.find("<note xmlns=\"http://www.lotus.com/dxl\""), std::string::npos);
    EXPECT_NE(text.find("class=\"document\""), std::string::npos);
}

TEST_F(DxlOptions, AclExportListsTheEntries)
{
    std::string text;
    ASSERT_EQ(DXLExportACL(exporter, appendChunk, db, &text), NOERROR);
    EXPECT_NE(text.find("<aclentry name=\"-Default-\" default=\"true\" level=\"designer\"/>"), std::string::npos) << text;
    EXPECT_NE(text.find("<aclentry name=\"LocalDomainServers\" level=\"manager\"/>"), std::string::npos) << text;
    EXPECT_EQ(DXLExportACL(exporter, appendChunk, NULLHANDLE, &text), ERR_NULL_DBHANDLE);
}

} // namespace
