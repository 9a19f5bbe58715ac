#include "vorlan/values/Clock.h"

#include "vorlan/foundation/RuntimeServices.h"
#include "vorlan/foundation/ScopeLock.h"
#include "vorlan/text/FormatStr.h"

#include <ctime>

namespace {

constexpr unsigned int kFirstYear = 1970;
constexpr long long kDaySeconds = 86'400;
constexpr long long kSecondUs = 1'000'000;
constexpr long long kDayUs = kDaySeconds * kSecondUs;

constexpr unsigned int kDaysBeforeMonth[] = {0, 31, 59, 90, 120, 151, 181, 212, 243, 273, 304, 334};

constexpr bool isLeapYear(unsigned int year) {
    return year % 4 == 0 && (year % 100 != 0 || year % 400 == 0);
}

// From 1 January of year 1 to 1 January of `year`.
constexpr unsigned int daysBeforeYear(unsigned int year) {
    unsigned int const past = year - 1;
    return past * 365 + past / 4 - past / 100 + past / 400;
}

struct TimeOfDay {
    unsigned long long hour;
    unsigned int min;
    unsigned int sec;
    unsigned int msec;
};

TimeOfDay splitDuration(unsigned long long duration) {
    TimeOfDay parts{};
    parts.hour = reduce(duration, 3'600'000'000U);
    parts.min = static_cast<unsigned int>(reduce(duration, 60'000'000U));
    parts.sec = static_cast<unsigned int>(reduce(duration, 1'000'000U));
    parts.msec = static_cast<unsigned int>(reduce(duration, 1'000U));
    return parts;
}

void appendTime(TimeOfDay const& time, FormatStr& out) {
    if (time.hour != 0) {
        out.format("%llu:%02u:%02u.%03u", time.hour, time.min, time.sec, time.msec);
    } else if (time.min != 0) {
        out.format("%u:%02u.%03u", time.min, time.sec, time.msec);
    } else if (time.sec != 0) {
        out.format("%u.%03us", time.sec, time.msec);
    } else {
        out.format("%ums", time.msec);
    }
}

// localtime_r alone need not look at TZ again. The C library locks tzset by itself, but so that no thread
// sanitizer sees it: every program that sends messages from two threads would be told of a race.
std::tm localTime(std::time_t moment) {
    static VorlanPosix::JMutex s_timeZone;
    VorlanPosix::ScopeLock<VorlanPosix::JMutex> const lock(s_timeZone);
    std::tm local{};
    tzset();
    localtime_r(&moment, &local);
    return local;
}

} // namespace

long long Clock::getGmtTime(Calendar const& cal) {
    if (cal.year < kFirstYear) {
        return -1;
    }
    unsigned int const year = cal.year + cal.month / 12U;
    unsigned int const month = cal.month % 12U;
    unsigned int const leapDay = month > 1 && isLeapYear(year) ? 1 : 0;
    long long const days = static_cast<long long>(daysBeforeYear(year) - daysBeforeYear(kFirstYear) +
                                                  kDaysBeforeMonth[month] + leapDay) +
                           cal.day - 1;
    long long const seconds = days * kDaySeconds + cal.hour * 3600 + cal.min * 60 + cal.sec;
    return seconds * kSecondUs + cal.msec * 1000;
}

Clock::Calendar Clock::getLocalCal(long long time) {
    long long seconds = reduce(time, kSecondUs);
    if (time < 0) { // rounds down, so that the milliseconds count upward
        --seconds;
        time += kSecondUs;
    }
    std::tm const local = localTime(seconds);
    long long const year = local.tm_year + 1900LL;

    Calendar cal;
    cal.hour = static_cast<std::uint8_t>(local.tm_hour);
    cal.day = static_cast<std::uint8_t>(local.tm_mday);
    cal.min = static_cast<std::uint8_t>(local.tm_min);
    cal.month = static_cast<std::uint8_t>(local.tm_mon);
    cal.sec = static_cast<std::uint8_t>(local.tm_sec);
    cal.year = year >= 0 && year <= UINT16_MAX ? static_cast<std::uint16_t>(year) : std::uint16_t{0};
    cal.msec = static_cast<std::uint16_t>(time / 1000);
    return cal;
}

AutoPtr<char> Clock::timeString(long long time) {
    FormatStr text(128);
    if (time >= kDayUs) {
        Calendar const cal = getGmtCal(time);
        appendTime({cal.hour, cal.min, cal.sec, cal.msec}, text);
    } else if (time >= 0) {
        appendTime(splitDuration(static_cast<unsigned long long>(time)), text);
    } else {
        text.cat("-");
        appendTime(splitDuration(0 - static_cast<unsigned long long>(time)), text);
    }
    return text;
}
