#pragma once

#include <cstdint>

namespace foundation::storage::provider::zip::detail {

/// Seconds from 1970 of a DOS date (upper half) and time in the local time zone. What is no date,
/// as the day 0 of month 0 that some tools write, becomes one near it.
std::int64_t secondsOfDosTime(std::uint32_t time) noexcept;

/// The other way round, for what lies in the years 1980 to 2107; otherwise the nearest to it.
std::uint32_t dosTimeOfSeconds(std::int64_t seconds) noexcept;

} // namespace foundation::storage::provider::zip::detail
