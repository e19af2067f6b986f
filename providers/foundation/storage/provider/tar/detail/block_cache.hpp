#pragma once

#include <cstddef>
#include <cstdint>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <unordered_map>
#include <utility>
#include <vector>

namespace foundation::storage::provider::tar::detail {

/// Blocks of a compressed archive that have been decoded, those that were used last. Safe on any
/// thread.
class BlockCache {
  public:
    using Block = std::shared_ptr<std::vector<unsigned char> const>;
    static constexpr std::size_t blockSize = std::size_t{128} * 1024;

    explicit BlockCache(std::size_t bytes) : most_(bytes / blockSize) {}

    /// Null where it is not here.
    Block find(std::uint64_t number);
    void keep(std::uint64_t number, Block const& block);
    /// How many bytes there are, once somebody has come to the end.
    std::optional<std::uint64_t> end() const;
    void setEnd(std::uint64_t end);

  private:
    using Order = std::list<std::pair<std::uint64_t, Block>>;

    std::size_t const most_;
    mutable std::mutex mutex_;
    Order order_;                                              ///< the last used first; guarded
    std::unordered_map<std::uint64_t, Order::iterator> found_; ///< by number; guarded
    std::optional<std::uint64_t> end_;                         ///< guarded
};

} // namespace foundation::storage::provider::tar::detail
