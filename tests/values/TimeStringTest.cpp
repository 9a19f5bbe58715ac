#include "vorlan/values/Clock.h"

#include <climits>
#include <gtest/gtest.h>
#include <utility>
#include <vector>

namespace {
std::vector<long long> s_asked;
Clock::Calendar s_answer;
} // namespace

// Takes the place of the GMT service.
Clock::Calendar Clock::getGmtCal(long long time) {
    s_asked.push_back(time);
    return s_answer;
}

namespace {

TEST(TimeString, ADurationGoesByItsLargestPart) {
    struct Row {
        long long time;
        char const* text;
    };
    Row const rows[] = {
        {0, "0ms"},
        {999, "0ms"},
        {999'999, "999ms"},
        {1'000'000, "1.000s"},
        {59'999'999, "59.999s"},
        {60'000'000, "1:00.000"},
        {3'599'999'999, "59:59.999"},
        {3'600'000'000, "1:00:00.000"},
        {3'661'001'000, "1:01:01.001"},
        {86'399'999'999, "23:59:59.999"},
        {-1, "-0ms"},
        {-1'500'000, "-1.500s"},
        {-90'000'000'000, "-25:00:00.000"},
        {LLONG_MIN, "-2562047788:00:54.775"},
    };
    for (Row const& row : rows) {
        EXPECT_STREQ(Clock::timeString(row.time).get(), row.text) << row.time;
    }
    EXPECT_TRUE(s_asked.empty()) << "a duration is no moment";
}

TEST(TimeString, ADayAndMoreIsAMomentOfWhichTheTimeOfDayShows) {
    EXPECT_STREQ(Clock::timeString(86'400'000'000).get(), "0ms");
    s_answer.min = 5;
    s_answer.sec = 2;
    s_answer.msec = 123;
    EXPECT_STREQ(Clock::timeString(LLONG_MAX).get(), "5:02.123");
    EXPECT_EQ(std::exchange(s_asked, {}), (std::vector<long long>{86'400'000'000, LLONG_MAX}));
    s_answer = {};
}

} // namespace
