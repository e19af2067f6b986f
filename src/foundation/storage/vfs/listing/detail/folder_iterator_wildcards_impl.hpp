#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/vfs/fwd.hpp>
#include <foundation/storage/vfs/listing/folder_listing.hpp>
#include <foundation/storage/vfs/resources/folder.hpp>

#include <memory>

namespace foundation::storage::vfs::detail {

/// Shows of another listing what matches a wildcard pattern (provider/wildcard.hpp), whatever kind
/// of listing that is. Taking the name of an element may make its handle, and fail.
template<class T>
class FOUNDATION_EXPORT FolderIteratorWildcardsImpl final : public IFolderIteratorImpl<T> {
  public:
    class FilterImpl;

    /// Of nothing; only to be destroyed.
    FolderIteratorWildcardsImpl();
    /// Stands on the first match, which is searched for here. `wrapped` is not moved.
    FolderIteratorWildcardsImpl(std::shared_ptr<IFolderIteratorImpl<T>> wrapped, ustring pattern);
    /// For clones, which know no wrapped iterator: buildEndIterator() must not be called on them.
    explicit FolderIteratorWildcardsImpl(std::shared_ptr<FilterImpl> filter);
    ~FolderIteratorWildcardsImpl() override;

    void increment() override;
    bool equal(IFolderIteratorImpl<T> const& other) const override;
    T const& dereference() const override;
    std::shared_ptr<IFolderIteratorImpl<T>> cloneImpl() const override;
    std::shared_ptr<IFolderIteratorImpl<T>> buildEndIterator() const override;

  private:
    std::shared_ptr<IFolderIteratorImpl<T>> wrapped_; ///< serves to make the end iterator
    ustring pattern_;
    std::shared_ptr<FilterImpl> filter_; ///< what moves; shared with no other iterator
};

extern template class FOUNDATION_EXPORT FolderIteratorWildcardsImpl<File>;
extern template class FOUNDATION_EXPORT FolderIteratorWildcardsImpl<Folder>;
extern template class FOUNDATION_EXPORT FolderIteratorWildcardsImpl<FileOrFolder>;
extern template class FOUNDATION_EXPORT FolderIteratorWildcardsImpl<FileEntry>;
extern template class FOUNDATION_EXPORT FolderIteratorWildcardsImpl<FolderEntry>;
extern template class FOUNDATION_EXPORT FolderIteratorWildcardsImpl<FileOrFolderEntry>;
extern template class FOUNDATION_EXPORT FolderIteratorWildcardsImpl<ListEntry>;

} // namespace foundation::storage::vfs::detail
