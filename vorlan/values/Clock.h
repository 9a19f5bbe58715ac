// Clock.h: a stopwatch over the process's relative clock, and the calendar over absolute time.
#pragma once

#include "vorlan/foundation/Compiler.h"
#include "vorlan/text/AutoPtr.h"

#include <cstdint>

/// Measures elapsed time; its static operations convert and print times.
///
/// All counts are signed 64-bit microseconds. A relative time has no calendar meaning and never goes back; an
/// absolute time counts from 1 January 1970 00:00:00 GMT.
/// Threading: a stopwatch belongs to one thread while start() is called; check() may run on any thread. The
/// static operations are safe from any thread.
class VORLAN_API Clock {
public:
    /// The unit that check() gives; any value other than microseconds means milliseconds.
    enum Metric { milliseconds = 0, microseconds = 1 };

    /// A moment in parts. A fresh record is all 0, which is no valid date.
    struct Calendar {
        std::uint16_t msec = 0; ///< 0 to 999
        std::uint8_t sec = 0;   ///< 0 to 59
        std::uint8_t min = 0;   ///< 0 to 59
        std::uint8_t hour = 0;  ///< 0 to 23
        std::uint8_t day = 0;   ///< 1 to 31
        std::uint8_t month = 0; ///< 0 to 11, January is 0
        std::uint16_t year = 0; ///< in full: 1970, not 70
    };

    /// With true the stopwatch runs from now; with false from the origin of the relative clock.
    explicit Clock(bool startNow) : m_origin(startNow ? nowRelative() : 0) {}

    /// Runs the stopwatch anew from now.
    void start() { m_origin = nowRelative(); }

    /// The time since the start, truncated toward zero to the unit.
    long long check(Metric unit) const {
        long long const elapsed = nowRelative() - m_origin;
        return unit == microseconds ? elapsed : elapsed / 1000;
    }

    /// Microseconds on a clock that never goes back and never reads below one second. A service.
    static long long nowRelative();

    /// The record read as GMT; -1 for a year before 1970. No field is tested against its range: a month of 12
    /// or more runs on into the following years, a day of 0 is the day before the first.
    static long long getGmtTime(Calendar const& cal);

    /// The moment in the time zone of the process, a changed TZ included. Milliseconds round down, before
    /// 1970 too. A year that the record can't hold reads 0, beside a date and time that are right.
    static Calendar getLocalCal(long long time);

    /// The same in GMT. A service.
    static Calendar getGmtCal(long long time);

    /// A duration below one day, or the GMT time of day of a later moment: "1:01:01.001", "1:01.001",
    /// "1.500s" or "1ms", by the largest part that is not 0. What is below a millisecond is dropped.
    /// A negative value is a duration of any length: a minus sign, and its hours may pass 23.
    static AutoPtr<char> timeString(long long time);

private:
    long long m_origin; // microseconds on the scale of nowRelative()
};

/// Divides `value` by `unit`, leaves the remainder in it and gives the quotient, both truncated toward zero.
template <class T, class U>
T reduce(T& value, U unit) {
    T const quotient = value / unit;
    value %= unit;
    return quotient;
}

/// The time base of the clamp sites: built with false, so that it reads the relative clock itself. Its zeroed
/// storage reads the same, and so it may be used before it is built.
extern VORLAN_API Clock localClock;
