#include <foundation/storage/provider/zip/detail/link_targets.hpp>

namespace foundation::storage::provider::zip::detail {

namespace {

/// With what a node of the map takes, so that many short targets are bounded too.
constexpr std::size_t mostBytes = std::size_t{1024} * 1024;
constexpr std::size_t nodeSize = 64;

} // namespace

std::optional<std::string> LinkTargets::find(ArchiveIndex::Number link) const {
    std::lock_guard const lock(mutex_);
    auto const found = targets_.find(link);
    return found == targets_.end() ? std::nullopt : std::optional(found->second);
}

void LinkTargets::keep(ArchiveIndex::Number link, std::string const& target) {
    std::lock_guard const lock(mutex_);
    if (bytes_ > mostBytes) {
        targets_.clear();
        bytes_ = 0;
    }
    if (targets_.emplace(link, target).second) {
        bytes_ += target.size() + nodeSize;
    }
}

} // namespace foundation::storage::provider::zip::detail
