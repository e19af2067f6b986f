#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/vfs/fwd.hpp>
#include <foundation/storage/vfs/listing/file_or_folder_entry.hpp>
#include <foundation/storage/vfs/listing/folder_listing.hpp>
#include <foundation/storage/vfs/listing/list_entry.hpp>
#include <foundation/storage/vfs/resources/folder.hpp>

#include <boost/optional/optional.hpp>

#include <deque>
#include <memory>

namespace foundation::storage::vfs::detail {

/// Walks a tree for a provider that does not: one flat listing for each folder on the way down, a
/// folder before what is in it. Below the root, folders that deny access or vanish are passed over;
/// any other failure comes out of increment(), and a later one goes on from the state that was
/// left, which may be without an element: it tries the same step again, and may show entries again.
///
/// Memory grows with the depth, and so does the cost of a copy: a walk from the same point.
template<class T>
class FOUNDATION_EXPORT RecursiveFolderListingIteratorImpl final : public IFolderIteratorImpl<T> {
  public:
    /// At the end.
    explicit RecursiveFolderListingIteratorImpl(ustring pattern);
    /// At the first element of the tree. Throws where the folder cannot be listed.
    RecursiveFolderListingIteratorImpl(Folder folder, ustring pattern);
    /// A copy has no folder, and assignment leaves the one that is there, so that a listing's
    /// begin() and end() compare by what is left to walk. The object that a listing was made of
    /// therefore never equals its end, and the listing's empty() answers false.
    RecursiveFolderListingIteratorImpl(RecursiveFolderListingIteratorImpl const& other);
    RecursiveFolderListingIteratorImpl& operator=(RecursiveFolderListingIteratorImpl const& other);
    ~RecursiveFolderListingIteratorImpl() override;

    void increment() override;
    bool equal(IFolderIteratorImpl<T> const& other) const override;
    T const& dereference() const override;
    std::shared_ptr<IFolderIteratorImpl<T>> cloneImpl() const override;
    std::shared_ptr<IFolderIteratorImpl<T>> buildEndIterator() const override;

  private:
    class ListingWrapper;

    void setCurrentAndDoIncrement();
    void popBackStack();
    void handleErrors();

    boost::optional<Folder> folder_;
    ustring pattern_; ///< handed to each level, where it has no effect
    std::deque<ListingWrapper> backStack_;
    boost::optional<T> current_; ///< one element behind the position of the innermost level
};

extern template class FOUNDATION_EXPORT RecursiveFolderListingIteratorImpl<ListEntry>;
extern template class FOUNDATION_EXPORT RecursiveFolderListingIteratorImpl<FileOrFolderEntry>;

} // namespace foundation::storage::vfs::detail
