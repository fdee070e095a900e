// Time and date text as ConvertTextToTIMEDATE reads it, through the C API and the
// library's GetTimeDate. The first byte picks the runtime's zone and whether the
// caller passes its own INTLFORMAT and TFMT (taken from the next bytes); the rest
// is the text, handed over without a terminator so that only MaxLength bounds it.
// With the runtime's own format, what it reads it must write back the same way.
#include <cstring>
#include <vector>

#include "fuzz_support.h"

using namespace hyln_fuzz;

namespace {

const char* const kZones[] = {"", "HySimTimeZone=5\nHySimDST=1\n", "HySimTimeZone=-1\nHySimDST=1\n",
                              "HySimTimeZone=-3005\n"};
std::vector<std::string> zoneInis;

std::string toText(const TIMEDATE& value)
{
    char buffer[MAXALPHATIMEDATE + 1] = {};
    WORD length = 0;
    if (HY_ConvertTIMEDATEToText(nullptr, nullptr, &value, buffer, MAXALPHATIMEDATE, &length) != NOERROR)
        fail("a time the runtime read could not be written back");
    return std::string(buffer, length);
}

} // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***)
{
    for (const char* zone : kZones)
        zoneInis.push_back(writeNotesIni(makeWorkDir("time"), zone));
    return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size)
{
    Fields fields(data, size);
    uint8_t mode = fields.byte();
    if (startRuntime(zoneInis[mode % zoneInis.size()]) != NOERROR)
        fail("the runtime did not start");
    INTLFORMAT intl{};
    TFMT format{};
    bool ownIntl = mode & 0x10;
    bool ownFormat = mode & 0x20;
    if (ownIntl)
        for (size_t i = 0; i < sizeof intl; ++i)
            reinterpret_cast<uint8_t*>(&intl)[i] = fields.byte();
    if (ownFormat)
        for (size_t i = 0; i < sizeof format; ++i)
            reinterpret_cast<uint8_t*>(&format)[i] = fields.byte();
    std::string rest = fields.rest();
    std::vector<char> text(rest.begin(), rest.end());
    WORD maxLength = static_cast<WORD>(std::min<size_t>(text.size(), MAXWORD));

    TIMEDATE value{};
    char* cursor = text.data();
    STATUS status = HY_ConvertTextToTIMEDATE(ownIntl ? &intl : nullptr, ownFormat ? &format : nullptr, &cursor,
                                             maxLength, &value);
    if (cursor < text.data() || cursor > text.data() + maxLength)
        fail("the text pointer moved outside the text");
    if (status == NOERROR && !ownIntl && !ownFormat) {
        std::string written = toText(value);
        TIMEDATE again{};
        char* start = written.data();
        if (HY_ConvertTextToTIMEDATE(nullptr, nullptr, &start, static_cast<WORD>(written.size()), &again) !=
                NOERROR ||
            std::memcmp(&again, &value, sizeof value) != 0)
            fail("\"" + written + "\" does not read back as the time it was written from");
    }
    if (status == NOERROR && ownIntl) {
        char buffer[MAXALPHATIMEDATE + 1];
        WORD length = 0;
        HY_ConvertTIMEDATEToText(&intl, ownFormat ? &format : nullptr, &value, buffer, MAXALPHATIMEDATE, &length);
        if (length > MAXALPHATIMEDATE)
            fail("the written time is longer than its buffer");
    }

    TIMEDATE viaLibrary{};
    HyLNUtilities::GetTimeDate(std::string(text.begin(), text.end()), viaLibrary);
    return 0;
}
