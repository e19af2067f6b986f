#include <foundation/storage/provider/local/detail/watch_tree.hpp>

#include <utility>
#include <vector>

namespace foundation::storage::provider::local::detail {

WatchNode& WatchTree::makeRoot() {
    root_ = std::make_unique<WatchNode>();
    root_->owner = &owner_;
    return *root_;
}

WatchNode* WatchTree::child(WatchNode const& parent, std::string_view name) const noexcept {
    auto const found = below_.find(Key{&parent, name});
    return found == below_.end() ? nullptr : found->get();
}

WatchNode& WatchTree::addChild(WatchNode& parent, std::string_view name) {
    auto node = std::make_unique<WatchNode>();
    node->owner = &owner_;
    node->parent = &parent;
    node->name = name;
    auto const place = below_.insert(std::move(node)).first;
    link(**place);
    return **place;
}

void WatchTree::move(WatchNode& node, WatchNode& parent, std::string_view name) {
    std::string renamed(name);
    auto taken = below_.extract(below_.find(Key{node.parent, node.name}));
    unlink(node);
    node.parent = &parent;
    node.name = std::move(renamed);
    link(node);
    below_.insert(std::move(taken));
    ++shape_;
}

bool WatchTree::isWithin(WatchNode const& node, WatchNode const& outer) const noexcept {
    WatchNode const* at = &node;
    while (at != nullptr && at != &outer) {
        at = at->parent;
    }
    return at != nullptr;
}

void WatchTree::dropChildren(WatchNode& node, WatchTable& table) noexcept {
    ++shape_;
    // From the innermost up, without recursion: a tree may be deeper than the stack.
    WatchNode* at = &node;
    for (;;) {
        if (at->firstChild != nullptr) {
            at = at->firstChild;
            continue;
        }
        if (at == &node) {
            return;
        }
        WatchNode* const parent = at->parent;
        table.release(*at);
        unlink(*at);
        below_.erase(below_.find(Key{at->parent, at->name}));
        at = parent;
    }
}

void WatchTree::drop(WatchNode& node, WatchTable& table) noexcept {
    dropChildren(node, table);
    table.release(node);
    if (isRoot(node)) {
        root_.reset();
    } else {
        unlink(node);
        below_.erase(below_.find(Key{node.parent, node.name}));
    }
}

std::string WatchTree::pathOf(WatchNode const& node) const {
    std::vector<std::string_view> names;
    std::size_t size = 0;
    for (WatchNode const* at = &node; at->parent != nullptr; at = at->parent) {
        names.push_back(at->name);
        size += at->name.size() + 1;
    }
    std::string path;
    path.reserve(size);
    for (auto name = names.rbegin(); name != names.rend(); ++name) {
        path += path.empty() ? "" : "/";
        path += *name;
    }
    return path;
}

void WatchTree::link(WatchNode& node) noexcept {
    node.previous = nullptr;
    node.next = node.parent->firstChild;
    if (node.next != nullptr) {
        node.next->previous = &node;
    }
    node.parent->firstChild = &node;
}

void WatchTree::unlink(WatchNode& node) noexcept {
    if (node.previous != nullptr) {
        node.previous->next = node.next;
    } else {
        node.parent->firstChild = node.next;
    }
    if (node.next != nullptr) {
        node.next->previous = node.previous;
    }
    node.previous = node.next = nullptr;
}

} // namespace foundation::storage::provider::local::detail
