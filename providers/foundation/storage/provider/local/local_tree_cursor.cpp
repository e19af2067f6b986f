#include <foundation/storage/provider/local/local_tree_cursor.hpp>

#include <foundation/storage/provider/local/detail/tree_walk.hpp>

#include <stdexcept>
#include <utility>

namespace foundation::storage::provider::local {

namespace {

class LocalTreeCursor final : public IFolderEntryIterator {
  public:
    explicit LocalTreeCursor(std::shared_ptr<detail::ListedTree const> tree)
        : walk_(std::move(tree)) {}

    FolderEntry currentEntry() const override {
        if (!walk_.hasEntry()) {
            throw std::logic_error("a cursor that was not advanced has no entry");
        }
        return walk_.entry();
    }

    bool hasNext() const override { return walk_.hasNext(); }

    void advance() override {
        if (!walk_.advance()) {
            throw std::logic_error("a cursor was advanced beyond the end of a listing");
        }
    }

    LocalTreeCursor* cloneIterator() const override { return new LocalTreeCursor(*this); }

  private:
    /// Looking ahead moves on, and shows nothing of it.
    mutable detail::TreeWalk walk_;
};

} // namespace

std::unique_ptr<IFolderEntryIterator> listLocalTree(StorageIRI const& location,
                                                    detail::ListingQuery query) {
    query.depth = detail::ListingQuery::Depth::Tree;
    return std::make_unique<LocalTreeCursor>(
        std::make_shared<detail::ListedTree const>(detail::ListedTree{location, std::move(query)}));
}

} // namespace foundation::storage::provider::local
