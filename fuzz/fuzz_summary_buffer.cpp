// Summary buffers (ITEM_TABLE, ITEMs, then names and values) as NSFSearch hands them
// to callbacks. The buffer is the input behind an ITEM_TABLE whose Length is the
// buffer's true size; the item count and every inner length come from the input.
// It is read by the C API and by the library's readers and search callbacks.
#include <cstring>
#include <map>
#include <set>
#include <vector>

#include "fuzz_support.h"

using namespace hyln_fuzz;

namespace {

const char* const kNames[] = {"$Path", "$PATH", "Subject", "$TITLE", ""};

void checkInside(const std::vector<char>& buffer, const void* value, WORD length)
{
    const char* start = static_cast<const char*>(value);
    if (start < buffer.data() || start + length > buffer.data() + buffer.size())
        fail("a summary value reaches outside its buffer");
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    loadRuntime();
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Fields fields(data, size);
    const char* name = kNames[fields.byte() % (sizeof kNames / sizeof kNames[0])];
    WORD maxLength = static_cast<WORD>(fields.byte() | fields.byte() << 8);
    ITEM_TABLE table{};
    table.Items = static_cast<WORD>(fields.byte() | fields.byte() << 8);
    std::string body = fields.rest();
    body.resize(std::min<size_t>(body.size(), MAXWORD - sizeof table));
    std::vector<char> buffer(sizeof table + body.size());
    table.Length = static_cast<WORD>(buffer.size());
    std::memcpy(buffer.data(), &table, sizeof table);
    std::memcpy(buffer.data() + sizeof table, body.data(), body.size());
    auto* summary = reinterpret_cast<ITEM_TABLE*>(buffer.data());

    std::vector<char> text(std::max<WORD>(maxLength, 1));
    HY_NSFGetSummaryValue(summary, name, text.data(), maxLength);
    void* value = nullptr;
    WORD length = 0, type = 0;
    if (HY_NSFLocateSummaryValue(summary, name, &value, &length, &type))
        checkInside(buffer, value, length);

    std::string viaLibrary;
    HyLNUtilities::GetSummaryValue(summary, name, viaLibrary);
    if (HyLNUtilities::LocateSummaryValue(summary, name, &value, &length, &type))
        checkInside(buffer, value, length);

    // The scan callbacks read $Path from each entry's summary.
    std::set<std::string> found;
    HyLNUtilities::FetchAdditionalDatabaseCallback(&found, nullptr, summary);
    DBNAME entries[2];
    entries[0].databasePath = "extra/a.nsf";
    int index = 0;
    void* context[] = {entries, &index}; // as AssociateAdditionalDBs passes them: the table, then the index
    HyLNUtilities::AssociateAdditionalDBsCallback(context, nullptr, summary);
    return 0;
}
