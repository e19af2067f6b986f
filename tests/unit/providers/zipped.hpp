#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace foundation::storage::provider::test {

/// Bytes that do not deflate, other ones for each seed.
std::string noise(std::size_t size, unsigned seed);

/// A zip archive of members with so many bytes: the n-th one, from 0 on, has noise(size, n).
std::string zipped(std::vector<std::pair<std::string, std::size_t>> const& members);

} // namespace foundation::storage::provider::test
