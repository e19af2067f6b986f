#pragma once

#include <foundation/export.hpp>

#include <string_view>

namespace foundation::storage::provider {

/// Whether `name` matches `pattern`, where `*` stands for any number of UTF-16 units and `?` for
/// exactly one; every other unit matches itself alone. There is no escape, no class, and nothing
/// special about `.` or `/`.
///
/// A `*` that is not the pattern's last unit needs something left of the name, and leaves at least
/// one unit to what follows it: `a**` does not match `a`. A pattern's U+0000 also matches the end
/// of the name, without taking anything.
///
/// Takes time in proportion to the product of both lengths at most, and no memory.
FOUNDATION_EXPORT bool matchesWildcard(std::u16string_view pattern,
                                       std::u16string_view name) noexcept;

} // namespace foundation::storage::provider
