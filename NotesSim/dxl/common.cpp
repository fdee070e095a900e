// Conversions the DXL exporter and importer share.
#include <cctype>
#include <cstdio>
#include <cstring>

#include "dxl.h"

namespace sim {

namespace {

const char kAlphabet[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
constexpr size_t kBase64Line = 76;
constexpr DWORD kWildcard = 0xFFFFFFFF;
constexpr DWORD kTicksPerDay = 8640000;
constexpr long long kUnixJulianDay = 2440588;

int base64Value(unsigned char c)
{
    if (c >= 'A' && c <= 'Z')
        return c - 'A';
    if (c >= 'a' && c <= 'z')
        return c - 'a' + 26;
    if (c >= '0' && c <= '9')
        return c - '0' + 52;
    if (c == '+')
        return 62;
    if (c == '/')
        return 63;
    return -1;
}

struct Civil {
    int year;
    int month;
    int day;
};

Civil civilOfJulian(long long julian)
{
    long long l = julian + 68569;
    long long n = 4 * l / 146097;
    l = l - (146097 * n + 3) / 4;
    long long i = 4000 * (l + 1) / 1461001;
    l = l - 1461 * i / 4 + 31;
    long long j = 80 * l / 2447;
    int day = static_cast<int>(l - 2447 * j / 80);
    l = j / 11;
    int month = static_cast<int>(j + 2 - 12 * l);
    int year = static_cast<int>(100 * (n - 49) + i + l);
    return {year, month, day};
}

long long julianOfCivil(int year, int month, int day)
{
    long long a = (14 - month) / 12;
    long long y = year + 4800 - a;
    long long m = month + 12 * a - 3;
    return day + (153 * m + 2) / 5 + 365 * y + y / 4 - y / 100 + y / 400 - 32045;
}

// Day of the week, 0 = Sunday.
int weekday(long long julian)
{
    return static_cast<int>((julian + 1) % 7);
}

long long nthSunday(int year, int month, int nth)
{
    long long first = julianOfCivil(year, month, 1);
    long long sunday = first + (7 - weekday(first)) % 7;
    return sunday + 7 * (nth - 1);
}

long long lastSunday(int year, int month)
{
    long long last = julianOfCivil(year, month + 1, 1) - 1;
    return last - weekday(last);
}

// Zone of a TIMEDATE: minutes east of GMT (standard time) and whether it observes DST.
void zoneOf(DWORD innards1, int& minutesEast, bool& observesDst)
{
    DWORD zone = innards1 >> 24;
    int minutes = static_cast<int>((zone & 0x0F) * 60 + ((zone >> 4) & 0x03) * 15);
    minutesEast = (zone & 0x40) ? minutes : -minutes;
    observesDst = (zone & 0x80) != 0;
}

// Daylight saving rules: the North American ones west of GMT, the European ones east of it.
bool daylightSavingAt(long long gmtSeconds, int minutesEast)
{
    long long julian = kUnixJulianDay + gmtSeconds / 86400 - (gmtSeconds < 0 && gmtSeconds % 86400 ? 1 : 0);
    int year = civilOfJulian(julian).year;
    auto moment = [](long long day, long long seconds) { return (day - kUnixJulianDay) * 86400 + seconds; };
    long long start, end;
    if (minutesEast < 0) {
        long long west = -minutesEast * 60LL;
        long long startDay, endDay;
        if (year >= 2007) {
            startDay = nthSunday(year, 3, 2);
            endDay = nthSunday(year, 11, 1);
        } else if (year >= 1987) {
            startDay = nthSunday(year, 4, 1);
            endDay = lastSunday(year, 10);
        } else {
            startDay = lastSunday(year, 4);
            endDay = lastSunday(year, 10);
        }
        start = moment(startDay, 7200 + west);
        end = moment(endDay, 3600 + west);
    } else {
        start = moment(lastSunday(year, 3), 3600);
        end = moment(lastSunday(year, 10), 3600);
    }
    return gmtSeconds >= start && gmtSeconds < end;
}

bool digits(const std::string& text, size_t at, size_t count, int& value)
{
    if (at + count > text.size())
        return false;
    value = 0;
    for (size_t i = at; i < at + count; ++i) {
        if (!std::isdigit(static_cast<unsigned char>(text[i])))
            return false;
        value = value * 10 + (text[i] - '0');
    }
    return true;
}

const struct {
    WORD noteClass;
    const char* name;
} kNoteClasses[] = {
    {NOTE_CLASS_DOCUMENT, "document"},   {NOTE_CLASS_INFO, "helpaboutdocument"},
    {NOTE_CLASS_FORM, "form"},           {NOTE_CLASS_VIEW, "view"},
    {NOTE_CLASS_ICON, "icon"},           {NOTE_CLASS_HELP_INDEX, "helpindex"},
    {NOTE_CLASS_HELP, "helpusingdocument"}, {NOTE_CLASS_FILTER, "filter"},
    {NOTE_CLASS_FIELD, "sharedfield"},   {NOTE_CLASS_REPLFORMULA, "replicationformula"},
};

} // namespace

std::string base64Encode(const void* data, size_t size)
{
    const unsigned char* in = static_cast<const unsigned char*>(data);
    std::string out;
    out.reserve(size / 3 * 4 + size / 57 + 8);
    size_t lineLength = 0;
    for (size_t i = 0; i < size; i += 3) {
        unsigned long group = static_cast<unsigned long>(in[i]) << 16;
        if (i + 1 < size)
            group |= static_cast<unsigned long>(in[i + 1]) << 8;
        if (i + 2 < size)
            group |= in[i + 2];
        out += kAlphabet[(group >> 18) & 63];
        out += kAlphabet[(group >> 12) & 63];
        out += i + 1 < size ? kAlphabet[(group >> 6) & 63] : '=';
        out += i + 2 < size ? kAlphabet[group & 63] : '=';
        lineLength += 4;
        if (lineLength == kBase64Line && i + 3 < size) {
            out += '\n';
            lineLength = 0;
        }
    }
    return out;
}

bool base64Decode(const std::string& text, std::vector<char>& out)
{
    out.clear();
    unsigned long group = 0;
    int count = 0;
    int padding = 0;
    for (unsigned char c : text) {
        if (std::isspace(c))
            continue;
        if (c == '=') {
            if (count < 2)
                return false;
            ++padding;
            ++count;
            group <<= 6;
        } else {
            int value = base64Value(c);
            if (value < 0 || padding > 0)
                return false;
            group = (group << 6) | static_cast<unsigned long>(value);
            ++count;
        }
        if (count == 4) {
            out.push_back(static_cast<char>((group >> 16) & 0xFF));
            if (padding < 2)
                out.push_back(static_cast<char>((group >> 8) & 0xFF));
            if (padding < 1)
                out.push_back(static_cast<char>(group & 0xFF));
            group = 0;
            count = 0;
            if (padding > 0)
                padding = -1; // nothing may follow a padded group
        } else if (padding < 0) {
            return false;
        }
    }
    return count == 0;
}

std::string datetimeText(const TIMEDATE& value, bool& dst)
{
    dst = false;
    DWORD ticks = value.Innards[0];
    DWORD dateWord = value.Innards[1];
    char buffer[64];
    if (ticks == kWildcard && dateWord == kWildcard)
        return std::string();
    if (dateWord == kWildcard) {
        ticks %= kTicksPerDay;
        std::snprintf(buffer, sizeof buffer, "T%02u%02u%02u,%02u", ticks / 360000, ticks / 6000 % 60, ticks / 100 % 60,
                      ticks % 100);
        return buffer;
    }
    long long julian = dateWord & 0x00FFFFFF;
    if (ticks == kWildcard) {
        Civil date = civilOfJulian(julian);
        std::snprintf(buffer, sizeof buffer, "%04d%02d%02d", date.year, date.month, date.day);
        return buffer;
    }
    int minutesEast = 0;
    bool observesDst = false;
    zoneOf(dateWord, minutesEast, observesDst);
    long long gmtHundredths = (julian - kUnixJulianDay) * kTicksPerDay + ticks % kTicksPerDay;
    if (observesDst && daylightSavingAt(gmtHundredths / 100, minutesEast)) {
        dst = true;
        minutesEast += 60;
    }
    long long local = gmtHundredths + minutesEast * 6000LL;
    long long localDay = local / kTicksPerDay - (local < 0 && local % kTicksPerDay ? 1 : 0);
    long long localTicks = local - localDay * kTicksPerDay;
    Civil date = civilOfJulian(localDay + kUnixJulianDay);
    int zoneMinutes = minutesEast < 0 ? -minutesEast : minutesEast;
    char zone[16];
    if (zoneMinutes % 60 == 0)
        std::snprintf(zone, sizeof zone, "%c%02d", minutesEast < 0 ? '-' : '+', zoneMinutes / 60);
    else
        std::snprintf(zone, sizeof zone, "%c%02d%02d", minutesEast < 0 ? '-' : '+', zoneMinutes / 60, zoneMinutes % 60);
    std::snprintf(buffer, sizeof buffer, "%04d%02d%02dT%02lld%02lld%02lld,%02lld%s", date.year, date.month, date.day,
                  localTicks / 360000, localTicks / 6000 % 60, localTicks / 100 % 60, localTicks % 100, zone);
    return buffer;
}

bool datetimeRepresentable(const TIMEDATE& value)
{
    DWORD ticks = value.Innards[0];
    DWORD dateWord = value.Innards[1];
    if (dateWord == kWildcard)
        return ticks == kWildcard || ticks < kTicksPerDay;
    if (ticks != kWildcard && ticks >= kTicksPerDay)
        return false;
    long long julian = dateWord & 0x00FFFFFF;
    // Local time may fall a day to either side of the GMT date.
    return julian > julianOfCivil(1, 1, 1) && julian < julianOfCivil(9999, 12, 31) && (dateWord >> 24 & 0x0F) <= 14;
}

bool parseDatetimeText(const std::string& raw, bool dst, TIMEDATE& value)
{
    std::string text;
    for (char c : raw)
        if (!std::isspace(static_cast<unsigned char>(c)))
            text += c;
    if (text.empty()) {
        value.Innards[0] = value.Innards[1] = kWildcard;
        return true;
    }
    size_t at = 0;
    int year = 0, month = 0, day = 0;
    bool hasDate = text[0] != 'T';
    if (hasDate) {
        if (!digits(text, 0, 4, year) || !digits(text, 4, 2, month) || !digits(text, 6, 2, day) || month < 1 ||
            month > 12 || day < 1 || day > 31)
            return false;
        at = 8;
    }
    if (at == text.size()) {
        value.Innards[0] = kWildcard;
        value.Innards[1] = static_cast<DWORD>(julianOfCivil(year, month, day));
        return true;
    }
    int hour = 0, minute = 0, second = 0, hundredths = 0;
    if (text[at] != 'T' || !digits(text, at + 1, 2, hour) || !digits(text, at + 3, 2, minute) ||
        !digits(text, at + 5, 2, second) || hour > 23 || minute > 59 || second > 59)
        return false;
    at += 7;
    if (at < text.size() && text[at] == ',') {
        if (!digits(text, at + 1, 2, hundredths))
            return false;
        at += 3;
    }
    long long localTicks = ((hour * 60LL + minute) * 60 + second) * 100 + hundredths;
    if (!hasDate) {
        if (at != text.size())
            return false;
        value.Innards[0] = static_cast<DWORD>(localTicks);
        value.Innards[1] = kWildcard;
        return true;
    }
    int shownEast = 0;
    if (at < text.size() && text[at] == 'Z') {
        ++at;
    } else if (at < text.size() && (text[at] == '+' || text[at] == '-')) {
        int hours = 0, minutes = 0;
        if (!digits(text, at + 1, 2, hours))
            return false;
        size_t next = at + 3;
        if (next + 2 <= text.size() && digits(text, next, 2, minutes))
            next += 2;
        shownEast = (hours * 60 + minutes) * (text[at] == '-' ? -1 : 1);
        at = next;
    }
    if (at != text.size())
        return false;
    int standardEast = dst ? shownEast - 60 : shownEast;
    int magnitude = standardEast < 0 ? -standardEast : standardEast;
    if (magnitude % 15 != 0 || magnitude / 60 > 15)
        return false;
    DWORD zone = static_cast<DWORD>((magnitude / 60) | ((magnitude % 60 / 15) << 4));
    if (standardEast > 0)
        zone |= 0x40;
    if (dst)
        zone |= 0x80;
    long long gmt = (julianOfCivil(year, month, day) - kUnixJulianDay) * kTicksPerDay + localTicks - shownEast * 6000LL;
    long long gmtDay = gmt / kTicksPerDay - (gmt < 0 && gmt % kTicksPerDay ? 1 : 0);
    value.Innards[0] = static_cast<DWORD>(gmt - gmtDay * kTicksPerDay);
    value.Innards[1] = static_cast<DWORD>(gmtDay + kUnixJulianDay) | (zone << 24);
    return true;
}

std::string unidText(const UNID& unid)
{
    char buffer[40];
    std::snprintf(buffer, sizeof buffer, "%08X%08X%08X%08X", unid.File.Innards[1], unid.File.Innards[0],
                  unid.Note.Innards[1], unid.Note.Innards[0]);
    return buffer;
}

bool parseUnidText(const std::string& text, UNID& unid)
{
    if (text.size() != 32)
        return false;
    DWORD parts[4];
    for (int i = 0; i < 4; ++i) {
        parts[i] = 0;
        for (int j = 0; j < 8; ++j) {
            char c = text[static_cast<size_t>(i * 8 + j)];
            int digit = std::isdigit(static_cast<unsigned char>(c)) ? c - '0'
                        : (c >= 'A' && c <= 'F')                    ? c - 'A' + 10
                        : (c >= 'a' && c <= 'f')                    ? c - 'a' + 10
                                                                    : -1;
            if (digit < 0)
                return false;
            parts[i] = parts[i] << 4 | static_cast<DWORD>(digit);
        }
    }
    unid.File.Innards[1] = parts[0];
    unid.File.Innards[0] = parts[1];
    unid.Note.Innards[1] = parts[2];
    unid.Note.Innards[0] = parts[3];
    return true;
}

const char* noteClassName(WORD noteClass)
{
    for (const auto& entry : kNoteClasses)
        if (entry.noteClass == (noteClass & ~NOTE_CLASS_DEFAULT))
            return entry.name;
    return nullptr;
}

WORD noteClassOf(const std::string& name)
{
    for (const auto& entry : kNoteClasses)
        if (name == entry.name)
            return entry.noteClass;
    return 0;
}

} // namespace sim
