#pragma once

#include <cstdint>

namespace foundation::storage::provider::zip::detail {

/// Seconds from 1970 of a DOS date (upper half) and time in the local time zone. What is no date,
/// as the day 0 of month 0 that some tools write, becomes one near it.
std::int64_t secondsOfDosTime(std::uint32_t time) noexcept;

} // namespace foundation::storage::provider::zip::detail
