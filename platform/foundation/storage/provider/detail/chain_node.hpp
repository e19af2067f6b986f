#pragma once

#include <boost/smart_ptr/intrusive_ptr.hpp>

#include <atomic>
#include <cstdint>
#include <utility>

namespace foundation::storage::provider::detail {

/// Base of the nodes of a chain that goes from the folder that a recursive listing is in up to the
/// one that was listed: `class X : public ChainNode<X>`. Immutable once made and counted, so that
/// listings share what they have in common, on any threads, and a copy of a position costs the same
/// at every depth.
template<class Node>
class ChainNode {
  public:
    using Ptr = boost::intrusive_ptr<Node const>;

    ChainNode(ChainNode const&) = delete;
    ChainNode& operator=(ChainNode const&) = delete;

    /// Null for the outermost.
    Ptr const& parent() const noexcept { return parent_; }
    /// 0 for the outermost.
    std::uint32_t depth() const noexcept { return depth_; }

  protected:
    explicit ChainNode(Ptr parent)
        : parent_(std::move(parent)),
          depth_(parent_ ? parent_->depth() + 1 : 0) {}
    ~ChainNode() = default;

  private:
    friend void intrusive_ptr_add_ref(ChainNode const* node) noexcept {
        node->references_.fetch_add(1, std::memory_order_relaxed);
    }
    /// Frees one node after the other: a chain may be longer than a stack of calls.
    friend void intrusive_ptr_release(ChainNode const* node) noexcept {
        while (node && node->references_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            ChainNode const* const parent = node->parent_.detach();
            delete static_cast<Node const*>(node);
            node = parent;
        }
    }

    mutable std::atomic<std::uint32_t> references_{0};
    mutable Ptr parent_;
    std::uint32_t const depth_;
};

} // namespace foundation::storage::provider::detail
