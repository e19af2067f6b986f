#pragma once

#include <foundation/storage/provider/local/detail/file_descriptor.hpp>
#include <foundation/storage/provider/local/detail/watch_node.hpp>

#include <cstdint>
#include <unordered_map>
#include <vector>

namespace foundation::storage::provider::local::detail {

/// One inotify(7) descriptor, and which nodes each of its watches is for: the kernel has one watch
/// for a folder, however many publications it concerns. For one thread at a time.
class WatchTable {
  public:
    /// Throws std::system_error where the system gives no more of these.
    WatchTable();

    int descriptor() const noexcept { return descriptor_.get(); }

    /// Makes an open folder the one that is watched for `node`. What the watch reports already, it
    /// goes on reporting. The error number, or 0; then the watch that the node had is given up,
    /// unless it is the same.
    int watch(int folder, std::uint32_t events, WatchNode& node);

    /// The same in two steps: the kernel's watch of an open folder, or -1 with the reason in errno,
    int claim(int folder, std::uint32_t events) noexcept;
    /// which then is given to a node. One that no node has is not ended before.
    void give(int watch, WatchNode& node);

    /// Whether an open folder is the one that is watched for `node`.
    bool watches(int folder, WatchNode const& node) noexcept;

    /// Whether there are descriptors and watches to be had now.
    bool hasRoom() noexcept;

    /// The kernel's watch goes with its last node.
    void release(WatchNode& node) noexcept;

    /// What a watch is for, in no particular order; empty for one that was given up.
    std::vector<WatchNode*> nodesOf(int watch) const;
    /// One of them, or null.
    WatchNode* anyOf(int watch) const noexcept;
    bool has(int watch, WatchNode const* node) const noexcept;
    /// The first of them that `is` is true of, or null.
    template<class Is>
    WatchNode* find(int watch, Is const& is) const {
        WatchNode* node = anyOf(watch);
        while (node != nullptr && !is(*node)) {
            node = node->nextOfWatch;
        }
        return node;
    }

  private:
    bool unlink(WatchNode& node) noexcept;

    FileDescriptor descriptor_;
    std::unordered_map<int, WatchNode*> first_;
};

} // namespace foundation::storage::provider::local::detail
