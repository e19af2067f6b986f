#pragma once

#include <fl/i18n/ustring.hpp>

#include <atomic>
#include <cstddef>
#include <utility>
#include <vector>

namespace foundation::storage::provider::detail {

/// A stack of levels: the folders from the root of a recursive listing down to where it stands.
/// What was pushed never changes, so a copy shares it for the price of one reference count, and
/// copies may be used on different threads. Its end takes no recursion, however many levels it has.
template<class Level>
class LevelChain {
  public:
    /// One level, and the ones outside it.
    struct Node {
        Level const level;
        Node const* const outer;  // owned
        std::size_t const height; ///< 1 for the outermost

      private:
        friend class LevelChain;
        Node(Level&& inner, Node const* others)
            : level(std::move(inner)),
              outer(others),
              height(others ? others->height + 1 : 1) {}

        mutable std::atomic<std::size_t> references_{1};
    };

    LevelChain() noexcept = default;
    LevelChain(LevelChain const& other) noexcept : innermost_(retained(other.innermost_)) {}
    LevelChain(LevelChain&& other) noexcept
        : innermost_(std::exchange(other.innermost_, nullptr)) {}
    LevelChain& operator=(LevelChain other) noexcept {
        std::swap(innermost_, other.innermost_);
        return *this;
    }
    ~LevelChain() { release(innermost_); }

    bool isEmpty() const noexcept { return !innermost_; }
    /// Null where there is none. Valid while a chain with this node lives.
    Node const* innermost() const noexcept { return innermost_; }
    void push(Level level) { innermost_ = new Node(std::move(level), innermost_); }
    /// REQUIRES: not empty.
    void pop() noexcept {
        Node const* const left = innermost_;
        innermost_ = retained(left->outer);
        release(left);
    }

  private:
    static Node const* retained(Node const* node) noexcept {
        if (node) {
            node->references_.fetch_add(1, std::memory_order_relaxed);
        }
        return node;
    }
    static void release(Node const* node) noexcept {
        while (node && node->references_.fetch_sub(1, std::memory_order_acq_rel) == 1) {
            Node const* const outer = node->outer;
            delete node;
            node = outer;
        }
    }

    Node const* innermost_ = nullptr;
};

/// The names of a chain's levels from the outermost in, each with a `/` behind it. Keeps the text,
/// and changes it by as much as the chain has changed since the last time; a prefix kept with each
/// level would cost hundreds of megabytes at 20,000 levels. `appendName(ustring&, Level const&)`
/// gives the name of a level; names have no `/`. For one thread at a time.
template<class Level>
class LevelPath {
  public:
    fl::i18n::ustring const& of(LevelChain<Level> const& chain) {
        if (chain.innermost() != chain_.innermost()) {
            change(chain);
        }
        return text_;
    }

  private:
    using Node = typename LevelChain<Level>::Node;

    void change(LevelChain<Level> const& chain) {
        std::vector<Node const*> entered;
        Node const* to = chain.innermost();
        while (to != chain_.innermost()) {
            if (to && (chain_.isEmpty() || chain_.innermost()->height <= to->height)) {
                entered.push_back(to);
                to = to->outer;
            } else {
                chain_.pop();
                text_.pop_back();
                text_.erase(text_.rfind(u'/') + 1);
            }
        }
        // From here on the text is longer than chain_ says only while a name is being appended.
        std::size_t const length = text_.size();
        try {
            for (; !entered.empty(); entered.pop_back()) {
                appendName(text_, entered.back()->level);
                text_ += u'/';
            }
        } catch (...) {
            text_.resize(length);
            throw;
        }
        chain_ = chain;
    }

    LevelChain<Level> chain_; // what the text was made of
    fl::i18n::ustring text_;
};

} // namespace foundation::storage::provider::detail
