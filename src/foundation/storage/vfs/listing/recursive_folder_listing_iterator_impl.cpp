#include <foundation/storage/vfs/listing/detail/recursive_folder_listing_iterator_impl.hpp>

#include <foundation/storage/vfs/errors/detail/rethrow_as_vfs_exception.hpp>
#include <foundation/storage/vfs/errors/exception.hpp>

#include <cassert>
#include <utility>

namespace foundation::storage::vfs::detail {

namespace {

template<class T>
struct Level;

template<>
struct Level<ListEntry> {
    static FolderListing<ListEntry> list(Folder const& folder) { return folder.listAll(); }
    static bool isFolder(ListEntry const& entry) {
        return boost::get<Folder>(&static_cast<FileOrFolder const&>(entry.getFileOrFolder())) !=
               nullptr;
    }
    /// Asks again: what was a folder a moment ago need not be one.
    static Folder folderOf(ListEntry const& entry) {
        return boost::get<Folder>(entry.getFileOrFolder());
    }
};

template<>
struct Level<FileOrFolderEntry> {
    static FolderListing<FileOrFolderEntry> list(Folder const& folder) {
        return folder.listAllEntries();
    }
    static bool isFolder(FileOrFolderEntry const& entry) {
        return boost::get<FolderEntry>(&entry) != nullptr;
    }
    static Folder const& folderOf(FileOrFolderEntry const& entry) {
        return boost::get<FolderEntry>(entry).getFolder();
    }
};

} // namespace

/// One open folder of a walk.
template<class T>
class RecursiveFolderListingIteratorImpl<T>::ListingWrapper {
  public:
    /// The whole folder is listed, whatever the pattern: it chooses what is shown, not what is
    /// entered.
    ListingWrapper(Folder const& folder, ustring const& /*pattern*/)
        : listing_(Level<T>::list(folder)),
          position_(listing_.begin()),
          last_(listing_.end()) {}

    FolderListingIterator<T> current() const { return position_; }
    FolderListingIterator<T> end() const { return last_; }
    void increment() { ++position_; }

  private:
    FolderListing<T> listing_;
    FolderListingIterator<T> position_; ///< one ahead of what the walk shows
    FolderListingIterator<T> last_;
};

template<class T>
RecursiveFolderListingIteratorImpl<T>::RecursiveFolderListingIteratorImpl(ustring pattern)
    : pattern_(std::move(pattern)) {}

template<class T>
RecursiveFolderListingIteratorImpl<T>::RecursiveFolderListingIteratorImpl(Folder folder,
                                                                          ustring pattern)
    : folder_(std::move(folder)),
      pattern_(std::move(pattern)) {
    backStack_.emplace_back(*folder_, pattern_);
    setCurrentAndDoIncrement();
    if (!current_) {
        backStack_ = {};
    }
}

template<class T>
RecursiveFolderListingIteratorImpl<T>::RecursiveFolderListingIteratorImpl(
    RecursiveFolderListingIteratorImpl const& other)
    : IFolderIteratorImpl<T>(other),
      pattern_(other.pattern_),
      backStack_(other.backStack_),
      current_(other.current_) {}

template<class T>
RecursiveFolderListingIteratorImpl<T>&
RecursiveFolderListingIteratorImpl<T>::operator=(RecursiveFolderListingIteratorImpl const& other) {
    pattern_ = other.pattern_;
    backStack_ = other.backStack_;
    current_ = other.current_;
    return *this;
}

template<class T>
RecursiveFolderListingIteratorImpl<T>::~RecursiveFolderListingIteratorImpl() = default;

template<class T>
void RecursiveFolderListingIteratorImpl<T>::increment() {
    if (current_) {
        if (Level<T>::isFolder(*current_)) {
            Folder const folder = Level<T>::folderOf(*current_);
            try {
                backStack_.emplace_back(folder, pattern_);
            } catch (...) {
                handleErrors();
            }
        }
        setCurrentAndDoIncrement();
    }
    popBackStack();
    if (!backStack_.empty() && !current_) {
        backStack_.pop_back();
    }
}

/// Shows the next element of the innermost level and moves that level on, or shows none where the
/// level is at its end or has failed.
template<class T>
void RecursiveFolderListingIteratorImpl<T>::setCurrentAndDoIncrement() {
    ListingWrapper& level = backStack_.back();
    try {
        if (level.end() == level.current()) {
            current_ = boost::none;
            return;
        }
        current_ = *level.current();
        level.increment();
    } catch (...) {
        // An element that was just taken goes with the rest of a level that fails to move on.
        handleErrors();
    }
}

template<class T>
void RecursiveFolderListingIteratorImpl<T>::popBackStack() {
    while (!current_ && backStack_.size() >= 2) {
        backStack_.pop_back();
        setCurrentAndDoIncrement();
    }
}

/// Ends the level for a folder that denies access or is gone; throws everything else, translated.
/// REQUIRES: an exception is being handled.
template<class T>
void RecursiveFolderListingIteratorImpl<T>::handleErrors() {
    try {
        rethrowAsVfsException();
    } catch (Exception const& e) {
        if (e.getErrorCode() != ErrorCode::PermissionDenied &&
            e.getErrorCode() != ErrorCode::ResourceNotFound) {
            throw;
        }
        current_ = boost::none;
    }
}

template<class T>
bool RecursiveFolderListingIteratorImpl<T>::equal(IFolderIteratorImpl<T> const& other) const {
    auto const& that = static_cast<RecursiveFolderListingIteratorImpl const&>(other);
    if (folder_ && that.folder_ ? *folder_ != *that.folder_ : folder_ || that.folder_) {
        return false;
    }
    if (backStack_.empty() || that.backStack_.empty()) {
        return backStack_.empty() == that.backStack_.empty();
    }
    return backStack_.back().current() == that.backStack_.back().current();
}

template<class T>
T const& RecursiveFolderListingIteratorImpl<T>::dereference() const {
    assert(current_ && "not at the end, and not behind a failure");
    return *current_;
}

template<class T>
std::shared_ptr<IFolderIteratorImpl<T>> RecursiveFolderListingIteratorImpl<T>::cloneImpl() const {
    return std::make_shared<RecursiveFolderListingIteratorImpl>(*this);
}

template<class T>
std::shared_ptr<IFolderIteratorImpl<T>>
RecursiveFolderListingIteratorImpl<T>::buildEndIterator() const {
    return std::make_shared<RecursiveFolderListingIteratorImpl>(pattern_);
}

template class RecursiveFolderListingIteratorImpl<ListEntry>;
template class RecursiveFolderListingIteratorImpl<FileOrFolderEntry>;

} // namespace foundation::storage::vfs::detail
