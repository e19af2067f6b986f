#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/vfs/fwd.hpp>
#include <foundation/storage/vfs/listing/detail/i_folder_iterator_impl.hpp>

#include <cstddef>
#include <iterator>
#include <memory>

namespace foundation::storage::vfs {

template<class T>
class FolderListing;

/// A position in a listing. For one thread at a time; elements may go to any thread.
///
/// A copy moves by itself, and costs a clone of the provider's cursor. Two iterators are equal that
/// share their element, or have both run to the end: two copies that were moved alike are not. So
/// this is an input iterator, although a second pass over a copy works.
///
/// Moving fetches the next entry from the provider. Its failures are vfs::Exception from the
/// provider's advance(), and otherwise as they are thrown. Behind a failure the iterator of a plain
/// listing stands where it stood. That of a filtered listing, or of a tree that the system walks,
/// may stand on no element: REQUIRES there that it is moved before it is dereferenced. Where the
/// system walks, moving it again tries again what failed.
template<class T>
class FOUNDATION_EXPORT FolderListingIterator {
  public:
    using iterator_category = std::input_iterator_tag;
    using value_type = T;
    using difference_type = std::ptrdiff_t;
    using pointer = T const*;
    using reference = T const&;

    /// Belongs to no listing; equal to others made so.
    FolderListingIterator();
    /// Takes `impl` as it is, without a clone.
    explicit FolderListingIterator(std::shared_ptr<detail::IFolderIteratorImpl<T>> impl);
    FolderListingIterator(FolderListingIterator const& other);
    FolderListingIterator& operator=(FolderListingIterator const& other);
    ~FolderListingIterator();

    T const& operator*() const;
    T const* operator->() const { return &**this; }
    FolderListingIterator& operator++();
    FolderListingIterator operator++(int) {
        FolderListingIterator before(*this);
        ++*this;
        return before;
    }
    bool operator==(FolderListingIterator const& other) const;

  private:
    friend class FolderListing<T>;

    std::shared_ptr<detail::IFolderIteratorImpl<T>> impl_; ///< never null, also where it is moved
    bool singular_;
};

/// The children of a folder as a range. It holds no list: one element exists at a time, made of
/// what the provider's cursor gives. Every traversal begins at the first element, which was fetched
/// when the listing was made, and goes its own way; the folder is not listed again.
///
/// For one thread at a time. A copy clones both ends. Elements and iterators may outlive it.
template<class T>
class FOUNDATION_EXPORT FolderListing {
  public:
    using value_type = T;
    using const_iterator = FolderListingIterator<T>;
    using iterator = const_iterator;

    /// An empty range, without a folder.
    FolderListing() = default;
    /// Takes an iterator at the first element as it is, without a clone.
    explicit FolderListing(std::shared_ptr<detail::IFolderIteratorImpl<T>> const& impl);

    /// Each clones; that of the end has no cursor to clone.
    FolderListingIterator<T> begin() const;
    FolderListingIterator<T> end() const;
    bool empty() const;

  private:
    FolderListingIterator<T> first_; ///< never moves
    FolderListingIterator<T> last_;
};

extern template class FOUNDATION_EXPORT FolderListingIterator<File>;
extern template class FOUNDATION_EXPORT FolderListingIterator<Folder>;
extern template class FOUNDATION_EXPORT FolderListingIterator<FileOrFolder>;
extern template class FOUNDATION_EXPORT FolderListingIterator<FileEntry>;
extern template class FOUNDATION_EXPORT FolderListingIterator<FolderEntry>;
extern template class FOUNDATION_EXPORT FolderListingIterator<FileOrFolderEntry>;
extern template class FOUNDATION_EXPORT FolderListingIterator<ListEntry>;
extern template class FOUNDATION_EXPORT FolderListing<File>;
extern template class FOUNDATION_EXPORT FolderListing<Folder>;
extern template class FOUNDATION_EXPORT FolderListing<FileOrFolder>;
extern template class FOUNDATION_EXPORT FolderListing<FileEntry>;
extern template class FOUNDATION_EXPORT FolderListing<FolderEntry>;
extern template class FOUNDATION_EXPORT FolderListing<FileOrFolderEntry>;
extern template class FOUNDATION_EXPORT FolderListing<ListEntry>;

} // namespace foundation::storage::vfs
