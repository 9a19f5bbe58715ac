#include "vorlan/values/Clock.h"

#include <array>
#include <climits>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <gtest/gtest.h>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

constexpr long long kSecond = 1'000'000; // microseconds
constexpr long long kDay = 86'400 * kSecond;

using Fields = std::array<int, 7>; // year, month from 0, day, hour, minute, second, millisecond

Fields fieldsOf(Clock::Calendar const& cal) {
    return {cal.year, cal.month, cal.day, cal.hour, cal.min, cal.sec, cal.msec};
}

// The platform's own conversions, cut to what a record can hold.
Fields platformFields(long long time) {
    std::time_t const seconds = time / kSecond - (time % kSecond < 0 ? 1 : 0);
    auto const msec = static_cast<int>((time % kSecond + kSecond) % kSecond / 1000);
    std::tm tm{};
    gmtime_r(&seconds, &tm);
    int const year = tm.tm_year >= -1900 && tm.tm_year <= 65'535 - 1900 ? tm.tm_year + 1900 : 0;
    return {year, tm.tm_mon, tm.tm_mday, tm.tm_hour, tm.tm_min, tm.tm_sec, msec};
}

// A day off by one after any leap day or month's end, either way; a division that truncates where it must
// round down; a year that wraps into the record.
TEST(Calendar, EveryDayOfFourCenturiesAndASampleOfTheRestAgreesWithThePlatform) {
    setenv("TZ", "UTC0", 1); // NOLINT(concurrency-mt-unsafe): no other thread runs now
    std::vector<long long> times = {-1, LLONG_MIN, LLONG_MAX};
    for (long long day = -211 * 4'000; day < 366 * 65'536; day += day >= 0 && day < 146'097 ? 1 : 211) {
        times.push_back(day * kDay + day % 65'536 * 1'318'359);
    }
    for (long long const time : times) {
        Clock::Calendar const cal = Clock::getGmtCal(time);
        ASSERT_EQ(fieldsOf(cal), platformFields(time)) << time;
        ASSERT_EQ(fieldsOf(Clock::getLocalCal(time)), platformFields(time)) << time;
        ASSERT_EQ(Clock::getGmtTime(cal), cal.year < 1970 ? -1 : time - time % 1000) << time;
    }
}

TEST(Calendar, FieldsOutOfTheirRangeRunOnAsInTimegm) {
    std::mt19937_64 random(1970);
    for (int i = 0; i < 30'000; ++i) {
        Clock::Calendar cal;
        std::uint64_t const words[] = {random(), random()};
        std::memcpy(&cal, words, sizeof cal);
        std::tm tm{cal.sec, cal.min, cal.hour, cal.day, cal.month, cal.year - 1900, 0, 0, 0, 0, nullptr};
        long long const time = timegm(&tm) * kSecond + cal.msec * 1000LL;
        ASSERT_EQ(Clock::getGmtTime(cal), cal.year < 1970 ? -1 : time) << "record " << i;
    }
}

// `then` is the record of the moment, and `before` that of the microsecond before it.
void expectChange(char const* zone, long long seconds, Fields const& before, Fields const& then) {
    setenv("TZ", zone, 1); // NOLINT(concurrency-mt-unsafe): no other thread runs now
    EXPECT_EQ(fieldsOf(Clock::getLocalCal(seconds * kSecond - 1)), before) << zone;
    EXPECT_EQ(fieldsOf(Clock::getLocalCal(seconds * kSecond)), then) << zone;
}

TEST(Calendar, LocalTimeFollowsTheZoneAndItsDaylightSavingToTheMicrosecond) {
    char const* const middleEurope = "CET-1CEST,M3.5.0,M10.5.0/3";
    char const* const eastAmerica = "EST5EDT,M3.2.0,M11.1.0";
    char const* const lordHowe = "LHST-10:30LHDT-11,M10.1.0,M4.1.0"; // summer time is half an hour
    expectChange(middleEurope, 1'711'846'800, {2024, 2, 31, 1, 59, 59, 999}, {2024, 2, 31, 3});
    expectChange(middleEurope, 1'729'990'800, {2024, 9, 27, 2, 59, 59, 999}, {2024, 9, 27, 2});
    expectChange(eastAmerica, 1'710'054'000, {2024, 2, 10, 1, 59, 59, 999}, {2024, 2, 10, 3});
    expectChange(eastAmerica, 1'730'613'600, {2024, 10, 3, 1, 59, 59, 999}, {2024, 10, 3, 1});
    expectChange(lordHowe, 1'712'415'600, {2024, 3, 7, 1, 59, 59, 999}, {2024, 3, 7, 1, 30});
    expectChange(lordHowe, 1'728'142'200, {2024, 9, 6, 1, 59, 59, 999}, {2024, 9, 6, 2, 30});
}

// A record shared between threads would mix their moments.
TEST(Calendar, ThreadsDoNotDisturbEachOthersLocalTime) {
    auto const walk = [](long long second) {
        for (long long const end = second + 100'000; second < end; second += 2) {
            ASSERT_EQ(Clock::getLocalCal(second * kSecond).sec, second % 60);
        }
    };
    std::thread other(walk, 1'700'000'000);
    walk(1'800'000'001);
    other.join();
}

TEST(Calendar, TextGoesByTheLargestPartAndADayOrMoreShowsItsTimeOfDay) {
    auto const text = [](long long time) { return std::string(Clock::timeString(time).get()); };
    EXPECT_EQ(text(999'999), "999ms");
    EXPECT_EQ(text(1'000'000), "1.000s");
    EXPECT_EQ(text(59'999'999), "59.999s");
    EXPECT_EQ(text(60'000'000), "1:00.000");
    EXPECT_EQ(text(3'599'999'999), "59:59.999");
    EXPECT_EQ(text(3'600'000'000), "1:00:00.000");
    EXPECT_EQ(text(kDay - 1), "23:59:59.999");
    EXPECT_EQ(text(kDay), "0ms");
    EXPECT_EQ(text(20'000 * kDay + 302'123'000), "5:02.123");
    EXPECT_EQ(text(-1), "-0ms");
    EXPECT_EQ(text(-1'500'000), "-1.500s");
    EXPECT_EQ(text(LLONG_MIN), "-2562047788:00:54.775");
}

} // namespace
