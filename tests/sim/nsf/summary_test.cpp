// Summary buffers: byte layout, the 64 KB limit and the two lookup entry points.
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "sim_core.h"
#include "summary.h"

namespace {

std::vector<char> bytes(std::initializer_list<int> values)
{
    std::vector<char> out;
    for (int value : values)
        out.push_back(static_cast<char>(value));
    return out;
}

std::vector<char> subjectAndSize()
{
    sim::SummaryBuilder builder;
    builder.addText("Subject", "Hi");
    builder.addNumber("Size", 3.0);
    return builder.build();
}

} // namespace

TEST(SimCoreSummary, LayoutMatchesTheReferenceBytes)
{
    std::vector<char> expected = bytes({0x25, 0, 2, 0, 7, 0, 4, 0, 4, 0, 0x0A, 0});
    for (char c : std::string("Subject"))
        expected.push_back(c);
    for (char c : bytes({0, 5, 'H', 'i', 'S', 'i', 'z', 'e', 0, 3, 0, 0, 0, 0, 0, 0, 8, 0x40}))
        expected.push_back(c);
    EXPECT_EQ(subjectAndSize(), expected);

    sim::SummaryBuilder list;
    list.addTextList("L", {"Alpha", "Beta"});
    std::vector<char> built = list.build();
    std::vector<char> value(built.begin() + 9, built.end());
    std::vector<char> expectedValue = bytes({1, 5, 2, 0, 5, 0, 4, 0, 'A', 'l', 'p', 'h', 'a', 'B', 'e', 't', 'a'});
    EXPECT_EQ(value, expectedValue);
}

TEST(SimCoreSummary, ItemsPastTheSizeLimitAreLeftOut)
{
    sim::SummaryBuilder builder;
    std::string big(30000, 'x');
    builder.addText("A", big);
    builder.addText("B", big);
    builder.addText("C", big);
    builder.addText("D", "small");
    std::vector<char> buffer = builder.build();
    ITEM_TABLE table;
    std::memcpy(&table, buffer.data(), sizeof table);
    EXPECT_EQ(table.Items, 3);
    EXPECT_EQ(table.Length, buffer.size());
    char value[16];
    EXPECT_FALSE(NSFGetSummaryValue(buffer.data(), "C", value, sizeof value));
    EXPECT_TRUE(NSFGetSummaryValue(buffer.data(), "D", value, sizeof value));
    EXPECT_STREQ(value, "small");
}

TEST(SimCoreSummary, GetSummaryValueCopiesTextItemsOnly)
{
    std::vector<char> buffer = subjectAndSize();
    char value[8];
    std::memset(value, '#', sizeof value);
    ASSERT_TRUE(NSFGetSummaryValue(buffer.data(), "sUBJECT", value, sizeof value));
    EXPECT_STREQ(value, "Hi");
    ASSERT_TRUE(NSFGetSummaryValue(buffer.data(), "Subject", value, 2));
    EXPECT_STREQ(value, "H") << "the length counts the terminator";
    EXPECT_FALSE(NSFGetSummaryValue(buffer.data(), "Size", value, sizeof value));
    EXPECT_FALSE(NSFGetSummaryValue(buffer.data(), "Subj", value, sizeof value));
    EXPECT_FALSE(NSFGetSummaryValue(nullptr, "Subject", value, sizeof value));
}

TEST(SimCoreSummary, LocateSummaryValuePointsPastTheTypeWord)
{
    std::vector<char> buffer = subjectAndSize();
    void* data = nullptr;
    WORD length = 0, type = 0;
    ASSERT_TRUE(NSFLocateSummaryValue(buffer.data(), "size", &data, &length, &type));
    EXPECT_EQ(type, TYPE_NUMBER);
    EXPECT_EQ(length, 8);
    double number = 0;
    std::memcpy(&number, data, sizeof number);
    EXPECT_EQ(number, 3.0);
    EXPECT_FALSE(NSFLocateSummaryValue(buffer.data(), "Missing", &data, &length, &type));
}

TEST(SimCoreSummary, LengthsRunningPastTheBufferAreNotFollowed)
{
    std::vector<char> buffer = subjectAndSize();
    ITEM_TABLE table{20, 2}; // claims less than the names and values need
    std::memcpy(buffer.data(), &table, sizeof table);
    void* data = nullptr;
    EXPECT_FALSE(NSFLocateSummaryValue(buffer.data(), "Size", &data, nullptr, nullptr));
    table.Length = 23;
    std::memcpy(buffer.data(), &table, sizeof table);
    EXPECT_TRUE(NSFLocateSummaryValue(buffer.data(), "Subject", &data, nullptr, nullptr));
}
