#include <foundation/storage/vfs/listing/folder_listing.hpp>

#include <foundation/storage/vfs/listing/detail/folder_listing_iterator_impl.hpp>

#include <utility>

namespace foundation::storage::vfs {

template<class T>
FolderListingIterator<T>::FolderListingIterator()
    : impl_(std::make_shared<detail::FolderListingIteratorImpl<T>>()),
      singular_(true) {}

template<class T>
FolderListingIterator<T>::FolderListingIterator(
    std::shared_ptr<detail::IFolderIteratorImpl<T>> impl)
    : impl_(std::move(impl)),
      singular_(false) {}

template<class T>
FolderListingIterator<T>::FolderListingIterator(FolderListingIterator const& other)
    : impl_(other.impl_->cloneImpl()),
      singular_(false) {}

template<class T>
FolderListingIterator<T>& FolderListingIterator<T>::operator=(FolderListingIterator const& other) {
    if (this != &other) {
        impl_ = other.impl_->cloneImpl();
        singular_ = other.singular_; // a copy is never singular, an assigned iterator may be
    }
    return *this;
}

template<class T>
FolderListingIterator<T>::~FolderListingIterator() = default;

template<class T>
T const& FolderListingIterator<T>::operator*() const {
    return impl_->dereference();
}

template<class T>
FolderListingIterator<T>& FolderListingIterator<T>::operator++() {
    impl_->increment();
    return *this;
}

template<class T>
bool FolderListingIterator<T>::operator==(FolderListingIterator const& other) const {
    if (singular_ || other.singular_) {
        return singular_ == other.singular_;
    }
    return impl_->equal(*other.impl_);
}

template<class T>
FolderListing<T>::FolderListing(std::shared_ptr<detail::IFolderIteratorImpl<T>> const& impl)
    : first_(impl),
      last_(impl->buildEndIterator()) {}

template<class T>
FolderListingIterator<T> FolderListing<T>::begin() const {
    return FolderListingIterator<T>(first_.impl_->cloneImpl());
}

template<class T>
FolderListingIterator<T> FolderListing<T>::end() const {
    return FolderListingIterator<T>(last_.impl_->cloneImpl());
}

template<class T>
bool FolderListing<T>::empty() const {
    return first_ == last_;
}

template class FolderListingIterator<File>;
template class FolderListingIterator<Folder>;
template class FolderListingIterator<FileOrFolder>;
template class FolderListingIterator<FileEntry>;
template class FolderListingIterator<FolderEntry>;
template class FolderListingIterator<FileOrFolderEntry>;
template class FolderListingIterator<ListEntry>;
template class FolderListing<File>;
template class FolderListing<Folder>;
template class FolderListing<FileOrFolder>;
template class FolderListing<FileEntry>;
template class FolderListing<FolderEntry>;
template class FolderListing<FileOrFolderEntry>;
template class FolderListing<ListEntry>;

} // namespace foundation::storage::vfs
