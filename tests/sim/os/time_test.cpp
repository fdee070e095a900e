// TIMEDATE encoding, the runtime's zone and the text form.
#include <gtest/gtest.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <random>
#include <string>

#include "HySimControl.h"
#include "sim_core.h"
#include "timedate.h"

namespace {

// 2:49:04 PM EST on 10 December 1996, in a zone that observes daylight saving.
const TIMEDATE kWorkedExample{{0x006CDCC0u, 0x852563FCu}};
constexpr long long kWorkedExampleUnix = 850247344; // 19:49:04 GMT

// Starts the runtime on a fresh data directory whose notes.ini holds `settings`.
void startRuntime(const std::string& settings)
{
    char pattern[] = "/tmp/hysim_time_XXXXXX";
    ASSERT_NE(mkdtemp(pattern), nullptr);
    std::string dir = pattern;
    std::ofstream(dir + "/notes.ini") << "[Notes]\nDirectory=" << dir << "\n" << settings;
    std::string iniArg = "=" + dir + "/notes.ini";
    char* argv[] = {&dir[0], &iniArg[0]};
    ASSERT_EQ(NotesInitExtended(2, argv), NOERROR);
}

struct SimCoreTimeEst : ::testing::Test {
    void SetUp() override { startRuntime("HySimTimeZone=5\nHySimDST=1\n"); }
    void TearDown() override
    {
        HySimUseRealClock();
        NotesTerm();
    }
};

std::string toText(const TIMEDATE& value, const void* intl = nullptr, const TFMT* format = nullptr)
{
    char buffer[MAXALPHATIMEDATE + 1];
    std::memset(buffer, '#', sizeof buffer);
    WORD length = 0;
    STATUS status = ConvertTIMEDATEToText(intl, format, &value, buffer, MAXALPHATIMEDATE, &length);
    EXPECT_EQ(status, NOERROR);
    return std::string(buffer, length);
}

STATUS fromText(const std::string& text, TIMEDATE& value, WORD maxLength = MAXALPHATIMEDATE,
                const void* intl = nullptr)
{
    std::string copy = text;
    char* cursor = &copy[0];
    STATUS status = ConvertTextToTIMEDATE(intl, nullptr, &cursor, maxLength, &value);
    if (status != NOERROR) {
        EXPECT_EQ(cursor, &copy[0]) << "a failed conversion leaves the text pointer";
    }
    return status;
}

} // namespace

TEST_F(SimCoreTimeEst, LocalTimeEncodesAsTheWorkedExample)
{
    TIME local{};
    local.year = 1996;
    local.month = 12;
    local.day = 10;
    local.hour = 14;
    local.minute = 49;
    local.second = 4;
    local.dst = TRUE;
    local.zone = 5;
    ASSERT_EQ(TimeLocalToGM(&local), FALSE) << "FALSE means success";
    EXPECT_EQ(local.GM.Innards[0], kWorkedExample.Innards[0]);
    EXPECT_EQ(local.GM.Innards[1], kWorkedExample.Innards[1]);

    local.zone = -3005; // India, GMT+05:30, no daylight saving
    local.dst = FALSE;
    ASSERT_EQ(TimeLocalToGM(&local), FALSE);
    EXPECT_EQ(local.GM.Innards[1] >> 24, 0x65u);
    EXPECT_EQ(local.GM.Innards[0], ((9 * 60 + 19) * 60 + 4) * 100u);

    for (auto breakIt : {+[](TIME& t) { t.month = 13; }, +[](TIME& t) { t.day = 31; t.month = 11; },
                         +[](TIME& t) { t.zone = 20; }, +[](TIME& t) { t.zone = 1005; }, +[](TIME& t) { t.hour = 24; }}) {
        TIME bad = local;
        breakIt(bad);
        EXPECT_EQ(TimeLocalToGM(&bad), TRUE);
    }
}

TEST_F(SimCoreTimeEst, ClockZoneAndIntlSettingsFollowNotesIni)
{
    HySimSetClock(kWorkedExampleUnix, 0);
    TIMEDATE now{};
    OSCurrentTIMEDATE(&now);
    EXPECT_EQ(now.Innards[0], kWorkedExample.Innards[0]);
    EXPECT_EQ(now.Innards[1], kWorkedExample.Innards[1]);
    long long seconds = 0;
    ASSERT_TRUE(sim::unixFromTimedate(now, seconds));
    EXPECT_EQ(seconds, kWorkedExampleUnix);

    int zone = 0, dst = 0;
    OSCurrentTimeZone(&zone, &dst);
    EXPECT_EQ(zone, 5);
    EXPECT_EQ(dst, TRUE);

    INTLFORMAT intl;
    std::memset(&intl, 0x7F, sizeof intl);
    OSGetIntlSettings(&intl, sizeof intl);
    EXPECT_EQ(intl.Length, 140);
    EXPECT_EQ(intl.TimeZone, 5);
    EXPECT_STREQ(intl.DateString, "/");
    EXPECT_STREQ(intl.PMString, "PM");
    EXPECT_STREQ(intl.TomorrowString, "Tomorrow");

    INTLFORMAT partial;
    std::memset(&partial, 0x7F, sizeof partial);
    OSGetIntlSettings(&partial, 4);
    EXPECT_EQ(partial.Length, 4);
    EXPECT_EQ(partial.TimeZone, 0x7F7F7F7F) << "nothing past the given size is written";
}

TEST(SimCoreTime, ZoneDefaultsToGmtWithoutSettings)
{
    startRuntime("");
    int zone = 9, dst = 9;
    OSCurrentTimeZone(&zone, &dst);
    EXPECT_EQ(zone, 0);
    EXPECT_EQ(dst, FALSE);
    TIMEDATE value = sim::timedateFromUnix(0, 50);
    EXPECT_EQ(value.Innards[0], 50u);
    EXPECT_EQ(value.Innards[1], 2440588u) << "zone byte 0 for GMT";
    EXPECT_EQ(sim::timedateFromUnix(-1, 0).Innards[1], 2440587u);
    NotesTerm();
}

TEST_F(SimCoreTimeEst, TextIsInTheRuntimeZoneAndReadsBack)
{
    EXPECT_EQ(toText(kWorkedExample), "12/10/1996 02:49:04 PM");
    TIMEDATE value{};
    std::string text = "12/10/1996 02:49:04 PM tail";
    char* cursor = &text[0];
    ASSERT_EQ(ConvertTextToTIMEDATE(nullptr, nullptr, &cursor, 22, &value), NOERROR);
    EXPECT_EQ(cursor, &text[0] + 22);
    EXPECT_EQ(value.Innards[0], kWorkedExample.Innards[0]);
    EXPECT_EQ(value.Innards[1], kWorkedExample.Innards[1]);

    std::mt19937 random(11);
    std::uniform_int_distribution<long long> moments(-2208988800LL, 4102444799LL); // 1900 - 2099
    for (int i = 0; i < 2000; ++i) {
        TIMEDATE original = sim::timedateFromUnix(moments(random), 0);
        std::string printed = toText(original);
        ASSERT_EQ(fromText(printed, value), NOERROR) << printed;
        ASSERT_EQ(value.Innards[0], original.Innards[0]) << printed;
        ASSERT_EQ(value.Innards[1], original.Innards[1]) << printed;
    }
}

TEST_F(SimCoreTimeEst, DateOnlyAndTimeOnlyValues)
{
    TIMEDATE value{};
    ASSERT_EQ(fromText("12/10/1996", value), NOERROR);
    EXPECT_EQ(value.Innards[0], ALLDAY);
    EXPECT_EQ(value.Innards[1], 0x852563FCu) << "a date alone keeps its day";
    EXPECT_EQ(toText(value), "12/10/1996");

    ASSERT_EQ(fromText(" 2:49:04 pm", value), NOERROR);
    EXPECT_EQ(value.Innards[1], ANYDAY);
    EXPECT_EQ(value.Innards[0], kWorkedExample.Innards[0]);
    EXPECT_EQ(toText(value), "02:49:04 PM");

    ASSERT_EQ(fromText("12/10/1996 02:49:04 PM", value, 10), NOERROR) << "MaxLength cuts the text";
    EXPECT_EQ(value.Innards[0], ALLDAY);

    ASSERT_EQ(fromText("1/2/49 7 AM", value), NOERROR);
    EXPECT_EQ(toText(value), "01/02/2049 07:00:00 AM");
    ASSERT_EQ(fromText("1/2/50 19:00:00.75", value), NOERROR);
    EXPECT_EQ(toText(value), "01/02/1950 07:00:00 PM");
}

TEST_F(SimCoreTimeEst, BadTextAndBadValuesAreRefused)
{
    TIMEDATE value{};
    for (const char* text : {"", "abc", "13/45/2020", "02/30/2021", "12/10/1996 25:00:00", "10:30:5", "10:30:61",
                             "12/10/1996x", "13:00 PM", "7", "12/10/19961"})
        EXPECT_EQ(fromText(text, value), ERR_TDI_CONV) << text;

    char buffer[MAXALPHATIMEDATE];
    WORD length = 0;
    TIMEDATE wildcard{}, tooManyTicks{{TICKS_IN_DAY, 0x852563FCu}}, dayZero{{0, 0}};
    TimeConstant(TIMEDATE_WILDCARD, &wildcard);
    for (const TIMEDATE& bad : {wildcard, tooManyTicks, dayZero})
        EXPECT_EQ(ConvertTIMEDATEToText(nullptr, nullptr, &bad, buffer, sizeof buffer, &length), ERR_TDO_CONV);

    std::memset(buffer, '#', sizeof buffer);
    ASSERT_EQ(ConvertTIMEDATEToText(nullptr, nullptr, &kWorkedExample, buffer, 10, &length), NOERROR);
    EXPECT_EQ(std::string(buffer, 11), "12/10/1996#") << "cut at the limit and not terminated";
    EXPECT_EQ(length, 10);
}

TEST_F(SimCoreTimeEst, CallerFormatsAreHonouredOrRefused)
{
    INTLFORMAT intl;
    OSGetIntlSettings(&intl, sizeof intl);
    intl.Flags = 0x0040 | 0x0008; // day-month-year, 24-hour clock, two-digit years allowed
    std::strcpy(intl.DateString, ".");
    EXPECT_EQ(toText(kWorkedExample, &intl), "10.12.96 14:49:04");
    TIMEDATE value{};
    ASSERT_EQ(fromText("10.12.96 14:49:04", value, MAXALPHATIMEDATE, &intl), NOERROR);
    EXPECT_EQ(value.Innards[0], kWorkedExample.Innards[0]);

    TFMT dateOnly{0, 0, 0, 0}, noSeconds{0, 1, 0, 2};
    EXPECT_EQ(toText(kWorkedExample, nullptr, &dateOnly), "12/10/1996");
    EXPECT_EQ(toText(kWorkedExample, nullptr, &noSeconds), "12/10/1996 02:49 PM");

    char buffer[MAXALPHATIMEDATE];
    WORD length = 0;
    TFMT zoneAlways{0, 0, 2, 2};
    EXPECT_EQ(ConvertTIMEDATEToText(nullptr, &zoneAlways, &kWorkedExample, buffer, sizeof buffer, &length), 0x040B);
    intl.Flags |= 0x0400; // AM/PM before the time
    EXPECT_EQ(ConvertTIMEDATEToText(&intl, nullptr, &kWorkedExample, buffer, sizeof buffer, &length), 0x040A);
}

TEST(SimCoreTime, ConstantsComparisonAndDifference)
{
    TIMEDATE minimum{{1, 1}}, maximum{}, wildcard{};
    TimeConstant(TIMEDATE_MINIMUM, &minimum);
    TimeConstant(TIMEDATE_MAXIMUM, &maximum);
    TimeConstant(TIMEDATE_WILDCARD, &wildcard);
    EXPECT_EQ(minimum.Innards[0], 0u);
    EXPECT_EQ(minimum.Innards[1], 0u);
    EXPECT_EQ(maximum.Innards[0], 8639999u);
    EXPECT_EQ(maximum.Innards[1], 5373484u);
    EXPECT_EQ(wildcard.Innards[0], ALLDAY);
    EXPECT_EQ(wildcard.Innards[1], ANYDAY);

    TIMEDATE sameInstantInGmt{{kWorkedExample.Innards[0], 0x002563FCu}};
    EXPECT_EQ(TimeDateCompare(&kWorkedExample, &sameInstantInGmt), 0) << "the zone byte is ignored";
    TIMEDATE nextDayEarlier{{100, 0x002563FDu}};
    EXPECT_EQ(TimeDateCompare(&kWorkedExample, &nextDayEarlier), -1);
    EXPECT_EQ(TimeDateCompare(&nextDayEarlier, &kWorkedExample), 1);
    EXPECT_EQ(TimeDateCompare(&maximum, &minimum), 1);

    EXPECT_EQ(TimeDateDifference(&nextDayEarlier, &kWorkedExample), (8640000 + 100 - 7134400) / 100);
    TIMEDATE plus150{{kWorkedExample.Innards[0] + 150, kWorkedExample.Innards[1]}};
    EXPECT_EQ(TimeDateDifference(&plus150, &kWorkedExample), 1) << "hundredths are truncated";
    EXPECT_EQ(TimeDateDifference(&kWorkedExample, &plus150), -1);
    EXPECT_EQ(TimeDateDifference(&maximum, &minimum), 2147483647) << "saturates at the LONG range";
    EXPECT_EQ(TimeExtractJulianDate(&kWorkedExample), 0x2563FCu);
}
