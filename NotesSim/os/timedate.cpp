// TIMEDATE values, their text form and the runtime's zone.
//
// The runtime's zone comes from notes.ini: HySimTimeZone in the TIME.zone convention
// (hours west of GMT: 5 = EST, -1 = CET; with minutes the minute digits come first,
// 3004 = GMT-04:30, -3005 = GMT+05:30), default 0 = GMT; HySimDST=1 says the zone
// observes daylight saving. The simulation keeps standard time all year: the DST
// setting marks the zone byte (bit 31) and OSCurrentTimeZone's flag but never shifts a
// clock, so text and TIMEDATE convert the same way on every date.
//
// Text form: the order, separators, AM/PM strings and 12/24-hour clock of the
// INTLFORMAT in use (OSGetIntlSettings' by default: MM/DD/YYYY hh:mm:ss AM).
#include "timedate.h"

#include <algorithm>
#include <cctype>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <string>

#include "clock.h"
#include "environment.h"
#include "sim_core.h"

namespace {

constexpr long long kUnixEpochJulianDay = 2440588;
constexpr DWORD kJulianDayMask = 0x00FFFFFFu;
constexpr int kMaxTextYear = 9999;
constexpr int kMaxTimeYear = 32767;

// Status codes our API header does not name.
constexpr STATUS kErrIntlFormat = 0x040A; // ERR_IFMT
constexpr STATUS kErrTextFormat = 0x040B; // ERR_TFMT

// INTLFORMAT.Flags bits.
constexpr WORD kIntlLeadingZero = 0x0004;
constexpr WORD kIntlClock24 = 0x0008;
constexpr WORD kIntlDaylightSavings = 0x0010;
constexpr WORD kIntlDateMdy = 0x0020;
constexpr WORD kIntlDateDmy = 0x0040;
constexpr WORD kIntlDateYmd = 0x0080;
constexpr WORD kIntl4DigitYear = 0x0100;
constexpr WORD kIntlAmPmPrefix = 0x0400;

// TFMT values.
constexpr BYTE kDateFull = 0;
constexpr BYTE kDateFull4 = 4;
constexpr BYTE kTimeFull = 0;
constexpr BYTE kTimePartial = 1;
constexpr BYTE kZoneNever = 0;
constexpr BYTE kStructDate = 0;
constexpr BYTE kStructTime = 1;
constexpr BYTE kStructDateTime = 2;

long long floorDiv(long long a, long long b)
{
    long long q = a / b;
    return (a % b != 0 && (a < 0) != (b < 0)) ? q - 1 : q;
}

long long floorMod(long long a, long long b) { return a - floorDiv(a, b) * b; }

// ---- Calendar (proleptic Gregorian) ----

struct CivilDate {
    int year = 0;
    int month = 0;
    int day = 0;
};

bool isLeapYear(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

int daysInMonth(int year, int month)
{
    static const int kDays[] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
    return month == 2 && isLeapYear(year) ? 29 : kDays[month - 1];
}

bool isValidDate(const CivilDate& date, int maxYear)
{
    return date.year >= 1 && date.year <= maxYear && date.month >= 1 && date.month <= 12 &&
           date.day >= 1 && date.day <= daysInMonth(date.year, date.month);
}

// Counts in 400-year eras that start on 1 March, so the leap day ends each era year.
long long julianDayFromDate(const CivilDate& date)
{
    long long year = date.month <= 2 ? date.year - 1 : date.year;
    long long era = floorDiv(year, 400);
    long long yearOfEra = year - era * 400;
    long long shiftedMonth = (date.month + 9) % 12; // March = 0
    long long dayOfYear = (153 * shiftedMonth + 2) / 5 + date.day - 1;
    long long dayOfEra = yearOfEra * 365 + yearOfEra / 4 - yearOfEra / 100 + dayOfYear;
    return era * 146097 + dayOfEra + 1721120; // Julian day of 0000-03-01
}

CivilDate dateFromJulianDay(long long julianDay)
{
    long long days = julianDay - 1721120;
    long long era = floorDiv(days, 146097);
    long long dayOfEra = days - era * 146097;
    long long yearOfEra = (dayOfEra - dayOfEra / 1460 + dayOfEra / 36524 - dayOfEra / 146096) / 365;
    long long dayOfYear = dayOfEra - (365 * yearOfEra + yearOfEra / 4 - yearOfEra / 100);
    long long shiftedMonth = (5 * dayOfYear + 2) / 153;
    CivilDate date;
    date.day = static_cast<int>(dayOfYear - (153 * shiftedMonth + 2) / 5 + 1);
    date.month = static_cast<int>(shiftedMonth < 10 ? shiftedMonth + 3 : shiftedMonth - 9);
    date.year = static_cast<int>(yearOfEra + era * 400 + (date.month <= 2 ? 1 : 0));
    return date;
}

// ---- Zones ----

struct Zone {
    int eastMinutes = 0; // local time minus GMT
    bool dst = false;    // observes daylight saving
};

// TIME.zone: positive = west; |zone| = minutes * 100 + hours.
bool eastMinutesOfZone(int zone, int& eastMinutes)
{
    int magnitude = std::abs(zone);
    int hours = magnitude % 100;
    int minutes = magnitude / 100;
    if (hours > 14 || minutes > 45 || minutes % 15 != 0)
        return false;
    eastMinutes = (zone > 0 ? -1 : 1) * (hours * 60 + minutes);
    return true;
}

// Bit 31 observes DST, bit 30 east of GMT, bits 28-29 quarter hours, bits 24-27 hours.
DWORD zoneBits(const Zone& zone)
{
    int magnitude = std::abs(zone.eastMinutes);
    DWORD bits = static_cast<DWORD>(magnitude / 60) | static_cast<DWORD>((magnitude % 60) / 15) << 4;
    if (zone.eastMinutes > 0)
        bits |= 0x40;
    if (zone.dst)
        bits |= 0x80;
    return bits << 24;
}

long iniNumber(const char* name)
{
    std::string text;
    if (!sim::iniValue(name, text))
        return 0;
    return std::strtol(text.c_str(), nullptr, 10);
}

int runtimeZoneSetting()
{
    int east = 0;
    long zone = iniNumber("HySimTimeZone");
    return zone >= INT_MIN && zone <= INT_MAX && eastMinutesOfZone(static_cast<int>(zone), east)
               ? static_cast<int>(zone)
               : 0;
}

Zone runtimeZone()
{
    Zone zone;
    eastMinutesOfZone(runtimeZoneSetting(), zone.eastMinutes);
    zone.dst = iniNumber("HySimDST") != 0;
    return zone;
}

// ---- Local parts of a TIMEDATE ----

struct LocalParts {
    bool hasDate = false;
    bool hasTime = false;
    CivilDate date;
    long long ticks = 0; // local time of day in hundredths
};

LocalParts toLocal(const TIMEDATE& value, const Zone& zone)
{
    LocalParts parts;
    parts.hasTime = value.Innards[0] != ALLDAY;
    parts.hasDate = value.Innards[1] != ANYDAY;
    long long julianDay = value.Innards[1] & kJulianDayMask;
    long long shift = static_cast<long long>(zone.eastMinutes) * TICKS_IN_MINUTE;
    if (parts.hasTime && parts.hasDate) {
        long long total = julianDay * TICKS_IN_DAY + value.Innards[0] + shift;
        julianDay = floorDiv(total, TICKS_IN_DAY);
        parts.ticks = floorMod(total, TICKS_IN_DAY);
    } else if (parts.hasTime) {
        parts.ticks = floorMod(value.Innards[0] + shift, TICKS_IN_DAY);
    }
    if (parts.hasDate)
        parts.date = dateFromJulianDay(julianDay);
    return parts;
}

TIMEDATE fromLocal(const LocalParts& parts, const Zone& zone)
{
    TIMEDATE value{{ALLDAY, ANYDAY}};
    long long shift = static_cast<long long>(zone.eastMinutes) * TICKS_IN_MINUTE;
    long long julianDay = parts.hasDate ? julianDayFromDate(parts.date) : 0;
    long long ticks = parts.ticks - shift;
    if (parts.hasDate && parts.hasTime) {
        long long total = julianDay * TICKS_IN_DAY + ticks;
        julianDay = floorDiv(total, TICKS_IN_DAY);
        ticks = floorMod(total, TICKS_IN_DAY);
    }
    if (parts.hasTime)
        value.Innards[0] = static_cast<DWORD>(floorMod(ticks, TICKS_IN_DAY));
    if (parts.hasDate)
        value.Innards[1] = static_cast<DWORD>(julianDay & kJulianDayMask) | zoneBits(zone);
    return value;
}

// ---- Text layout ----

INTLFORMAT defaultIntlFormat()
{
    Zone zone = runtimeZone();
    INTLFORMAT format{};
    format.Flags = kIntlLeadingZero | kIntlDateMdy | kIntl4DigitYear | (zone.dst ? kIntlDaylightSavings : 0);
    format.CurrencyDigits = 2;
    format.Length = sizeof(INTLFORMAT);
    format.TimeZone = runtimeZoneSetting();
    std::strcpy(format.AMString, "AM");
    std::strcpy(format.PMString, "PM");
    std::strcpy(format.CurrencyString, "$");
    std::strcpy(format.ThousandString, ",");
    std::strcpy(format.DecimalString, ".");
    std::strcpy(format.DateString, "/");
    std::strcpy(format.TimeString, ":");
    std::strcpy(format.YesterdayString, "Yesterday");
    std::strcpy(format.TodayString, "Today");
    std::strcpy(format.TomorrowString, "Tomorrow");
    return format;
}

std::string intlText(const char* field) { return std::string(field, strnlen(field, ISTRMAX)); }

struct TextLayout {
    std::string dateSeparator;
    std::string timeSeparator;
    std::string am;
    std::string pm;
    bool clock24 = false;
    WORD dateOrder = kIntlDateMdy;
    bool fourDigitYear = true;
    BYTE structure = kStructDateTime;
    bool seconds = true;
};

bool takeIntlFormat(const INTLFORMAT& intl, TextLayout& layout)
{
    layout.dateSeparator = intlText(intl.DateString);
    layout.timeSeparator = intlText(intl.TimeString);
    layout.am = intlText(intl.AMString);
    layout.pm = intlText(intl.PMString);
    layout.clock24 = (intl.Flags & kIntlClock24) != 0;
    layout.dateOrder = intl.Flags & kIntlDateYmd ? kIntlDateYmd : intl.Flags & kIntlDateDmy ? kIntlDateDmy : kIntlDateMdy;
    layout.fourDigitYear = (intl.Flags & kIntl4DigitYear) != 0;
    // An AM/PM prefix is a layout this runtime does not write or read.
    return !layout.dateSeparator.empty() && !layout.timeSeparator.empty() &&
           (layout.clock24 || (!layout.am.empty() && !layout.pm.empty())) &&
           (intl.Flags & kIntlAmPmPrefix) == 0;
}

bool takeTextFormat(const TFMT& format, TextLayout& layout)
{
    if (format.Date == kDateFull4)
        layout.fourDigitYear = true;
    layout.structure = format.Structure;
    layout.seconds = format.Time == kTimeFull;
    return (format.Date == kDateFull || format.Date == kDateFull4) &&
           (format.Time == kTimeFull || format.Time == kTimePartial) && format.Zone == kZoneNever &&
           format.Structure <= kStructDateTime;
}

STATUS layoutFor(const void* intlFormat, const TFMT* textFormat, TextLayout& layout)
{
    INTLFORMAT intl = intlFormat != nullptr ? *static_cast<const INTLFORMAT*>(intlFormat) : defaultIntlFormat();
    if (!takeIntlFormat(intl, layout))
        return kErrIntlFormat;
    if (textFormat != nullptr && !takeTextFormat(*textFormat, layout))
        return kErrTextFormat;
    return NOERROR;
}

bool wantsDate(const TextLayout& layout) { return layout.structure != kStructTime; }
bool wantsTime(const TextLayout& layout) { return layout.structure != kStructDate; }

// ---- Writing text ----

std::string twoDigits(long long value)
{
    return std::string(1, static_cast<char>('0' + value / 10)) + static_cast<char>('0' + value % 10);
}

std::string yearText(int year, const TextLayout& layout)
{
    if (!layout.fourDigitYear && year >= 1950 && year <= 1999)
        return twoDigits(year % 100);
    std::string text = std::to_string(year);
    return std::string(4 - std::min<size_t>(4, text.size()), '0') + text;
}

std::string dateText(const CivilDate& date, const TextLayout& layout)
{
    const std::string& sep = layout.dateSeparator;
    std::string year = yearText(date.year, layout);
    std::string month = twoDigits(date.month);
    std::string day = twoDigits(date.day);
    if (layout.dateOrder == kIntlDateYmd)
        return year + sep + month + sep + day;
    if (layout.dateOrder == kIntlDateDmy)
        return day + sep + month + sep + year;
    return month + sep + day + sep + year;
}

std::string timeText(long long ticks, const TextLayout& layout)
{
    long long seconds = ticks / TICKS_IN_SECOND;
    long long hour = seconds / 3600;
    std::string suffix;
    if (!layout.clock24) {
        suffix = " " + (hour < 12 ? layout.am : layout.pm);
        hour = hour % 12 == 0 ? 12 : hour % 12;
    }
    std::string text = twoDigits(hour) + layout.timeSeparator + twoDigits(seconds / 60 % 60);
    if (layout.seconds)
        text += layout.timeSeparator + twoDigits(seconds % 60);
    return text + suffix;
}

bool isValidTimedate(const TIMEDATE& value)
{
    return value.Innards[0] == ALLDAY || value.Innards[0] < static_cast<DWORD>(TICKS_IN_DAY);
}

STATUS formatTimedate(const TIMEDATE& value, const TextLayout& layout, std::string& text)
{
    if (!isValidTimedate(value))
        return ERR_TDO_CONV;
    LocalParts parts = toLocal(value, runtimeZone());
    bool showDate = parts.hasDate && wantsDate(layout);
    bool showTime = parts.hasTime && wantsTime(layout);
    if (!showDate && !showTime)
        return ERR_TDO_CONV;
    if (showDate && !isValidDate(parts.date, kMaxTextYear))
        return ERR_TDO_CONV;
    text = showDate ? dateText(parts.date, layout) : std::string();
    if (showTime)
        text += (showDate ? " " : "") + timeText(parts.ticks, layout);
    return NOERROR;
}

// ---- Reading text ----

class TextCursor {
public:
    TextCursor(const char* text, size_t size) : text_(text), size_(size) {}
    size_t position() const { return pos_; }
    bool atEnd() const { return pos_ == size_; }
    void skipSpaces()
    {
        while (pos_ < size_ && (text_[pos_] == ' ' || text_[pos_] == '\t'))
            ++pos_;
    }
    // Reads 1..maxDigits digits.
    bool number(size_t maxDigits, int& value, size_t& digits)
    {
        value = 0;
        digits = 0;
        while (pos_ < size_ && digits < maxDigits && std::isdigit(static_cast<unsigned char>(text_[pos_]))) {
            value = value * 10 + (text_[pos_++] - '0');
            ++digits;
        }
        return digits > 0 && !(pos_ < size_ && std::isdigit(static_cast<unsigned char>(text_[pos_])));
    }
    bool literal(const std::string& expected, bool ignoreCase = false)
    {
        if (expected.empty() || size_ - pos_ < expected.size())
            return false;
        for (size_t i = 0; i < expected.size(); ++i) {
            char a = text_[pos_ + i];
            char b = expected[i];
            if (ignoreCase ? std::toupper(static_cast<unsigned char>(a)) != std::toupper(static_cast<unsigned char>(b))
                           : a != b)
                return false;
        }
        pos_ += expected.size();
        return true;
    }
    void skipDigits()
    {
        while (pos_ < size_ && std::isdigit(static_cast<unsigned char>(text_[pos_])))
            ++pos_;
    }

private:
    const char* text_;
    size_t size_;
    size_t pos_ = 0;
};

// Years of one or two digits fall in 1950-2049.
int fullYear(int year, size_t digits)
{
    if (digits > 2)
        return year;
    return year < 50 ? 2000 + year : 1900 + year;
}

bool readDate(TextCursor& cursor, const TextLayout& layout, CivilDate& date)
{
    int fields[3] = {};
    size_t digits[3] = {};
    bool yearFirst = layout.dateOrder == kIntlDateYmd;
    for (int i = 0; i < 3; ++i) {
        bool yearField = yearFirst ? i == 0 : i == 2;
        if ((i > 0 && !cursor.literal(layout.dateSeparator)) || !cursor.number(yearField ? 4 : 2, fields[i], digits[i]))
            return false;
    }
    if (yearFirst)
        date = {fullYear(fields[0], digits[0]), fields[1], fields[2]};
    else if (layout.dateOrder == kIntlDateDmy)
        date = {fullYear(fields[2], digits[2]), fields[1], fields[0]};
    else
        date = {fullYear(fields[2], digits[2]), fields[0], fields[1]};
    return isValidDate(date, kMaxTextYear);
}

// ":mm" or ":ss"; the cursor moves only when the whole field is valid.
bool readTwoDigitField(TextCursor& cursor, const TextLayout& layout, int& value)
{
    TextCursor field = cursor;
    size_t digits = 0;
    if (!field.literal(layout.timeSeparator) || !field.number(2, value, digits) || digits != 2 || value >= 60)
        return false;
    cursor = field;
    return true;
}

bool readTimeFields(TextCursor& cursor, const TextLayout& layout, long long& ticks)
{
    int hour = 0, minute = 0, second = 0;
    size_t digits = 0;
    if (!cursor.number(2, hour, digits))
        return false;
    bool hasMinutes = readTwoDigitField(cursor, layout, minute);
    if (hasMinutes && readTwoDigitField(cursor, layout, second) && (cursor.literal(".") || cursor.literal(",")))
        cursor.skipDigits();
    cursor.skipSpaces();
    bool pm = cursor.literal(layout.pm, true);
    bool am = !pm && cursor.literal(layout.am, true);
    if (!hasMinutes && !am && !pm)
        return false;
    if (am || pm) {
        if (hour < 1 || hour > 12)
            return false;
        hour = hour % 12 + (pm ? 12 : 0);
    }
    if (hour > 23)
        return false;
    ticks = ((hour * 60LL + minute) * 60 + second) * TICKS_IN_SECOND;
    return true;
}

// hh[:mm[:ss[.fraction]]] [AM|PM]; the hour alone needs AM or PM. Fractions are dropped.
// The cursor moves only past a valid time.
bool readTime(TextCursor& cursor, const TextLayout& layout, long long& ticks)
{
    TextCursor field = cursor;
    if (!readTimeFields(field, layout, ticks))
        return false;
    cursor = field;
    return true;
}

bool readTimedate(TextCursor& cursor, const TextLayout& layout, LocalParts& parts)
{
    cursor.skipSpaces();
    TextCursor atDate = cursor;
    parts.hasDate = wantsDate(layout) && readDate(atDate, layout, parts.date);
    if (parts.hasDate) {
        cursor = atDate;
        cursor.skipSpaces();
    }
    if (wantsTime(layout) && !cursor.atEnd())
        parts.hasTime = readTime(cursor, layout, parts.ticks);
    cursor.skipSpaces();
    return (parts.hasDate || parts.hasTime) && cursor.atEnd();
}

// ---- Comparison ----

// A wildcard part matches the other value: no time counts as midnight, no date as
// the other value's day.
void alignWildcards(const TIMEDATE& a, const TIMEDATE& b, long long& dayA, long long& dayB, long long& ticksA,
                    long long& ticksB)
{
    ticksA = a.Innards[0] == ALLDAY ? 0 : a.Innards[0];
    ticksB = b.Innards[0] == ALLDAY ? 0 : b.Innards[0];
    dayA = a.Innards[1] & kJulianDayMask;
    dayB = b.Innards[1] & kJulianDayMask;
    if (a.Innards[1] == ANYDAY)
        dayA = dayB;
    if (b.Innards[1] == ANYDAY)
        dayB = dayA;
}

} // namespace

namespace sim {

TIMEDATE timedateFromUnix(long long seconds, int hundredths)
{
    long long julianDay = kUnixEpochJulianDay + floorDiv(seconds, 86400);
    long long ticks = floorMod(seconds, 86400) * TICKS_IN_SECOND + hundredths;
    return TIMEDATE{{static_cast<DWORD>(ticks),
                     static_cast<DWORD>(julianDay & kJulianDayMask) | zoneBits(runtimeZone())}};
}

TIMEDATE nowTimedate()
{
    long long seconds = 0;
    int hundredths = 0;
    currentUnixTime(seconds, hundredths);
    return timedateFromUnix(seconds, hundredths);
}

bool unixFromTimedate(const TIMEDATE& value, long long& seconds)
{
    if (value.Innards[0] == ALLDAY || value.Innards[1] == ANYDAY)
        return false;
    long long julianDay = value.Innards[1] & kJulianDayMask;
    seconds = (julianDay - kUnixEpochJulianDay) * 86400 + value.Innards[0] / TICKS_IN_SECOND;
    return true;
}

} // namespace sim

STATUS impl::ConvertTextToTIMEDATE(const void* IntlFormat, const TFMT* TextFormat, char** Text, WORD MaxLength,
                                   TIMEDATE* retTIMEDATE)
{
    if (Text == nullptr || *Text == nullptr || retTIMEDATE == nullptr)
        return sim::STS_BAD_ARGUMENT;
    TextLayout layout;
    STATUS status = layoutFor(IntlFormat, TextFormat, layout);
    if (status != NOERROR)
        return status;
    TextCursor cursor(*Text, strnlen(*Text, MaxLength));
    LocalParts parts;
    if (!readTimedate(cursor, layout, parts))
        return ERR_TDI_CONV;
    *retTIMEDATE = fromLocal(parts, runtimeZone());
    *Text += cursor.position();
    return NOERROR;
}

STATUS impl::ConvertTIMEDATEToText(const void* IntlFormat, const TFMT* TextFormat, const TIMEDATE* InputTime,
                                   char* retTextBuffer, WORD TextBufferLength, WORD* retTextLength)
{
    if (InputTime == nullptr || retTextBuffer == nullptr)
        return sim::STS_BAD_ARGUMENT;
    TextLayout layout;
    std::string text;
    STATUS status = layoutFor(IntlFormat, TextFormat, layout);
    if (status == NOERROR)
        status = formatTimedate(*InputTime, layout, text);
    if (status != NOERROR)
        return status;
    size_t length = std::min<size_t>(text.size(), TextBufferLength);
    std::memcpy(retTextBuffer, text.data(), length);
    if (retTextLength != nullptr)
        *retTextLength = static_cast<WORD>(length);
    return NOERROR;
}

void impl::TimeConstant(WORD TimeConstantType, TIMEDATE* tdptr)
{
    if (tdptr == nullptr)
        return;
    switch (TimeConstantType) {
    case TIMEDATE_MINIMUM:
        *tdptr = TIMEDATE{{0, 0}};
        break;
    case TIMEDATE_MAXIMUM: // 9999-12-31 23:59:59.99 GMT
        *tdptr = TIMEDATE{{TICKS_IN_DAY - 1, static_cast<DWORD>(julianDayFromDate({9999, 12, 31}))}};
        break;
    case TIMEDATE_WILDCARD:
        *tdptr = TIMEDATE{{ALLDAY, ANYDAY}};
        break;
    default:
        break;
    }
}

int impl::TimeDateCompare(const TIMEDATE* t1, const TIMEDATE* t2)
{
    if (t1 == nullptr || t2 == nullptr)
        return t1 == t2 ? 0 : (t1 == nullptr ? -1 : 1);
    long long day1 = 0, day2 = 0, ticks1 = 0, ticks2 = 0;
    alignWildcards(*t1, *t2, day1, day2, ticks1, ticks2);
    if (day1 != day2)
        return day1 < day2 ? -1 : 1;
    if (ticks1 != ticks2)
        return ticks1 < ticks2 ? -1 : 1;
    return 0;
}

LONG impl::TimeDateDifference(const TIMEDATE* t1, const TIMEDATE* t2)
{
    if (t1 == nullptr || t2 == nullptr)
        return 0;
    long long day1 = 0, day2 = 0, ticks1 = 0, ticks2 = 0;
    alignWildcards(*t1, *t2, day1, day2, ticks1, ticks2);
    long long seconds = ((day1 - day2) * TICKS_IN_DAY + ticks1 - ticks2) / TICKS_IN_SECOND;
    return static_cast<LONG>(std::clamp<long long>(seconds, INT_MIN, INT_MAX));
}

DWORD impl::TimeExtractJulianDate(const TIMEDATE* Time)
{
    return Time != nullptr ? Time->Innards[1] & kJulianDayMask : 0;
}

BOOL impl::TimeLocalToGM(TIME* Time)
{
    if (Time == nullptr)
        return TRUE;
    Zone zone;
    zone.dst = Time->dst != 0;
    LocalParts parts;
    parts.hasDate = parts.hasTime = true;
    parts.date = {Time->year, Time->month, Time->day};
    bool valid = eastMinutesOfZone(Time->zone, zone.eastMinutes) && isValidDate(parts.date, kMaxTimeYear) &&
                 Time->hour >= 0 && Time->hour < 24 && Time->minute >= 0 && Time->minute < 60 &&
                 Time->second >= 0 && Time->second < 60 && Time->hundredth >= 0 && Time->hundredth < 100;
    if (!valid)
        return TRUE;
    parts.ticks = ((Time->hour * 60LL + Time->minute) * 60 + Time->second) * TICKS_IN_SECOND + Time->hundredth;
    Time->GM = fromLocal(parts, zone);
    return FALSE;
}

void impl::OSCurrentTIMEDATE(TIMEDATE* retTimeDate)
{
    if (retTimeDate != nullptr)
        *retTimeDate = sim::nowTimedate();
}

void impl::OSCurrentTimeZone(int* retZone, int* retDST)
{
    if (retZone != nullptr)
        *retZone = runtimeZoneSetting();
    if (retDST != nullptr)
        *retDST = runtimeZone().dst ? TRUE : FALSE;
}

void impl::OSGetIntlSettings(INTLFORMAT* retIntlFormat, WORD BufferSize)
{
    if (retIntlFormat == nullptr)
        return;
    INTLFORMAT format = defaultIntlFormat();
    format.Length = static_cast<BYTE>(std::min<size_t>(BufferSize, 0xFF));
    std::memcpy(retIntlFormat, &format, std::min<size_t>(BufferSize, sizeof format));
}
