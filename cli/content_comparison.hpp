#pragma once

#include <foundation/storage/vfs/resources/file.hpp>

#include <cstddef>
#include <cstdint>
#include <functional>
#include <vector>

namespace cli {

/// Compares files byte for byte, in two buffers that serve one pair behind the other. For one
/// thread.
class ContentComparison {
  public:
    ContentComparison();

    /// Whether both files hold the same bytes. `compared` is told how many were read of each since
    /// it was last called; what it throws ends the comparison. Throws what opening and reading
    /// throw.
    bool isSame(foundation::storage::vfs::File const& first,
                foundation::storage::vfs::File const& second,
                std::function<void(std::uint64_t)> const& compared);
    /// Behind a failure, the file that it is about: 0 the first, 1 the second.
    std::size_t failedSide() const noexcept { return side_; }

  private:
    std::vector<char> first_;
    std::vector<char> second_;
    std::size_t side_ = 0;
};

} // namespace cli
