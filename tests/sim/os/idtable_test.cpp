// ID tables: unsigned order, scan continuation, duplicates, dense chunks and bad handles.
#include <gtest/gtest.h>

#include <random>
#include <set>
#include <vector>

#include "sim_core.h"

namespace {

DHANDLE newTable()
{
    DHANDLE table = NULLHANDLE;
    EXPECT_EQ(IDCreateTable(sizeof(NOTEID), &table), NOERROR);
    EXPECT_NE(table, NULLHANDLE);
    return table;
}

std::vector<DWORD> scanAll(DHANDLE table)
{
    std::vector<DWORD> ids;
    DWORD id = 0;
    for (BOOL more = IDScan(table, TRUE, &id); more; more = IDScan(table, FALSE, &id))
        ids.push_back(id);
    return ids;
}

} // namespace

TEST(SimCoreIdTable, ScansInUnsignedOrderWithDeletedIdsLast)
{
    DHANDLE table = newTable();
    for (DWORD id : {0x80000004u, 8u, 0xFFFFFFFFu, 4u, 0u, 0x10000u, 0xFFFFu})
        ASSERT_EQ(IDInsert(table, id, nullptr), NOERROR);
    EXPECT_EQ(scanAll(table), (std::vector<DWORD>{0u, 4u, 8u, 0xFFFFu, 0x10000u, 0x80000004u, 0xFFFFFFFFu}));
    EXPECT_EQ(IDEntries(table), 7u);
    EXPECT_EQ(IDDestroyTable(table), NOERROR);
}

TEST(SimCoreIdTable, ScanContinuesAfterTheValueTheCallerHolds)
{
    DHANDLE table = newTable();
    for (DWORD id : {4u, 8u, 12u, 0x80000008u})
        IDInsert(table, id, nullptr);
    DWORD id = 0;
    ASSERT_TRUE(IDScan(table, TRUE, &id));
    EXPECT_EQ(id, 4u);
    id = 9; // the next call starts from whatever *retID holds
    ASSERT_TRUE(IDScan(table, FALSE, &id));
    EXPECT_EQ(id, 12u);
    ASSERT_TRUE(IDScan(table, FALSE, &id));
    EXPECT_EQ(id, 0x80000008u);
    EXPECT_FALSE(IDScan(table, FALSE, &id));
    EXPECT_EQ(id, 0x80000008u) << "the last result stays in place";

    DHANDLE empty = newTable();
    EXPECT_FALSE(IDScan(empty, TRUE, &id));
    IDDestroyTable(empty);
    IDDestroyTable(table);
}

TEST(SimCoreIdTable, DuplicatesAndAbsentIdsAreReportedThroughTheFlags)
{
    DHANDLE table = newTable();
    BOOL flag = FALSE;
    EXPECT_EQ(IDInsert(table, 40, &flag), NOERROR);
    EXPECT_TRUE(flag);
    EXPECT_EQ(IDInsert(table, 40, &flag), NOERROR);
    EXPECT_FALSE(flag);
    EXPECT_EQ(IDEntries(table), 1u);
    EXPECT_EQ(IDDelete(table, 44, &flag), NOERROR);
    EXPECT_FALSE(flag);
    EXPECT_EQ(IDDelete(table, 40, &flag), NOERROR);
    EXPECT_TRUE(flag);
    EXPECT_FALSE(IDIsPresent(table, 40));
    EXPECT_EQ(IDEntries(table), 0u);
    IDDestroyTable(table);
}

TEST(SimCoreIdTable, AgreesWithAReferenceSetThroughDenseAndSparseChunks)
{
    // IDs packed into two chunks so one passes the sparse limit and turns into a bitmap.
    DHANDLE table = newTable();
    std::set<DWORD> reference;
    std::mt19937 random(7);
    std::uniform_int_distribution<DWORD> pick(0x2FFF0u, 0x3FFFFu);
    for (int i = 0; i < 30000; ++i) {
        DWORD id = pick(random);
        BOOL changed = FALSE;
        if (i % 3 == 2) {
            ASSERT_EQ(IDDelete(table, id, &changed), NOERROR);
            EXPECT_EQ(changed != FALSE, reference.erase(id) == 1);
        } else {
            ASSERT_EQ(IDInsert(table, id, &changed), NOERROR);
            EXPECT_EQ(changed != FALSE, reference.insert(id).second);
        }
    }
    EXPECT_EQ(IDEntries(table), reference.size());
    EXPECT_EQ(scanAll(table), std::vector<DWORD>(reference.begin(), reference.end()));
    for (DWORD id = 0x2FFF0u; id < 0x30100u; ++id)
        ASSERT_EQ(IDIsPresent(table, id) != FALSE, reference.count(id) == 1) << id;
    IDDestroyTable(table);
}

TEST(SimCoreIdTable, CopyIsIndependent)
{
    DHANDLE table = newTable();
    IDInsert(table, 4, nullptr);
    DHANDLE copy = NULLHANDLE;
    ASSERT_EQ(IDTableCopy(table, &copy), NOERROR);
    ASSERT_NE(copy, table);
    IDInsert(copy, 8, nullptr);
    IDDelete(table, 4, nullptr);
    EXPECT_EQ(scanAll(copy), (std::vector<DWORD>{4u, 8u}));
    EXPECT_EQ(IDEntries(table), 0u);
    IDDestroyTable(table);
    EXPECT_TRUE(IDIsPresent(copy, 8)) << "destroying the original leaves the copy";
    IDDestroyTable(copy);
}

TEST(SimCoreIdTable, BadHandlesAreRefused)
{
    DHANDLE table = newTable();
    ASSERT_EQ(IDDestroyTable(table), NOERROR);
    DHANDLE memory = NULLHANDLE;
    ASSERT_EQ(OSMemAlloc(0, 16, &memory), NOERROR);
    for (DHANDLE bad : {table, memory, DHANDLE{0}, DHANDLE{0xDEAD}}) {
        BOOL flag = TRUE;
        EXPECT_EQ(IDInsert(bad, 4, &flag), sim::STS_INVALID_HANDLE);
        EXPECT_FALSE(flag);
        EXPECT_EQ(IDDelete(bad, 4, nullptr), sim::STS_INVALID_HANDLE);
        EXPECT_FALSE(IDIsPresent(bad, 4));
        EXPECT_EQ(IDEntries(bad), 0u);
        DWORD id = 0;
        EXPECT_FALSE(IDScan(bad, TRUE, &id));
        DHANDLE copy = 77;
        EXPECT_EQ(IDTableCopy(bad, &copy), sim::STS_INVALID_HANDLE);
        EXPECT_EQ(copy, NULLHANDLE);
        EXPECT_EQ(IDDestroyTable(bad), sim::STS_INVALID_HANDLE);
    }
    EXPECT_EQ(OSMemFree(memory), NOERROR) << "the memory handle survived the ID calls";
    DHANDLE live = newTable();
    EXPECT_EQ(OSMemFree(live), sim::STS_INVALID_HANDLE) << "an ID table is not freed as memory";
    EXPECT_FALSE(IDScan(live, TRUE, nullptr));
    EXPECT_EQ(IDCreateTable(0, nullptr), sim::STS_BAD_ARGUMENT);
    IDDestroyTable(live);
}
