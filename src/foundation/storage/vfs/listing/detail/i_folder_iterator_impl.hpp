#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/vfs/fwd.hpp>

#include <memory>

namespace foundation::storage::vfs::detail {

/// What moves a FolderListingIterator: one class for each kind of listing. For one thread at a
/// time.
template<class T>
class FOUNDATION_EXPORT IFolderIteratorImpl {
  public:
    virtual void increment() = 0;
    /// REQUIRES: `other` is of the same class as this.
    virtual bool equal(IFolderIteratorImpl const& other) const = 0;
    /// The current element, until the iterator moves. REQUIRES: this is not at the end, and the
    /// last increment() has not failed, unless the class says more.
    virtual T const& dereference() const = 0;
    /// Another of this class at the same position, which then moves by itself.
    virtual std::shared_ptr<IFolderIteratorImpl> cloneImpl() const = 0;
    /// One of this class that is equal to this when it has run to its end.
    virtual std::shared_ptr<IFolderIteratorImpl> buildEndIterator() const = 0;
    virtual ~IFolderIteratorImpl();
};

extern template class FOUNDATION_EXPORT IFolderIteratorImpl<File>;
extern template class FOUNDATION_EXPORT IFolderIteratorImpl<Folder>;
extern template class FOUNDATION_EXPORT IFolderIteratorImpl<FileOrFolder>;
extern template class FOUNDATION_EXPORT IFolderIteratorImpl<FileEntry>;
extern template class FOUNDATION_EXPORT IFolderIteratorImpl<FolderEntry>;
extern template class FOUNDATION_EXPORT IFolderIteratorImpl<FileOrFolderEntry>;
extern template class FOUNDATION_EXPORT IFolderIteratorImpl<ListEntry>;

} // namespace foundation::storage::vfs::detail
