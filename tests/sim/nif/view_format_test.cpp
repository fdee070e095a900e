// $ViewFormat values: the encoder's layout, and real view notes imported as DXL and
// decoded (the expected names, titles and flags were read off the designs).
#include <filesystem>

#include "nif_support.h"
#include "sim/dxl/dxl_support.h"

namespace {

using sim::viewformat::decode;
using sim::viewformat::encode;
using sim::viewformat::Format;

template <class T>
T at(const std::vector<char>& bytes, size_t offset)
{
    T value;
    std::memcpy(&value, bytes.data() + offset, sizeof value);
    return value;
}

TEST(ViewFormatCodec, EncodesThePublishedLayout)
{
    Format format;
    format.flags = 0x0008;
    format.columns = {nif_test::column("From", "Who", 0x0003), nif_test::column("$1", "", 0x0010)};
    format.columns[1].constantValue = {'x'};
    std::vector<char> bytes = encode(format);
    ASSERT_EQ(bytes.size(), 10u + 2 * 32 + 4 + 3 + 2 + 1);
    EXPECT_EQ(bytes[0], 1) << "version";
    EXPECT_EQ(at<WORD>(bytes, 2), 2) << "columns";
    EXPECT_EQ(at<WORD>(bytes, 6), 0x0008) << "table flags";
    EXPECT_EQ(at<WORD>(bytes, 10), 0x4356);
    EXPECT_EQ(at<WORD>(bytes, 12), 0x0003);
    EXPECT_EQ(at<WORD>(bytes, 14), 4) << "item name size";
    EXPECT_EQ(at<WORD>(bytes, 16), 3) << "title size";
    EXPECT_EQ(at<WORD>(bytes, 42), 0x4356) << "the second descriptor, 32 bytes on";
    EXPECT_EQ(at<WORD>(bytes, 42 + 10), 1) << "constant value size";
    EXPECT_EQ(std::string(bytes.data() + 74, 7), "FromWho");
    Format back;
    ASSERT_TRUE(decode(bytes.data(), bytes.size(), back));
    EXPECT_EQ(encode(back), bytes);
    EXPECT_EQ(back.columns[1].itemName, "$1");
    EXPECT_EQ(back.columns[1].formula, format.columns[1].formula);
}

TEST(ViewFormatCodec, RefusesShortOrForeignValues)
{
    Format format;
    format.columns = {nif_test::column("Subject", "Subject")};
    std::vector<char> bytes = encode(format);
    Format out;
    EXPECT_FALSE(decode(bytes.data(), bytes.size() - 1, out)) << "a title cut short";
    EXPECT_FALSE(decode(bytes.data(), 9, out));
    bytes[10] = 'X';
    EXPECT_FALSE(decode(bytes.data(), bytes.size(), out)) << "a column without its signature";
}

struct Expected {
    const char* file;
    const char* item;
    WORD tableFlags;
    std::vector<WORD> flags;
    std::vector<std::string> names;
    std::vector<std::string> titles;
};

class RealViewFormat : public nif_test::CollectionTest {
protected:
    void SetUp() override
    {
        std::string designs = std::string(HYLN_TEST_SHARED_DIR) + "/realdata/dxl-design";
        if (!std::filesystem::exists(designs))
            GTEST_SKIP() << "the shared real data is not present";
        // The designs sit one folder down, in a folder named after their source.
        for (const auto& entry : std::filesystem::directory_iterator(designs))
            if (std::filesystem::exists(entry.path() / "testV1discuss"))
                base = entry.path().string() + "/";
        if (base.empty())
            GTEST_SKIP() << "the shared view designs are not present";
        CollectionTest::SetUp();
    }
    // Imports the view note and returns its $ViewFormat value (type word included).
    std::vector<char> imported(const std::string& file, const char* item, NOTEID& id)
    {
        DXLIMPORTHANDLE importer = NULLHANDLE;
        EXPECT_EQ(DXLCreateImporter(&importer), NOERROR);
        EXPECT_EQ(dxl_test::setImportOption(importer, 2, 2), NOERROR); // design notes: create
        EXPECT_EQ(dxl_test::importText(importer, db, dxl_test::readFile(base + file)), NOERROR)
            << dxl_test::resultLog(importer);
        DXLDeleteImporter(importer);
        EXPECT_EQ(NIFFindDesignNoteExt(db, titleOf(file).c_str(), NOTE_CLASS_VIEW, "", &id, 0), NOERROR) << file;
        NOTEHANDLE note = NULLHANDLE;
        EXPECT_EQ(NSFNoteOpen(db, id, 0, &note), NOERROR);
        std::vector<char> value = itemBytes(note, item);
        NSFNoteClose(note);
        return value;
    }
    std::string titleOf(const std::string& file)
    {
        std::string text = dxl_test::readFile(base + file);
        size_t start = text.find("<text>", text.find("name='$TITLE'")) + 6;
        return nif_test::firstDesignName(text.substr(start, text.find("</text>", start) - start));
    }
    std::string base;
};

TEST_F(RealViewFormat, DecodesColumnsAsTheDesignsHaveThem)
{
    const std::vector<Expected> expected = {
        {"testDbDesignCollections/col-test.xml", "$ViewFormat", 0x0008, {0x0000}, {"$0"}, {"#"}},
        {"testDbDesignCollections/view-coldeletion.xml", "$ViewFormat", 0x4088, {0, 0, 0, 0, 0, 0},
         {"$2", "$3", "$4", "$5", "$6", "Foo"},
         {"Shared Col to Delete", "Real col", "#", "Shared Col to Delete", "Real col 2", "I am test col 2"}},
        {"testDbDesignCollections/view-example.xml", "$ViewFormat", 0x78A8,
         {0x1603, 0x0820, 0x0388, 0x0100, 0x0001, 0x0000, 0x0000, 0x0410, 0x0000, 0x0000, 0x0048, 0x0400},
         {"Form", "$2", "$3", "$4", "$5", "$6", "Foo", "$9", "$8", "Foo", "SomeField", "$10"},
         {"Form", "Size", "Created", "Modified", "", "#", "", "Names Guy", "Names Guy 2", "", "Hidden Guy",
          "Column of constant value"}},
        {"testV1discuss/2202.xml", "$VIEWFORMAT", 0x0004, {0x0003, 0x0001, 0x0000, 0x0010, 0x0000},
         {"Categories", "$2", "$9", "$4", "$5"}, {"", "Date", "Rsp", "", "Topic"}},
    };
    for (const Expected& view : expected) {
        NOTEID id = 0;
        std::vector<char> value = imported(view.file, "$ViewFormat", id);
        ASSERT_GT(value.size(), 2u) << view.file;
        EXPECT_EQ(at<WORD>(value, 0), TYPE_VIEW_FORMAT);
        Format format;
        ASSERT_TRUE(decode(value.data() + 2, value.size() - 2, format)) << view.file;
        EXPECT_EQ(format.version, 1);
        EXPECT_EQ(format.flags, view.tableFlags) << view.file;
        ASSERT_EQ(format.columns.size(), view.flags.size()) << view.file;
        for (size_t i = 0; i < format.columns.size(); ++i) {
            EXPECT_EQ(format.columns[i].flags1, view.flags[i]) << view.file << " column " << i;
            EXPECT_EQ(format.columns[i].itemName, view.names[i]) << view.file << " column " << i;
            EXPECT_EQ(format.columns[i].title, view.titles[i]) << view.file << " column " << i;
        }
        EXPECT_EQ(encode(format), std::vector<char>(value.begin() + 2, value.end())) << "re-encoded " << view.file;
    }
}

TEST_F(RealViewFormat, ViewsWithFormulasCompiledElsewhereDoNotOpen)
{
    NOTEID id = 0;
    imported("testDbDesignCollections/view-example.xml", "$ViewFormat", id);
    HCOLLECTION collection = 0;
    EXPECT_EQ(NIFOpenCollection(db, db, id, 0, NULLHANDLE, &collection, nullptr, nullptr, nullptr, nullptr),
              sim::STS_UNSUPPORTED);
}

} // namespace
