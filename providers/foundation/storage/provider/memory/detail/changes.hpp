#pragma once

#include <foundation/storage/provider/memory/detail/publications.hpp>

#include <memory>
#include <string_view>

namespace foundation::storage::provider::memory::detail {

/// The changes that one operation makes. What is put down here, under the lock of the tree, is
/// delivered when this goes out of scope; so it stands before the lock, and before everything that
/// the operation still uses behind it: a callback may take the provider away. Costs one relaxed
/// load for a change where nobody watches.
class Changes {
  public:
    /// `publications` lives until the last change is put down.
    explicit Changes(std::shared_ptr<Publications> const& publications) noexcept
        : publications_(publications) {}
    Changes(Changes const&) = delete;
    Changes& operator=(Changes const&) = delete;
    ~Changes() {
        if (due_) {
            due_->deliver();
        }
    }

    bool isWatched() const noexcept { return publications_->isWatched(); }
    void created(Node const& node) { putDown(Kind::Created, node); }
    /// REQUIRES: the item is still there.
    void removed(Node const& node) { putDown(Kind::Removed, node); }
    void attributesChanged(Node const& node) { putDown(Kind::AttributesChanged, node); }
    /// Nothing where the file is no longer in the tree, or not yet.
    void modified(FileNode const& file) {
        if (file.parent()) {
            putDown(Kind::Modified, file);
        }
    }
    /// REQUIRES: the item has its new place. `replaced` is what was there, or null.
    void moved(FolderNode const& oldFolder, std::u16string_view oldName, Node const& node,
               Node const* replaced) {
        if (isWatched()) {
            due_ = publications_;
            due_->moved(oldFolder, oldName, node, replaced);
        }
    }

  private:
    void putDown(Kind kind, Node const& node) {
        if (isWatched()) {
            due_ = publications_;
            due_->changed(kind, node);
        }
    }

    std::shared_ptr<Publications> const& publications_;
    std::shared_ptr<Publications> due_;
};

} // namespace foundation::storage::provider::memory::detail
