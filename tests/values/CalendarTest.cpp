#include "vorlan/values/Clock.h"

#include <climits>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr long long kDay = 86'400; // seconds
constexpr long long kSecond = 1'000'000;

Clock::Calendar calendar(int year, int month, int day, int hour = 0, int min = 0, int sec = 0, int msec = 0) {
    Clock::Calendar cal;
    cal.year = static_cast<std::uint16_t>(year);
    cal.month = static_cast<std::uint8_t>(month);
    cal.day = static_cast<std::uint8_t>(day);
    cal.hour = static_cast<std::uint8_t>(hour);
    cal.min = static_cast<std::uint8_t>(min);
    cal.sec = static_cast<std::uint8_t>(sec);
    cal.msec = static_cast<std::uint16_t>(msec);
    return cal;
}

std::string textOf(Clock::Calendar const& cal) {
    char text[64];
    std::snprintf(text, sizeof text, "%04u-%02u-%02u %02u:%02u:%02u.%03u", cal.year, cal.month + 1U, cal.day,
                  cal.hour, cal.min, cal.sec, cal.msec);
    return text;
}

// The platform's own conversions.
long long platformTime(Clock::Calendar const& cal) {
    std::tm parts{};
    parts.tm_year = cal.year - 1900;
    parts.tm_mon = cal.month;
    parts.tm_mday = cal.day;
    parts.tm_hour = cal.hour;
    parts.tm_min = cal.min;
    parts.tm_sec = cal.sec;
    return timegm(&parts) * kSecond + cal.msec * 1000LL;
}

Clock::Calendar platformCalendar(std::time_t seconds, int msec) {
    std::tm parts{};
    gmtime_r(&seconds, &parts);
    int const year = parts.tm_year + 1900;
    return calendar(year >= 0 && year <= 65'535 ? year : 0, parts.tm_mon, parts.tm_mday, parts.tm_hour,
                    parts.tm_min, parts.tm_sec, msec);
}

// A day off by one after any leap day or month's end, either way.
TEST(Calendar, EveryDayTo2038AndASampleTo65535AgreesWithThePlatform) {
    long long const lastDay = platformTime(calendar(65'535, 11, 31)) / kSecond / kDay;
    long long const allDays = 70 * 366;
    for (long long day = 0; day <= lastDay; day += day < allDays ? 1 : 41) {
        long long const seconds = day * kDay + day * 7'919 % kDay;
        int const msec = static_cast<int>(day % 1000);
        long long const time = seconds * kSecond + msec * 1000;
        Clock::Calendar const wanted = platformCalendar(seconds, msec);
        ASSERT_EQ(Clock::getGmtTime(wanted), time) << textOf(wanted);
        ASSERT_EQ(Clock::getGmtTime(Clock::getGmtCal(time + 999)), time) << textOf(wanted);
        if (day < allDays || day % 16 == 0) {
            ASSERT_EQ(textOf(Clock::getGmtCal(time)), textOf(wanted));
        }
    }
}

TEST(Calendar, FieldsOutOfTheirRangeRunOnAsInTimegm) {
    std::mt19937 random(1970);
    auto const below = [&random](unsigned int bound) { return static_cast<int>(random() % bound); };
    for (int i = 0; i < 30'000; ++i) {
        Clock::Calendar const cal = calendar(1970 + below(65'536 - 1970), below(256), below(256), below(256),
                                             below(256), below(256), below(65'536));
        ASSERT_EQ(Clock::getGmtTime(cal), platformTime(cal)) << textOf(cal);
    }
}

TEST(Calendar, AYearBefore1970HasNoCount) {
    EXPECT_EQ(Clock::getGmtTime(calendar(1969, 11, 31, 23, 59, 59, 999)), -1);
    EXPECT_EQ(Clock::getGmtTime(Clock::Calendar()), -1);
    EXPECT_EQ(Clock::getGmtTime(calendar(1970, 0, 1)), 0);
}

// A division that truncates where it must round down, and a year that wraps into the record.
TEST(Calendar, MomentsBefore1970AndBeyondTheRecordAreValid) {
    for (long long day = -1; day > -800'000; day -= 97) {
        ASSERT_EQ(textOf(Clock::getGmtCal(day * kDay * kSecond + 1)),
                  textOf(platformCalendar(day * kDay, 0)));
    }
    EXPECT_EQ(textOf(Clock::getGmtCal(-1)), "1969-12-31 23:59:59.999");
    EXPECT_EQ(textOf(Clock::getGmtCal(LLONG_MAX)), textOf(platformCalendar(LLONG_MAX / kSecond, 775)));
    EXPECT_EQ(textOf(Clock::getGmtCal(LLONG_MIN)), textOf(platformCalendar(LLONG_MIN / kSecond - 1, 224)));
}

void useZone(char const* rule) {
    setenv("TZ", rule, 1); // NOLINT(concurrency-mt-unsafe): no other thread runs at that time
}

constexpr char kMiddleEurope[] = "CET-1CEST,M3.5.0,M10.5.0/3";
constexpr char kEastAmerica[] = "EST5EDT,M3.2.0,M11.1.0";
constexpr char kLordHowe[] = "LHST-10:30LHDT-11,M10.1.0,M4.1.0"; // summer time is half an hour

TEST(Calendar, LocalTimeFollowsTheZoneAndItsDaylightSavingToTheMicrosecond) {
    struct Row {
        char const* zone;
        long long seconds;
        char const* microsecondBefore;
        char const* then;
    };
    Row const rows[] = {
        {kMiddleEurope, 1'711'846'800, "2024-03-31 01:59:59.999", "2024-03-31 03:00:00.000"},
        {kMiddleEurope, 1'729'990'800, "2024-10-27 02:59:59.999", "2024-10-27 02:00:00.000"},
        {kEastAmerica, 1'710'054'000, "2024-03-10 01:59:59.999", "2024-03-10 03:00:00.000"},
        {kEastAmerica, 1'730'613'600, "2024-11-03 01:59:59.999", "2024-11-03 01:00:00.000"},
        {kLordHowe, 1'712'415'600, "2024-04-07 01:59:59.999", "2024-04-07 01:30:00.000"},
        {kLordHowe, 1'728'142'200, "2024-10-06 01:59:59.999", "2024-10-06 02:30:00.000"},
        {"UTC0", 0, "1969-12-31 23:59:59.999", "1970-01-01 00:00:00.000"},
        {"UTC0", 4'102'444'800, "2099-12-31 23:59:59.999", "2100-01-01 00:00:00.000"},
    };
    for (Row const& row : rows) {
        useZone(row.zone);
        EXPECT_EQ(textOf(Clock::getLocalCal(row.seconds * kSecond - 1)), row.microsecondBefore) << row.zone;
        EXPECT_EQ(textOf(Clock::getLocalCal(row.seconds * kSecond)), row.then) << row.zone;
    }
    useZone("UTC0");
    for (long long const time : {LLONG_MIN, LLONG_MAX}) {
        EXPECT_EQ(textOf(Clock::getLocalCal(time)), textOf(Clock::getGmtCal(time)));
    }
}

// A record shared between threads would mix their moments.
TEST(Calendar, ThreadsDoNotDisturbEachOthersLocalTime) {
    useZone("UTC0");
    std::vector<std::thread> threads;
    threads.reserve(3);
    for (int number = 0; number < 3; ++number) {
        threads.emplace_back([number] {
            for (long long i = 0; i < 3'000; ++i) {
                Clock::Calendar const cal = Clock::getLocalCal((i * 3 + number) * kDay * kSecond);
                ASSERT_EQ(Clock::getGmtTime(cal), (i * 3 + number) * kDay * kSecond);
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

} // namespace
