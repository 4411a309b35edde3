#include "ScopedEnvironment.h"

#include "framework/services/SystemServices.h"

#include <gtest/gtest.h>

#include <ctime>
#include <filesystem>
#include <optional>
#include <string>

using namespace KVX;

namespace {

DateTime at(int32 year, int32 month, int32 day, int32 hour, int32 minute, int32 second = 0, int32 ms = 0)
{
    return DateTime{year, month, day, hour, minute, second, ms};
}

std::string text(const DateTime& t)
{
    char buffer[48];
    std::snprintf(buffer, sizeof(buffer), "%04d-%02d-%02dT%02d:%02d:%02d.%03d", t.year, t.month, t.day, t.hour,
                  t.minute, t.second, t.millisecond);
    return buffer;
}

// Runs a test in one time zone and puts the process's zone back afterwards.
class ZoneTest : public testing::Test
{
protected:
    ZoneTest() { zone_.emplace("TZ", std::getenv("TZ")); }
    ~ZoneTest() override
    {
        zone_.reset();
        tzset();
    }

    void useZone(const char* zone)
    {
        ASSERT_TRUE(std::filesystem::exists(std::string("/usr/share/zoneinfo/") + zone))
            << "the tzdata package is needed";
        zone_->set(zone);
        tzset();
    }

    std::string toUtc(const DateTime& local)
    {
        DateTime utc{};
        if (GetSystem()->convertLocalTimeToUTC(utc, local) != kResultOk)
            return "refused";
        return text(utc);
    }
    std::string toLocal(const DateTime& utc)
    {
        DateTime local{};
        if (GetSystem()->convertUTCToLocalTime(local, utc) != kResultOk)
            return "refused";
        return text(local);
    }

private:
    std::optional<ScopedEnvironment> zone_;
};

} // namespace

TEST_F(ZoneTest, LocalTimeConvertsWithTheOffsetOfItsOwnDateInWinterAndSummer)
{
    useZone("Europe/Berlin");
    EXPECT_EQ(toUtc(at(2024, 1, 15, 12, 0, 0, 250)), "2024-01-15T11:00:00.250");
    EXPECT_EQ(toUtc(at(2024, 7, 15, 12, 0)), "2024-07-15T10:00:00.000");
    EXPECT_EQ(toLocal(at(2024, 1, 15, 11, 0)), "2024-01-15T12:00:00.000");
    EXPECT_EQ(toLocal(at(2024, 7, 15, 10, 0, 5, 999)), "2024-07-15T12:00:05.999");

    // Across the turn of the year and a leap day.
    EXPECT_EQ(toUtc(at(2024, 1, 1, 0, 30)), "2023-12-31T23:30:00.000");
    EXPECT_EQ(toUtc(at(2024, 3, 1, 0, 15)), "2024-02-29T23:15:00.000");
    EXPECT_EQ(toLocal(at(2023, 12, 31, 23, 30)), "2024-01-01T00:30:00.000");

    // The zone's own summer comes in its January.
    useZone("Australia/Sydney");
    EXPECT_EQ(toUtc(at(2024, 1, 15, 12, 0)), "2024-01-15T01:00:00.000");
    EXPECT_EQ(toUtc(at(2024, 7, 15, 12, 0)), "2024-07-15T02:00:00.000");

    useZone("UTC");
    EXPECT_EQ(toUtc(at(2024, 7, 15, 12, 0)), "2024-07-15T12:00:00.000");
}

TEST_F(ZoneTest, TheRepeatedHourIsTakenAtItsFirstOccurrenceAndTheSkippedHourWithTheEarlierOffset)
{
    useZone("Europe/Berlin");
    // 2024-10-27: 03:00 summer time becomes 02:00 winter time, so 02:30 happens twice.
    EXPECT_EQ(toUtc(at(2024, 10, 27, 2, 30)), "2024-10-27T00:30:00.000");
    EXPECT_EQ(toUtc(at(2024, 10, 27, 1, 59, 59)), "2024-10-26T23:59:59.000");
    EXPECT_EQ(toUtc(at(2024, 10, 27, 3, 0)), "2024-10-27T02:00:00.000");
    EXPECT_EQ(toLocal(at(2024, 10, 27, 0, 30)), "2024-10-27T02:30:00.000");
    EXPECT_EQ(toLocal(at(2024, 10, 27, 1, 30)), "2024-10-27T02:30:00.000");

    // 2024-03-31: 02:00 winter time becomes 03:00 summer time, so 02:30 never happens.
    EXPECT_EQ(toUtc(at(2024, 3, 31, 1, 59, 59)), "2024-03-31T00:59:59.000");
    EXPECT_EQ(toUtc(at(2024, 3, 31, 2, 30)), "2024-03-31T01:30:00.000");
    EXPECT_EQ(toUtc(at(2024, 3, 31, 3, 0)), "2024-03-31T01:00:00.000");
}

TEST_F(ZoneTest, ConversionsAgreeWithTheCLibraryForEveryHourOfALeapYear)
{
    auto fieldsOf = [](const struct tm& fields) {
        return at(fields.tm_year + 1900, fields.tm_mon + 1, fields.tm_mday, fields.tm_hour, fields.tm_min,
                  fields.tm_sec);
    };
    for (const char* zone : {"Europe/Berlin", "Australia/Adelaide", "America/St_Johns"})
    {
        useZone(zone);
        struct tm start = {};
        start.tm_year = 2024 - 1900;
        start.tm_mday = 1;
        start.tm_min = 17;
        const time_t first = timegm(&start);
        int32 failures = 0;
        for (time_t t = first; t < first + 366 * 24 * 3600 && failures < 5; t += 3600)
        {
            struct tm utcFields = {};
            struct tm localFields = {};
            struct tm hourEarlier = {};
            const time_t earlier = t - 3600;
            ASSERT_NE(gmtime_r(&t, &utcFields), nullptr);
            ASSERT_NE(localtime_r(&t, &localFields), nullptr);
            ASSERT_NE(localtime_r(&earlier, &hourEarlier), nullptr);
            const DateTime utc = fieldsOf(utcFields);
            const DateTime local = fieldsOf(localFields);

            const std::string wantLocal = text(local);
            // A wall-clock time met twice converts back to its first pass, an hour earlier.
            const bool secondPass = fieldsOf(hourEarlier) == local;
            struct tm backFields = {};
            const time_t back = secondPass ? earlier : t;
            ASSERT_NE(gmtime_r(&back, &backFields), nullptr);
            const std::string wantUtc = text(fieldsOf(backFields));

            const std::string gotLocal = toLocal(utc);
            const std::string gotUtc = toUtc(local);
            EXPECT_EQ(gotLocal, wantLocal) << zone << " at " << text(utc);
            EXPECT_EQ(gotUtc, wantUtc) << zone << " at " << wantLocal;
            failures += (gotLocal != wantLocal) + (gotUtc != wantUtc);
        }
    }
}

TEST_F(ZoneTest, FieldsOutOfRangeAreRefusedAndLeaveTheResultAlone)
{
    useZone("Europe/Berlin");
    const DateTime bad[] = {
        at(2023, 2, 29, 12, 0),   at(2024, 4, 31, 12, 0),        at(2024, 0, 1, 0, 0),        at(2024, 13, 1, 0, 0),
        at(2024, 1, 0, 0, 0),     at(2024, 1, 1, 24, 0),         at(2024, 1, 1, -1, 0),       at(2024, 1, 1, 0, 60),
        at(2024, 1, 1, 0, 0, 60), at(2024, 1, 1, 0, 0, 0, 1000), at(2024, 1, 1, 0, 0, 0, -1), at(0, 1, 1, 0, 0),
        at(10000, 1, 1, 0, 0),
    };
    const DateTime untouched = at(1999, 9, 9, 9, 9, 9, 9);
    for (const DateTime& input : bad)
    {
        DateTime result = untouched;
        EXPECT_EQ(GetSystem()->convertLocalTimeToUTC(result, input), kInvalidArgument) << text(input);
        EXPECT_EQ(GetSystem()->convertUTCToLocalTime(result, input), kInvalidArgument) << text(input);
        EXPECT_EQ(result, untouched);
    }
    EXPECT_EQ(toUtc(at(1900, 2, 28, 12, 0)), "1900-02-28T11:00:00.000") << "1900 is no leap year";
    EXPECT_EQ(toUtc(at(2000, 2, 29, 12, 0)), "2000-02-29T11:00:00.000") << "2000 is one";

    // Valid input whose result would leave the range of years.
    EXPECT_EQ(toLocal(at(9999, 12, 31, 23, 30)), "refused");
    EXPECT_EQ(toUtc(at(1, 1, 1, 0, 0)), "refused");
}

TEST_F(ZoneTest, TheCurrentLocalTimeMatchesTheSystemClock)
{
    useZone("Europe/Berlin");
    // The seconds around the reading, of the clock it reads: time() reads a coarser clock that can
    // lag by a tick, and would miss a reading taken as a second turned over.
    auto now = [] {
        timespec clock{};
        clock_gettime(CLOCK_REALTIME, &clock);
        return clock.tv_sec;
    };
    const time_t before = now();
    DateTime local{};
    GetSystem()->getLocalTime(local);
    const time_t after = now();

    // The reading must be the C library's local time of one of the seconds around it; the
    // millisecond is left out of the comparison.
    DateTime seconds = local;
    seconds.millisecond = 0;
    std::string candidates;
    bool matched = false;
    for (time_t t = before; t <= after; ++t)
    {
        struct tm fields = {};
        ASSERT_NE(localtime_r(&t, &fields), nullptr);
        const DateTime expected =
            at(fields.tm_year + 1900, fields.tm_mon + 1, fields.tm_mday, fields.tm_hour, fields.tm_min, fields.tm_sec);
        matched = matched || expected == seconds;
        candidates += text(expected) + " ";
    }
    EXPECT_TRUE(matched) << text(local) << " is none of " << candidates;
    EXPECT_GE(local.millisecond, 0);
    EXPECT_LE(local.millisecond, 999);
}
