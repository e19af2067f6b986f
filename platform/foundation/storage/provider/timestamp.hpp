#pragma once

#include <foundation/export.hpp>

#include <boost/date_time/posix_time/ptime.hpp>

#include <compare>
#include <cstdint>

namespace foundation::storage::provider {

/// A time in UTC, to the nanosecond, counted from 1970-01-01T00:00:00 without leap seconds.
struct Timestamp {
    std::int64_t seconds = 0;
    std::int32_t nanoseconds = 0; ///< 0 to 999,999,999

    friend auto operator<=>(Timestamp const&, Timestamp const&) = default;
};

/// To a resolution of microseconds, rounded down. A time outside the years 1400 to 9999 becomes the
/// nearest that the type holds.
FOUNDATION_EXPORT boost::posix_time::ptime toPtime(Timestamp time);

/// Throws std::invalid_argument for a special value (not-a-date-time, an infinity).
FOUNDATION_EXPORT Timestamp toTimestamp(boost::posix_time::ptime const& time);

} // namespace foundation::storage::provider
