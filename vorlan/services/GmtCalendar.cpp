// The GMT calendar. The platform's own takes a lock and reads the time zone; this needs neither.

#include "vorlan/values/Clock.h"

namespace {

constexpr long long kSecondUs = 1'000'000;
constexpr long long kDayUs = 86'400 * kSecondUs;

// The calendar repeats every 400 years. The years here begin on 1 March, so that the leap day comes last.
constexpr long long kEraDays = 146'097;
constexpr long long kEpochDay = 719'468; // 1 January 1970, counted from 1 March of year 0

void setTimeOfDay(unsigned long long time, Clock::Calendar& cal) {
    cal.hour = static_cast<std::uint8_t>(reduce(time, 3'600'000'000U));
    cal.min = static_cast<std::uint8_t>(reduce(time, 60'000'000U));
    cal.sec = static_cast<std::uint8_t>(reduce(time, 1'000'000U));
    cal.msec = static_cast<std::uint16_t>(reduce(time, 1'000U));
}

void setDate(long long epochDays, Clock::Calendar& cal) {
    long long day = epochDays + kEpochDay;
    long long era = reduce(day, kEraDays);
    if (day < 0) {
        --era;
        day += kEraDays;
    }
    // The last day of a 4-year, a 100-year and a 400-year cycle is a leap day: it starts no further year.
    unsigned int const eraDay = static_cast<unsigned int>(day);
    unsigned int const eraYear = (eraDay - eraDay / 1'460 + eraDay / 36'524 - eraDay / 146'096) / 365;
    unsigned int const yearDay = eraDay - (eraYear * 365 + eraYear / 4 - eraYear / 100);
    // Five months from March on, and again from August on, have 153 days.
    unsigned int const marchMonth = (yearDay * 5 + 2) / 153;
    bool const nextYear = marchMonth >= 10; // January and February

    long long const year = era * 400 + eraYear + (nextYear ? 1 : 0);
    cal.day = static_cast<std::uint8_t>(yearDay - (marchMonth * 153 + 2) / 5 + 1);
    cal.month = static_cast<std::uint8_t>(nextYear ? marchMonth - 10 : marchMonth + 2);
    cal.year = year >= 0 && year <= UINT16_MAX ? static_cast<std::uint16_t>(year) : std::uint16_t{0};
}

} // namespace

Clock::Calendar Clock::getGmtCal(long long time) {
    long long days = reduce(time, kDayUs);
    if (time < 0) {
        --days;
        time += kDayUs;
    }
    Calendar cal;
    setTimeOfDay(static_cast<unsigned long long>(time), cal);
    setDate(days, cal);
    return cal;
}
