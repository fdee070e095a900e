// ODS: canonical lengths, packing across host padding, and the pointer advance.
#include <gtest/gtest.h>

#include <cstring>
#include <vector>

#include "sim_core.h"

TEST(SimCoreOds, CanonicalLengths)
{
    const std::pair<WORD, WORD> expected[] = {{0, 2},  {1, 4},  {10, 8},  {15, 8},  {24, 54}, {26, 28},
                                              {27, 6}, {28, 16}, {29, 10}, {30, 32}, {42, 2},  {56, 20}};
    for (const auto& entry : expected)
        EXPECT_EQ(ODSLength(entry.first), entry.second) << entry.first;
    EXPECT_EQ(ODSLength(99), 0);
}

TEST(SimCoreOds, ColumnFormatsSkipTheHostPadding)
{
    // Two canonical column descriptors: bytes 0..13 then FontID at 14 (not 16).
    std::vector<unsigned char> canonical(64);
    for (size_t i = 0; i < canonical.size(); ++i)
        canonical[i] = static_cast<unsigned char>(i);
    const void* cursor = canonical.data();
    VIEW_COLUMN_FORMAT columns[2];
    std::memset(columns, 0xEE, sizeof columns);
    ODSReadMemory(&cursor, _VIEW_COLUMN_FORMAT, columns, 2);
    EXPECT_EQ(cursor, canonical.data() + 64);
    EXPECT_EQ(columns[0].Signature, 0x0100);
    EXPECT_EQ(columns[0].DisplayWidth, 0x0D0C);
    EXPECT_EQ(columns[0].FontID, 0x11100F0Eu);
    EXPECT_EQ(columns[0].ListSep, 0x1F1E);
    EXPECT_EQ(columns[1].Signature, 0x2120);
    EXPECT_EQ(reinterpret_cast<unsigned char*>(&columns[0])[14], 0) << "padding is cleared";

    std::vector<unsigned char> written(64, 0xAA);
    void* out = written.data();
    ODSWriteMemory(&out, _VIEW_COLUMN_FORMAT, columns, 2);
    EXPECT_EQ(out, written.data() + 64);
    EXPECT_EQ(written, canonical);
}

TEST(SimCoreOds, ObjectDescriptorIsSixBytes)
{
    OBJECT_DESCRIPTOR object{};
    object.ObjectType = 0x8000;
    object.RRV = 0x12345678;
    unsigned char canonical[8];
    std::memset(canonical, 0xAA, sizeof canonical);
    void* out = canonical;
    ODSWriteMemory(&out, _OBJECT_DESCRIPTOR, &object, 1);
    EXPECT_EQ(out, canonical + 6);
    const unsigned char expected[] = {0x00, 0x80, 0x78, 0x56, 0x34, 0x12, 0xAA};
    EXPECT_EQ(std::memcmp(canonical, expected, sizeof expected), 0);

    OBJECT_DESCRIPTOR back{};
    const void* in = canonical;
    ODSReadMemory(&in, _OBJECT_DESCRIPTOR, &back, 1);
    EXPECT_EQ(back.ObjectType, 0x8000);
    EXPECT_EQ(back.RRV, 0x12345678u);
}

TEST(SimCoreOds, HeaderThenTableFormatReadFromTheAdvancingPointer)
{
    const unsigned char canonical[] = {1, 0x10, 3, 0, 7, 0, 1, 0, 0, 0, 0xFF, 0xFF};
    const void* cursor = canonical;
    VIEW_FORMAT_HEADER header{};
    VIEW_TABLE_FORMAT table{};
    ODSReadMemory(&cursor, _VIEW_FORMAT_HEADER, &header, 1);
    ODSReadMemory(&cursor, _VIEW_TABLE_FORMAT, &table, 1);
    EXPECT_EQ(header.Version, 1);
    EXPECT_EQ(header.ViewStyle, 0x10);
    EXPECT_EQ(cursor, canonical + 12);
    EXPECT_EQ(table.Header.Version, 3) << "the table format starts where the header ended";

    const void* unmoved = canonical;
    unsigned char untouched = 0x5A;
    ODSReadMemory(&unmoved, 99, &untouched, 3);
    EXPECT_EQ(unmoved, canonical);
    EXPECT_EQ(untouched, 0x5A);
}
