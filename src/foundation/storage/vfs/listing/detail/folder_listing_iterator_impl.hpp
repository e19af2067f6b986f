#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/provider/i_folder_entry_iterator.hpp>
#include <foundation/storage/vfs/fwd.hpp>
#include <foundation/storage/vfs/listing/detail/i_folder_iterator_impl.hpp>
#include <foundation/storage/vfs/resources/folder.hpp>

#include <boost/optional/optional.hpp>

#include <atomic>
#include <memory>

namespace foundation::storage::vfs::detail {

/// The listing as the provider's cursor gives it, one element made of each entry. Behind a failed
/// increment() it stands where it stood.
template<class T>
class FOUNDATION_EXPORT FolderListingIteratorImpl final : public IFolderIteratorImpl<T> {
  public:
    /// At the end of nothing. buildEndIterator() must not be called on it.
    FolderListingIteratorImpl();
    /// At the end of a listing of `folder`. increment() must not be called on it.
    explicit FolderListingIteratorImpl(Folder folder);
    /// At the first entry of a fresh cursor, which is fetched here.
    FolderListingIteratorImpl(Folder folder,
                              std::unique_ptr<provider::IFolderEntryIterator> iterator);
    /// Shares the element and clones the cursor.
    FolderListingIteratorImpl(FolderListingIteratorImpl const& other);
    FolderListingIteratorImpl& operator=(FolderListingIteratorImpl const& other);
    ~FolderListingIteratorImpl() override;

    void increment() override;
    bool equal(IFolderIteratorImpl<T> const& other) const override;
    T const& dereference() const override;
    std::shared_ptr<IFolderIteratorImpl<T>> cloneImpl() const override;
    std::shared_ptr<IFolderIteratorImpl<T>> buildEndIterator() const override;

  private:
    void updateCurrent();

    boost::optional<Folder> folder_;
    std::unique_ptr<provider::IFolderEntryIterator> iterator_; ///< null in end iterators
    std::shared_ptr<T> current_;                               ///< null at the end
    /// Whether a copy may hold the current element too. One that none holds is written over. Set on
    /// the source of a copy, which threads may make of one listing at once.
    mutable std::atomic<bool> currentIsShared_ = false;
};

extern template class FOUNDATION_EXPORT FolderListingIteratorImpl<File>;
extern template class FOUNDATION_EXPORT FolderListingIteratorImpl<Folder>;
extern template class FOUNDATION_EXPORT FolderListingIteratorImpl<FileOrFolder>;
extern template class FOUNDATION_EXPORT FolderListingIteratorImpl<FileEntry>;
extern template class FOUNDATION_EXPORT FolderListingIteratorImpl<FolderEntry>;
extern template class FOUNDATION_EXPORT FolderListingIteratorImpl<FileOrFolderEntry>;
extern template class FOUNDATION_EXPORT FolderListingIteratorImpl<ListEntry>;

} // namespace foundation::storage::vfs::detail
