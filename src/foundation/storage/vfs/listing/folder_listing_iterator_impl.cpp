#include <foundation/storage/vfs/listing/detail/folder_listing_iterator_impl.hpp>

#include <foundation/storage/vfs/errors/detail/translated.hpp>
#include <foundation/storage/vfs/errors/exception.hpp>
#include <foundation/storage/vfs/listing/file_or_folder_entry.hpp>
#include <foundation/storage/vfs/listing/list_entry.hpp>

#include <type_traits>
#include <utility>

namespace foundation::storage::vfs::detail {

namespace {

using Cursor = std::unique_ptr<provider::IFolderEntryIterator>;

Cursor clone(Cursor const& cursor, boost::optional<Folder> const& folder) {
    if (!cursor) {
        return nullptr;
    }
    Cursor copy(cursor->cloneIterator());
    if (!copy) {
        throw Exception(ErrorCode::InternalError, folder->getLocation());
    }
    return copy;
}

/// With the attributes that came with the entry, or without.
template<class T, class Attributes>
T makeEntry(Folder const& folder, provider::FolderEntry&& entry,
            boost::optional<Attributes> const& delivered) {
    return delivered ? T(folder, entry.takeName(), *delivered) : T(folder, entry.takeName());
}

/// The element of type `T` for an entry of `folder`. What the type says of the kind is believed:
/// the provider was asked for nothing else.
template<class T>
T makeElement(Folder const& folder, provider::FolderEntry&& entry) {
    if constexpr (std::is_same_v<T, FileEntry>) {
        return makeEntry<T>(folder, std::move(entry), entry.getFileAttributes());
    } else if constexpr (std::is_same_v<T, FolderEntry>) {
        return makeEntry<T>(folder, std::move(entry), entry.getFolderAttributes());
    } else if constexpr (std::is_same_v<T, FileOrFolder>) {
        if (entry.isFile()) {
            return makeElement<File>(folder, std::move(entry));
        }
        return makeElement<Folder>(folder, std::move(entry));
    } else if constexpr (std::is_same_v<T, FileOrFolderEntry>) {
        if (entry.isFile()) {
            return makeElement<FileEntry>(folder, std::move(entry));
        }
        return makeElement<FolderEntry>(folder, std::move(entry));
    } else {
        return T(folder, entry.takeName());
    }
}

} // namespace

template<class T>
FolderListingIteratorImpl<T>::FolderListingIteratorImpl() = default;

template<class T>
FolderListingIteratorImpl<T>::FolderListingIteratorImpl(Folder folder)
    : folder_(std::move(folder)) {}

template<class T>
FolderListingIteratorImpl<T>::FolderListingIteratorImpl(
    Folder folder, std::unique_ptr<provider::IFolderEntryIterator> iterator)
    : folder_(std::move(folder)),
      iterator_(std::move(iterator)) {
    updateCurrent();
}

template<class T>
FolderListingIteratorImpl<T>::FolderListingIteratorImpl(FolderListingIteratorImpl const& other)
    : IFolderIteratorImpl<T>(other),
      folder_(other.folder_),
      iterator_(clone(other.iterator_, other.folder_)),
      current_(other.current_),
      currentIsShared_(true) {
    other.currentIsShared_.store(true, std::memory_order_relaxed);
}

template<class T>
FolderListingIteratorImpl<T>&
FolderListingIteratorImpl<T>::operator=(FolderListingIteratorImpl const& other) {
    if (this != &other) {
        iterator_ = clone(other.iterator_, other.folder_);
        folder_ = other.folder_;
        current_ = other.current_;
        currentIsShared_.store(true, std::memory_order_relaxed);
        other.currentIsShared_.store(true, std::memory_order_relaxed);
    }
    return *this;
}

template<class T>
FolderListingIteratorImpl<T>::~FolderListingIteratorImpl() = default;

template<class T>
void FolderListingIteratorImpl<T>::updateCurrent() {
    if (!iterator_->hasNext()) {
        current_.reset();
        return;
    }
    // Only this step is translated; what hasNext() and currentEntry() throw goes out as it is.
    translated([this] { iterator_->advance(); });
    if (current_ && !currentIsShared_.load(std::memory_order_relaxed)) {
        *current_ = makeElement<T>(*folder_, iterator_->currentEntry());
    } else {
        current_ = std::make_shared<T>(makeElement<T>(*folder_, iterator_->currentEntry()));
        currentIsShared_.store(false, std::memory_order_relaxed);
    }
}

template<class T>
void FolderListingIteratorImpl<T>::increment() {
    updateCurrent();
}

template<class T>
bool FolderListingIteratorImpl<T>::equal(IFolderIteratorImpl<T> const& other) const {
    auto const& that = static_cast<FolderListingIteratorImpl const&>(other);
    if (current_ != that.current_) {
        return false;
    }
    if (folder_ && that.folder_) {
        return *folder_ == *that.folder_;
    }
    return !folder_ && !that.folder_;
}

template<class T>
T const& FolderListingIteratorImpl<T>::dereference() const {
    return *current_;
}

template<class T>
std::shared_ptr<IFolderIteratorImpl<T>> FolderListingIteratorImpl<T>::cloneImpl() const {
    return std::make_shared<FolderListingIteratorImpl>(*this);
}

template<class T>
std::shared_ptr<IFolderIteratorImpl<T>> FolderListingIteratorImpl<T>::buildEndIterator() const {
    return std::make_shared<FolderListingIteratorImpl>(*folder_);
}

template class FolderListingIteratorImpl<File>;
template class FolderListingIteratorImpl<Folder>;
template class FolderListingIteratorImpl<FileOrFolder>;
template class FolderListingIteratorImpl<FileEntry>;
template class FolderListingIteratorImpl<FolderEntry>;
template class FolderListingIteratorImpl<FileOrFolderEntry>;
template class FolderListingIteratorImpl<ListEntry>;

} // namespace foundation::storage::vfs::detail
