// The fault list of HYSIM_FAULTS / HySimSetFaultList ("NAME=STATUS[@N];..."), as a
// test or another process's environment gives it. No entry point is called while
// faults are set: a parsed "delay:" would make it sleep.
#include <algorithm>

#include "fuzz_support.h"

using namespace hyln_fuzz;

namespace {
int (*setFaultList)(const char*);
void (*clearFaults)();
} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    setFaultList = reinterpret_cast<int (*)(const char*)>(controlFunction("HySimSetFaultList"));
    clearFaults = reinterpret_cast<void (*)()>(controlFunction("HySimClearFaults"));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    std::string list(reinterpret_cast<const char*>(data), size);
    list.erase(std::find(list.begin(), list.end(), '\0'), list.end()); // as a C string arrives
    int count = setFaultList(list.c_str());
    clearFaults();
    // One fault per non-empty item at most.
    long items = std::count(list.begin(), list.end(), ';') + 1;
    if (count < -1 || count > items)
        fail("the fault list parser counted " + std::to_string(count) + " faults in " + std::to_string(items) +
             " items");
    return 0;
}
