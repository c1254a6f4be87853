// Date, Time and DateTime: plain calendar and clock values.
#include "value_objects.h"

namespace tesk {

namespace internal {

object_value_date::object_value_date(std::int32_t y, std::uint8_t m, std::uint8_t d) noexcept
    : object_value(Kind::Date, builtin_class(builtin::date)), year(y), month(m), day(d) {}

object_value_time::object_value_time(std::uint8_t h, std::uint8_t m, std::uint8_t s, std::uint32_t ns) noexcept
    : object_value(Kind::Time, builtin_class(builtin::time)), hour(h), minute(m), second(s), nanoseconds(ns) {}

object_value_date_time::object_value_date_time(Date d, Time t) noexcept
    : object_value(Kind::DateTime, builtin_class(builtin::date_time)), date(std::move(d)), time(std::move(t)) {}

namespace {
object_value_date const& date_of(Any const& v) noexcept { return *static_cast<object_value_date const*>(v.get()); }
object_value_time const& time_of(Any const& v) noexcept { return *static_cast<object_value_time const*>(v.get()); }
object_value_date_time const& date_time_of(Any const& v) noexcept {
    return *static_cast<object_value_date_time const*>(v.get());
}
} // namespace
} // namespace internal

using internal::date_of;
using internal::time_of;

Date::Date(std::int32_t year, std::uint8_t month, std::uint8_t day)
    : Any(Any::adopt(new internal::object_value_date(year, month, day))) {}
std::int32_t Date::year() const noexcept { return date_of(*this).year; }
std::uint8_t Date::month() const noexcept { return date_of(*this).month; }
std::uint8_t Date::day() const noexcept { return date_of(*this).day; }

Time::Time(std::uint8_t hour, std::uint8_t minute, std::uint8_t second, std::uint32_t nanoseconds)
    : Any(Any::adopt(new internal::object_value_time(hour, minute, second, nanoseconds))) {}

Time::Time(std::uint8_t hour, std::uint8_t minute, std::uint8_t second, std::uint32_t nanoseconds,
           std::uint32_t utcOffsetSeconds, String zoneName, std::uint8_t fold) {
    auto* record = new internal::object_value_time(hour, minute, second, nanoseconds);
    record->has_offset = true;
    record->utc_offset = utcOffsetSeconds;
    record->zone = zoneName.get() ? std::move(zoneName) : String();
    record->fold = fold;
    Any::operator=(Any::adopt(record));
}

std::uint8_t Time::hour() const noexcept { return time_of(*this).hour; }
std::uint8_t Time::minute() const noexcept { return time_of(*this).minute; }
std::uint8_t Time::second() const noexcept { return time_of(*this).second; }
std::uint32_t Time::nanoseconds() const noexcept { return time_of(*this).nanoseconds; }
bool Time::hasOffset() const noexcept { return time_of(*this).has_offset; }
std::uint32_t Time::utcOffsetSeconds() const noexcept { return time_of(*this).utc_offset; }
String Time::zoneName() const { return time_of(*this).zone; }
std::uint8_t Time::fold() const noexcept { return time_of(*this).fold; }

DateTime::DateTime(Date const& date, Time const& time)
    : Any(Any::adopt(new internal::object_value_date_time(date, time))) {}
Date DateTime::date() const { return internal::date_time_of(*this).date; }
Time DateTime::time() const { return internal::date_time_of(*this).time; }

} // namespace tesk

namespace tesk::internal {

namespace {
// Days since 1970-01-01 in the proleptic Gregorian calendar (H. Hinnant's
// days_from_civil).
std::int64_t days_from_civil(std::int64_t y, unsigned m, unsigned d) noexcept {
    y -= m <= 2;
    std::int64_t era = (y >= 0 ? y : y - 399) / 400;
    auto yoe = static_cast<unsigned>(y - era * 400);
    unsigned doy = (153 * (m > 2 ? m - 3 : m + 9) + 2) / 5 + d - 1;
    unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
    return era * 146097 + static_cast<std::int64_t>(doe) - 719468;
}
} // namespace

clock_key clock_key_of(object_value_time const& t) noexcept {
    std::int64_t seconds = t.hour * 3600 + t.minute * 60 + t.second;
    if (t.has_offset) seconds -= t.utc_offset;
    return {t.has_offset, seconds, t.nanoseconds};
}

clock_key clock_key_of(object_value_date_time const& dt) noexcept {
    auto const& d = date_of(dt.date);
    clock_key key = clock_key_of(time_of(dt.time));
    key.seconds += days_from_civil(d.year, d.month, d.day) * 86400;
    return key;
}

} // namespace tesk::internal
