#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace foundation::storage::provider::test {

/// A tar archive as POSIX has it, of members with so many bytes: the n-th one, from 0 on, has
/// noise(size, n).
std::string tarred(std::vector<std::pair<std::string, std::size_t>> const& members);

} // namespace foundation::storage::provider::test
