#pragma once

#include <string>
#include <string_view>

namespace foundation::storage::vfs::detail {

/// Runs the prefix test; an exception out of it is logged and answered with false. The test is an
/// argument because the real one cannot be made to fail.
bool guardedPrefixTest(std::u32string const& text, bool (*test)(std::u32string_view text));

} // namespace foundation::storage::vfs::detail
