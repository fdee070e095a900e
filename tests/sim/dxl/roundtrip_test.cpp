// Round trips through DXL: every note of a seeded mail file, and the real DXL
// documents and attachment-bearing database exports of the shared real data.
#include <gtest/gtest.h>

#include <libxml/parser.h>
#include <libxml/tree.h>
#include <libxml/valid.h>

#include <filesystem>
#include <map>

#include "sim/dxl/dxl_support.h"
#include "sim/support/seed_support.h"

namespace {

using namespace dxl_test;
namespace fs = std::filesystem;

constexpr int kDesignImportOption = 2;
constexpr int kCreate = 2;

std::string sharedRealData()
{
    std::string dir = std::string(HYLN_TEST_SHARED_DIR) + "/realdata";
    return fs::is_directory(dir) ? dir : std::string();
}

class SeededMailRoundTrip : public ::testing::Test {
protected:
    static void SetUpTestSuite()
    {
        dataDir = seed_test::seededDirectory("dxl", "--users 3 --messages 40 --attachment-size 2000 --seed 11");
    }
    void SetUp() override { ASSERT_EQ(seed_test::startRuntimeOn(dataDir), NOERROR); }
    void TearDown() override { NotesTerm(); }

    static std::string mailFile()
    {
        for (const auto& entry : fs::recursive_directory_iterator(dataDir + "/mail"))
            if (entry.path().extension() == ".nsf")
                return fs::relative(entry.path(), dataDir).string();
        return std::string();
    }

    static std::string dataDir;
};
std::string SeededMailRoundTrip::dataDir;

TEST_F(SeededMailRoundTrip, EveryNoteComesBackItemByItem)
{
    std::string path = mailFile();
    ASSERT_FALSE(path.empty());
    DBHANDLE source = NULLHANDLE, target = NULLHANDLE;
    ASSERT_EQ(NSFDbOpen(path.c_str(), &source), NOERROR);
    // Notes cannot be deleted in this runtime yet, so they go into a fresh database.
    ASSERT_EQ(NSFDbCreate("roundtrip.nsf", DBCLASS_NOTEFILE, FALSE), NOERROR);
    ASSERT_EQ(NSFDbOpen("roundtrip.nsf", &target), NOERROR);
    DXLEXPORTHANDLE exporter = NULLHANDLE;
    DXLIMPORTHANDLE importer = NULLHANDLE;
    ASSERT_EQ(DXLCreateExporter(&exporter), NOERROR);
    ASSERT_EQ(DXLCreateImporter(&importer), NOERROR);
    ASSERT_EQ(setImportOption(importer, kDesignImportOption, kCreate), NOERROR);
    std::vector<NOTEID> ids = noteIds(source);
    ASSERT_GT(ids.size(), 40u);
    size_t attachments = 0, designNotes = 0;
    for (NOTEID id : ids) {
        std::string dxl;
        ASSERT_EQ(exportNoteId(exporter, source, id, dxl), NOERROR) << resultLog(exporter);
        ASSERT_EQ(importText(importer, target, dxl), NOERROR) << resultLog(importer) << dxl.substr(0, 400);
        std::vector<ItemDump> before = itemsOf(source, id);
        std::vector<ItemDump> after = itemsByUnid(target, unidOf(source, id));
        ASSERT_EQ(after.size(), before.size()) << "note " << id;
        for (size_t i = 0; i < before.size(); ++i) {
            EXPECT_EQ(after[i], before[i]) << "note " << id << " item " << i;
            attachments += before[i].type == TYPE_OBJECT && !before[i].objectBytes.empty();
        }
        WORD noteClass = 0;
        ASSERT_EQ(NSFDbGetNoteInfo(source, id, nullptr, nullptr, &noteClass), NOERROR);
        designNotes += noteClass != NOTE_CLASS_DOCUMENT;
    }
    EXPECT_GT(attachments, 0u) << "the seed should attach files to some memos";
    EXPECT_GT(designNotes, 0u);
    EXPECT_EQ(noteIds(target).size(), ids.size());
    DXLDeleteExporter(exporter);
    DXLDeleteImporter(importer);
    NSFDbClose(source);
    NSFDbClose(target);
}

TEST_F(SeededMailRoundTrip, ExportedDocumentsAreValidAgainstTheDtd)
{
    std::string real = sharedRealData();
    if (real.empty() || !fs::exists(real + "/schema/domino_9_0_1.dtd"))
        GTEST_SKIP() << "the shared DTD is not present";
    xmlDtd* dtd = xmlParseDTD(nullptr, reinterpret_cast<const xmlChar*>((real + "/schema/domino_9_0_1.dtd").c_str()));
    ASSERT_NE(dtd, nullptr);
    DBHANDLE source = NULLHANDLE;
    ASSERT_EQ(NSFDbOpen(mailFile().c_str(), &source), NOERROR);
    DXLEXPORTHANDLE exporter = NULLHANDLE;
    ASSERT_EQ(DXLCreateExporter(&exporter), NOERROR);
    xmlValidCtxt* validation = xmlNewValidCtxt();
    for (NOTEID id : noteIds(source)) {
        std::string dxl;
        ASSERT_EQ(exportNoteId(exporter, source, id, dxl), NOERROR);
        xmlDoc* doc = xmlReadMemory(dxl.data(), static_cast<int>(dxl.size()), nullptr, nullptr, XML_PARSE_NONET);
        ASSERT_NE(doc, nullptr);
        EXPECT_EQ(xmlValidateDtd(validation, doc, dtd), 1) << dxl.substr(0, 600);
        xmlFreeDoc(doc);
    }
    xmlFreeValidCtxt(validation);
    xmlFreeDtd(dtd);
    DXLDeleteExporter(exporter);
    NSFDbClose(source);
}

// Real DXL from the shared folder (read in place, never copied).
class RealDxl : public ::testing::Test {
protected:
    void SetUp() override
    {
        real = sharedRealData();
        if (real.empty())
            GTEST_SKIP() << "the shared real data is not present";
        dataDir = seed_test::freshDirectory("dxl-real");
        std::ofstream(dataDir + "/notes.ini") << "[Notes]\nDirectory=" << dataDir << "\n";
        ASSERT_EQ(seed_test::startRuntimeOn(dataDir), NOERROR);
    }
    void TearDown() override
    {
        if (!real.empty())
            NotesTerm();
    }

    DBHANDLE freshDatabase(const std::string& name)
    {
        DBHANDLE db = NULLHANDLE;
        EXPECT_EQ(NSFDbCreate(name.c_str(), DBCLASS_NOTEFILE, FALSE), NOERROR);
        EXPECT_EQ(NSFDbOpen(name.c_str(), &db), NOERROR);
        return db;
    }

    // Imports a file, re-exports every document, imports that into a second database
    // and compares the two item by item; also checks that the re-export names the
    // items the original names.
    void roundTrip(const std::string& relative)
    {
        SCOPED_TRACE(relative);
        std::string original = readFile(real + "/" + relative);
        ASSERT_FALSE(original.empty());
        std::string tag = std::to_string(counter++);
        DBHANDLE first = freshDatabase("first" + tag + ".nsf");
        DBHANDLE second = freshDatabase("second" + tag + ".nsf");
        DXLIMPORTHANDLE importer = NULLHANDLE;
        DXLEXPORTHANDLE exporter = NULLHANDLE;
        ASSERT_EQ(DXLCreateImporter(&importer), NOERROR);
        ASSERT_EQ(DXLCreateExporter(&exporter), NOERROR);
        ASSERT_EQ(importText(importer, first, original), NOERROR) << resultLog(importer);
        std::vector<NOTEID> ids = noteIds(first);
        ASSERT_EQ(ids.size(), documentItemNames(original).size());
        std::map<std::string, std::vector<std::string>> wanted = documentItemNames(original);
        for (NOTEID id : ids) {
            std::string again;
            ASSERT_EQ(exportNoteId(exporter, first, id, again), NOERROR) << resultLog(exporter);
            std::map<std::string, std::vector<std::string>> names = documentItemNames(again);
            ASSERT_EQ(names.size(), 1u);
            // A document without a UNID in the DXL got a new one.
            auto expected = wanted.size() == 1 ? wanted.begin() : wanted.find(names.begin()->first);
            ASSERT_NE(expected, wanted.end()) << names.begin()->first;
            EXPECT_EQ(names.begin()->second, expected->second);
            ASSERT_EQ(importText(importer, second, again), NOERROR) << resultLog(importer);
            UNID unid = unidOf(first, id);
            EXPECT_EQ(itemsByUnid(second, unid), itemsOf(first, id));
        }
        DXLDeleteImporter(importer);
        DXLDeleteExporter(exporter);
        NSFDbClose(first);
        NSFDbClose(second);
    }

    // Item names per document (by UNID), with Form first when only the form attribute names it.
    static std::map<std::string, std::vector<std::string>> documentItemNames(const std::string& text)
    {
        std::map<std::string, std::vector<std::string>> out;
        xmlDoc* doc = xmlReadMemory(text.data(), static_cast<int>(text.size()), nullptr, nullptr, XML_PARSE_NONET | XML_PARSE_HUGE);
        if (doc == nullptr)
            return out;
        xmlNode* root = xmlDocGetRootElement(doc);
        std::vector<xmlNode*> documents;
        if (xmlStrcmp(root->name, BAD_CAST "database") == 0) {
            for (xmlNode* n = root->children; n != nullptr; n = n->next)
                if (n->type == XML_ELEMENT_NODE && xmlStrcmp(n->name, BAD_CAST "document") == 0)
                    documents.push_back(n);
        } else {
            documents.push_back(root);
        }
        int anonymous = 0;
        for (xmlNode* document : documents) {
            std::string key = "#" + std::to_string(anonymous++);
            std::vector<std::string> names;
            bool form = false;
            size_t prolog = 0;
            for (xmlNode* n = document->children; n != nullptr; n = n->next) {
                if (n->type != XML_ELEMENT_NODE)
                    continue;
                if (xmlStrcmp(n->name, BAD_CAST "noteinfo") == 0) {
                    xmlChar* unid = xmlGetProp(n, BAD_CAST "unid");
                    if (unid != nullptr)
                        key = reinterpret_cast<char*>(unid);
                    xmlFree(unid);
                } else if (xmlStrcmp(n->name, BAD_CAST "item") == 0) {
                    xmlChar* name = xmlGetProp(n, BAD_CAST "name");
                    names.push_back(reinterpret_cast<char*>(name));
                    form = form || names.back() == "Form";
                    xmlFree(name);
                } else if (xmlStrcmp(n->name, BAD_CAST "updatedby") == 0) {
                    names.push_back("$UpdatedBy");
                    ++prolog;
                } else if (xmlStrcmp(n->name, BAD_CAST "revisions") == 0) {
                    names.push_back("$Revisions");
                    ++prolog;
                }
            }
            if (!form && xmlHasProp(document, BAD_CAST "form"))
                names.insert(names.begin() + static_cast<long>(prolog), "Form");
            for (char& c : key)
                c = static_cast<char>(std::toupper(static_cast<unsigned char>(c)));
            out[key] = names;
        }
        xmlFreeDoc(doc);
        return out;
    }

    std::string real;
    std::string dataDir;
    int counter = 0;
};

TEST_F(RealDxl, SingleDocumentsImportAndExportTheSameItems)
{
    for (const char* file : {"dxl-documents/domino-jnx/basicnote.xml",
                             "dxl-documents/domino-jnx/testJsonSerialization/basicnote.xml",
                             "dxl-documents/domino-jnx/testJsonSerialization/spam.xml",
                             "dxl-documents/domino-jnx/testDocumentInvalidCreationDate/invaliddoc.xml",
                             "dxl-documents/domino-jnx/testUserData/userdatadoc.xml",
                             "dxl-documents/domino-jnx/testV1discuss/2294.xml",
                             "dxl-documents/domino-jnx/testDocumentSelection/document.xml",
                             "dxl-documents/domino-jnx/testHtmlRendering/document.xml"})
        roundTrip(file);
}

TEST_F(RealDxl, DatabaseExportsWithAttachmentsImportAndExportTheSameItems)
{
    for (const char* file : {"dxl-databases/plomino/test_binary_1.xml", "dxl-databases/plomino/test_binaries.xml",
                             "dxl-databases/plomino/test1.xml", "dxl-databases/plomino/test_100docs.xml"})
        roundTrip(file);
}

TEST_F(RealDxl, AttachmentBytesAreTheFileData)
{
    DBHANDLE db = freshDatabase("binary.nsf");
    DXLIMPORTHANDLE importer = NULLHANDLE;
    ASSERT_EQ(DXLCreateImporter(&importer), NOERROR);
    ASSERT_EQ(importText(importer, db, readFile(real + "/dxl-databases/plomino/test_binary_1.xml")), NOERROR);
    std::vector<NOTEID> ids = noteIds(db);
    ASSERT_EQ(ids.size(), 1u);
    bool found = false;
    for (const ItemDump& item : itemsOf(db, ids[0]))
        if (item.name == "$FILE") {
            found = true;
            // A PNG file: its signature, and the size the file object records.
            EXPECT_EQ(item.objectBytes.substr(0, 8), std::string("\x89PNG\r\n\x1a\n", 8));
            DWORD size = 0;
            std::memcpy(&size, item.value.data() + 18, sizeof size);
            EXPECT_EQ(size, item.objectBytes.size());
            EXPECT_EQ(item.value.substr(38), "overlord59-tux-samourai-1773.png");
            EXPECT_EQ(item.flags, ITEM_SUMMARY | ITEM_SIGN | ITEM_SEAL);
        }
    EXPECT_TRUE(found);
    DXLDeleteImporter(importer);
    NSFDbClose(db);
}

TEST_F(RealDxl, MalformedFilesFailAndLeaveTheDatabaseAlone)
{
    DBHANDLE db = freshDatabase("bad.nsf");
    NOTEHANDLE note = NULLHANDLE;
    ASSERT_EQ(NSFNoteCreate(db, &note), NOERROR);
    ASSERT_EQ(NSFItemSetText(note, "Subject", "kept", 4), NOERROR);
    ASSERT_EQ(NSFNoteUpdate(note, 0), NOERROR);
    NSFNoteClose(note);
    TIMEDATE modifiedBefore{}, nonData{};
    ASSERT_EQ(NSFDbModifiedTime(db, &modifiedBefore, &nonData), NOERROR);
    DXLIMPORTHANDLE importer = NULLHANDLE;
    ASSERT_EQ(DXLCreateImporter(&importer), NOERROR);
    struct Case {
        const char* file;
        const char* logged;
    };
    for (const Case& bad : {Case{"dxl-databases/plomino/dxlDatabaseBadXML.xml",
                                 "<error line=\"15\">XML: Opening and ending tag mismatch: designmodified line 12 and "
                                 "databaseinfo</error>"},
                            Case{"dxl-databases/plomino/dxlDatabaseBadDXL.xml",
                                 "<error line=\"21\">unknown element 'views' in &lt;database&gt;</error>"}}) {
        EXPECT_EQ(importText(importer, db, readFile(real + "/" + bad.file)), sim::STS_DXL_IMPORT_FAILED) << bad.file;
        std::string log = resultLog(importer);
        EXPECT_NE(log.find("<DXLImporterLog>"), std::string::npos) << log;
        EXPECT_NE(log.find(bad.logged), std::string::npos) << log;
    }
    EXPECT_EQ(noteIds(db).size(), 1u);
    TIMEDATE modifiedAfter{};
    ASSERT_EQ(NSFDbModifiedTime(db, &modifiedAfter, &nonData), NOERROR);
    EXPECT_EQ(modifiedAfter.Innards[0], modifiedBefore.Innards[0]);
    EXPECT_EQ(modifiedAfter.Innards[1], modifiedBefore.Innards[1]);
    DXLDeleteImporter(importer);
    NSFDbClose(db);
}

} // namespace
