#pragma once

#include <foundation/storage/provider/s3/detail/bucket.hpp>
#include <foundation/storage/provider/timestamp.hpp>

#include <optional>
#include <string>
#include <string_view>

namespace foundation::storage::provider::s3::detail {

/// The metadata in which the time of a file stands that was not made by writing it: decimal seconds
/// since 1970, a convention of many programs that put files into buckets.
inline constexpr std::string_view timeField = "mtime";

std::string timeText(Timestamp time);
/// Nothing where it is no such number.
std::optional<Timestamp> parseTimeText(std::string_view text);

/// The time in the metadata; where there is none, when the object was put there, in whole seconds
/// as heads of answers tell it.
Timestamp timeOf(ObjectHead const& head);

} // namespace foundation::storage::provider::s3::detail
