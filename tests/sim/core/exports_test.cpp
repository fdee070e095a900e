// The uniform shell around every exported entry point: "not provided" defaults,
// injected faults and the call trace.
#include <gtest/gtest.h>

#include <chrono>
#include <cstring>
#include <string>

#include "HySimControl.h"
#include "sim_core.h"

namespace {

struct Exports : ::testing::Test {
    void SetUp() override
    {
        HySimClearFaults();
        HySimTraceClear();
    }
    void TearDown() override
    {
        HySimClearFaults();
        HySimTraceEnable(0);
    }
};

} // namespace

TEST_F(Exports, UnprovidedEntryReturnsItsOwnStatus)
{
    // What the weak default of every entry point answers until the runtime provides it
    // (called directly: which entry points are still unprovided changes as services grow).
    STATUS status = sim::notProvided<STATUS>("NSFRemoteConsole", true);
    EXPECT_EQ(status, sim::STS_NOT_PROVIDED_BASE + sim::entryIndex("NSFRemoteConsole"));
    EXPECT_EQ(sim::notProvided<BOOL>("IDScan", false), FALSE);
    EXPECT_EQ(sim::notProvided<void*>("OSLockObject", false), nullptr);
    EXPECT_EQ(sim::entryIndex("ConvertTextToTIMEDATE"), 0);
    EXPECT_EQ(sim::entryIndex("TimeLocalToGM"), 122);
    EXPECT_EQ(sim::entryIndex("NoSuchEntry"), -1);
}

TEST_F(Exports, FaultsFireOnEveryCallOrOnTheNthCall)
{
    DHANDLE handle = 0;
    ASSERT_EQ(HySimSetFault("OSMemAlloc", 0x0107, 2, HYSIM_FAULT_RETURN), 0);
    EXPECT_EQ(OSMemAlloc(0, 16, &handle), NOERROR);
    EXPECT_NE(handle, 0u);
    EXPECT_EQ(OSMemFree(handle), NOERROR);
    EXPECT_EQ(OSMemAlloc(0, 16, &handle), 0x0107);
    EXPECT_EQ(OSMemAlloc(0, 16, &handle), NOERROR) << "an nth-call fault fires once";
    EXPECT_EQ(OSMemFree(handle), NOERROR);

    ASSERT_EQ(HySimSetFault("OSLockObject", 0x0107, 0, HYSIM_FAULT_RETURN), 0);
    EXPECT_EQ(OSLockObject(handle), nullptr);
    EXPECT_EQ(OSLockObject(handle), nullptr);
    EXPECT_EQ(HySimSetFault("NotAnEntry", 1, 0, HYSIM_FAULT_RETURN), -1);
}

TEST_F(Exports, InjectedExceptionsCrossTheCInterface)
{
    ASSERT_EQ(HySimSetFaultList("OSMemGetSize=throw@1;OSMemFree=0x3F01"), 2);
    DWORD size = 0;
    EXPECT_THROW(OSMemGetSize(1, &size), HySimInjectedFault);
    EXPECT_EQ(OSMemFree(12345), 0x3F01);
    EXPECT_EQ(HySimSetFaultList("OSMemFree"), -1);
    EXPECT_EQ(HySimSetFaultList("OSMemFree=abc"), -1);
    EXPECT_EQ(HySimSetFaultList("Nope=1"), -1);
}

TEST_F(Exports, DelayedCallsSucceedLate)
{
    ASSERT_EQ(HySimSetFaultList("OSMemAlloc=delay:30@2"), 1);
    DHANDLE first = 0;
    DHANDLE second = 0;
    ASSERT_EQ(OSMemAlloc(0, 16, &first), NOERROR);
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(OSMemAlloc(0, 16, &second), NOERROR) << "a delay is not a failure";
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
    EXPECT_NE(second, 0u);
    EXPECT_EQ(OSMemFree(first), NOERROR);
    EXPECT_EQ(OSMemFree(second), NOERROR);
    EXPECT_EQ(HySimSetFaultList("OSMemAlloc=delay:"), -1);
    EXPECT_EQ(HySimSetFaultList("OSMemAlloc=delay:soon"), -1);
}

TEST_F(Exports, TraceRecordsCallsWithIntegralArguments)
{
    HySimTraceEnable(1);
    DHANDLE handle = 0;
    ASSERT_EQ(OSMemAlloc(0, 32, &handle), NOERROR);
    ASSERT_EQ(OSMemFree(handle), NOERROR);
    ASSERT_EQ(HySimTraceCount(), 2u);
    EXPECT_EQ(std::string(HySimTraceLine(0)), "OSMemAlloc(0, 32, *)");
    EXPECT_EQ(std::string(HySimTraceLine(1)), "OSMemFree(" + std::to_string(handle) + ")");
    EXPECT_EQ(HySimTraceLine(2), nullptr);
    EXPECT_EQ(HySimCallCount("OSMemAlloc"), 1u);
}

TEST_F(Exports, BadMemoryHandlesAreRefusedNotFatal)
{
    DHANDLE handle = 0;
    DWORD size = 0;
    EXPECT_EQ(OSMemFree(0xABCDEF), sim::STS_INVALID_HANDLE);
    EXPECT_EQ(OSMemGetSize(0, &size), sim::STS_INVALID_HANDLE);
    EXPECT_EQ(OSLockObject(0), nullptr);
    EXPECT_EQ(OSUnlockObject(0), FALSE);
    ASSERT_EQ(OSMemAlloc(0, 0, &handle), NOERROR);
    EXPECT_EQ(handle, 0u) << "size 0 gives no handle";
    ASSERT_EQ(OSMemAlloc(0, 8, &handle), NOERROR);
    ASSERT_NE(OSLockObject(handle), nullptr);
    EXPECT_EQ(OSMemFree(handle), sim::STS_HANDLE_LOCKED);
    EXPECT_EQ(OSUnlockObject(handle), TRUE);
    EXPECT_EQ(OSMemFree(handle), NOERROR);
    EXPECT_EQ(OSMemFree(handle), sim::STS_INVALID_HANDLE) << "a freed handle is gone";
}

TEST_F(Exports, AMalformedFaultListSetsNoFaultAtAll)
{
    for (const char* list : {"OSMemFree=0x0107;NSFDbOpen=banana", "OSMemFree=0x0107;NSFDbOpen",
                             "OSMemFree=0x0107;Nope=1", "OSMemFree=0x0107@0", "OSMemFree=0x0107@", "OSMemFree=0x0107@x",
                             "OSMemFree=0x0107@-1", "OSMemFree=0x10000", "OSMemFree=-1", "OSMemFree= 0x0107 junk",
                             "OSMemFree=delay:", "*=", "**=1"}) {
        EXPECT_EQ(HySimSetFaultList(list), -1) << list;
        EXPECT_EQ(OSMemFree(0xABCDEF), sim::STS_INVALID_HANDLE) << list << " set a fault";
    }
    EXPECT_EQ(HySimSetFaultList(" OSMemFree = 0x0107 @2 ; ;"), 1) << "blanks around the parts are allowed";
    EXPECT_EQ(OSMemFree(0xABCDEF), sim::STS_INVALID_HANDLE);
    EXPECT_EQ(OSMemFree(0xABCDEF), 0x0107);
}

TEST_F(Exports, EveryCallFaultCountsAllEntryPointsTogether)
{
    ASSERT_EQ(HySimSetFaultList("*=0x0107@3"), 1);
    DHANDLE handle = 0;
    char text[64];
    ASSERT_EQ(OSMemAlloc(0, 16, &handle), NOERROR);
    EXPECT_GT(OSLoadString(NULLHANDLE, 0x0107, text, sizeof text - 1), 0) << "not counted";
    EXPECT_EQ(OSLockObject(0xABCDEF), nullptr);
    EXPECT_EQ(OSMemFree(handle), 0x0107) << "the third counted call, of another entry point";
    EXPECT_EQ(OSMemFree(handle), NOERROR) << "fires once";

    ASSERT_EQ(HySimSetFault("*", 0x0103, 0, HYSIM_FAULT_RETURN), 0);
    EXPECT_EQ(OSMemAlloc(0, 16, &handle), 0x0103);
    EXPECT_EQ(NSFDbOpen("names.nsf", &handle), 0x0103);
    EXPECT_EQ(OSLoadString(NULLHANDLE, 0x0103, text, sizeof text - 1), std::strlen("File does not exist"))
        << "a host can still read the text of the failure";
    NotesTerm();
    NotesTermThread();
    EXPECT_EQ(HySimCallCount("NotesTerm"), 1u) << "and shut down";

    ASSERT_EQ(HySimSetFaultList("*=throw@2;OSMemAlloc=0x0107@1"), 2);
    EXPECT_EQ(OSMemAlloc(0, 16, &handle), 0x0107) << "a fault of its own comes first";
    EXPECT_THROW(OSMemGetSize(1, nullptr), HySimInjectedFault) << "yet the call counted for * as well";
}

TEST_F(Exports, EveryCallDelaySlowsTheNthCallOnly)
{
    ASSERT_EQ(HySimSetFaultList("*=delay:30@2"), 1);
    DHANDLE handle = 0;
    ASSERT_EQ(OSMemAlloc(0, 16, &handle), NOERROR);
    auto start = std::chrono::steady_clock::now();
    EXPECT_EQ(OSMemFree(handle), NOERROR);
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(30));
}
