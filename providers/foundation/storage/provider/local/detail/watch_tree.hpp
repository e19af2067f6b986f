#pragma once

#include <foundation/storage/provider/local/detail/watch_node.hpp>
#include <foundation/storage/provider/local/detail/watch_table.hpp>

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_set>

namespace foundation::storage::provider::local::detail {

/// The watched folders of one publication, found by their names. For one thread at a time.
class WatchTree {
  public:
    explicit WatchTree(WatchPublication& owner) noexcept : owner_(owner) {}
    WatchTree(WatchTree const&) = delete;
    WatchTree& operator=(WatchTree const&) = delete;
    ~WatchTree() = default;

    /// Null where there is none.
    WatchNode* root() const noexcept { return root_.get(); }
    /// REQUIRES: root() == nullptr.
    WatchNode& makeRoot();
    bool isRoot(WatchNode const& node) const noexcept { return &node == root_.get(); }

    /// Null where there is none.
    WatchNode* child(WatchNode const& parent, std::string_view name) const noexcept;
    WatchNode& addChild(WatchNode& parent, std::string_view name);
    /// REQUIRES: there is no such child yet, and `parent` is not below `node`.
    void move(WatchNode& node, WatchNode& parent, std::string_view name);
    bool isWithin(WatchNode const& node, WatchNode const& outer) const noexcept;

    /// Drops the folders below `node`, with their watches.
    void dropChildren(WatchNode& node, WatchTable& table) noexcept;
    void drop(WatchNode& node, WatchTable& table) noexcept;

    /// The path from the root, empty for the root itself.
    std::string pathOf(WatchNode const& node) const;
    std::size_t size() const noexcept { return below_.size() + (root_ != nullptr); }
    /// Changes whenever a node goes or has another path.
    std::size_t shape() const noexcept { return shape_; }

  private:
    struct Key {
        WatchNode const* parent;
        std::string_view name;
    };
    static Key keyOf(std::unique_ptr<WatchNode> const& node) noexcept {
        return {node->parent, node->name};
    }
    static Key keyOf(Key const& key) noexcept { return key; }
    struct Hash {
        using is_transparent = void;
        template<class T>
        std::size_t operator()(T const& node) const noexcept {
            Key const key = keyOf(node);
            return std::hash<std::string_view>()(key.name) ^
                   (std::hash<void const*>()(key.parent) * 31);
        }
    };
    struct Equal {
        using is_transparent = void;
        template<class A, class B>
        bool operator()(A const& a, B const& b) const noexcept {
            Key const x = keyOf(a);
            Key const y = keyOf(b);
            return x.parent == y.parent && x.name == y.name;
        }
    };

    static void link(WatchNode& node) noexcept;
    static void unlink(WatchNode& node) noexcept;

    WatchPublication& owner_;
    std::unique_ptr<WatchNode> root_;
    std::unordered_set<std::unique_ptr<WatchNode>, Hash, Equal> below_;
    std::size_t shape_ = 0;
};

} // namespace foundation::storage::provider::local::detail
