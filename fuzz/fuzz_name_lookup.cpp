// Directory lookup buffers (NAMELookup2's result) as the library walks them in
// DiscoverMailboxes, and as any caller walks them with NAMELocateNextName2,
// NAMELocateNextMatch2, NAMELocateItem2 and NAMEGetTextItem2. The buffer is runtime
// memory from OSMemAlloc: a DWORD with its true size, then the input (record count,
// records, matches and items, every count, length and offset from the input).
// The library's NAMELookup2 pointer is pointed at a stand-in that returns it.
#include <cstring>
#include <map>
#include <set>

#include "fuzz_support.h"

using namespace hyln_fuzz;

namespace {

std::string body; // the buffer after its size word

STATUS lookupFromInput(const char*, DWORD, WORD, const char*, WORD, const char*, WORD, const char*, DHANDLE* handle)
{
    DWORD size = static_cast<DWORD>(sizeof(DWORD) + body.size());
    if (HY_OSMemAlloc(0, size, handle) != NOERROR)
        fail("OSMemAlloc failed");
    char* bytes = static_cast<char*>(HY_OSLockObject(*handle));
    std::memcpy(bytes, &size, sizeof size);
    std::memcpy(bytes + sizeof size, body.data(), body.size());
    HY_OSUnlockObject(*handle);
    return NOERROR;
}

void checkInside(const char* buffer, const void* value, size_t length)
{
    DWORD size;
    std::memcpy(&size, buffer, sizeof size);
    const char* start = static_cast<const char*>(value);
    if (start < buffer || start + length > buffer + size)
        fail("the lookup walkers handed out bytes outside the buffer");
}

// Every record, match, item and text member, each walk cut short after a few steps.
void walkEverything()
{
    DHANDLE handle = NULLHANDLE;
    lookupFromInput(nullptr, 0, 0, nullptr, 0, nullptr, 0, nullptr, &handle);
    char* lookup = static_cast<char*>(HY_OSLockObject(handle));
    void* name = nullptr;
    for (int record = 0; record < 16; ++record) {
        DWORD matches = 0;
        name = HY_NAMELocateNextName2(lookup, name, &matches);
        if (name == nullptr)
            break;
        checkInside(lookup, name, 8);
        void* match = nullptr;
        for (DWORD m = 0; m < matches && m < 16; ++m) {
            match = HY_NAMELocateNextMatch2(lookup, name, match);
            if (match == nullptr)
                fail("a record held fewer matches than NAMELocateNextName2 counted");
            checkInside(lookup, match, 8);
            for (WORD item = 0; item < 3; ++item) {
                WORD type = 0, size = 0;
                void* value = HY_NAMELocateItem2(match, item, &type, &size);
                if (value != nullptr)
                    checkInside(lookup, value, size);
                for (WORD member = 0; member < 3; ++member) {
                    char text[32];
                    HY_NAMEGetTextItem2(match, item, member, text, sizeof text);
                }
            }
        }
    }
    HY_OSUnlockObject(handle);
    HY_OSMemFree(handle);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    loadRuntime();
    HY_NAMELookup2 = lookupFromInput;
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Fields fields(data, size);
    bool fullNames = fields.byte() & 1;
    body = fields.rest();
    if (body.size() < sizeof(DWORD))
        body.resize(sizeof(DWORD)); // the record count

    // DiscoverMailboxes keeps the query of its first call; make that the two-item one.
    static bool first = true;
    MailboxLookupStruct query;
    HyLNUtilities::InitializeMBLookup(query, first || fullNames);
    first = false;
    if (query.FetchFullName) {
        std::map<std::string, std::string> mailboxes;
        HyLNUtilities::DiscoverMailboxes("", &mailboxes, query);
    } else {
        std::set<std::string> mailboxes;
        HyLNUtilities::DiscoverMailboxes("", &mailboxes, query);
    }
    walkEverything();
    return 0;
}
