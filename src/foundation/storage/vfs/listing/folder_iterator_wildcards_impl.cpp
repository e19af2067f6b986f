#include <foundation/storage/vfs/listing/detail/folder_iterator_wildcards_impl.hpp>

#include <foundation/storage/provider/wildcard.hpp>
#include <foundation/storage/vfs/listing/file_or_folder_entry.hpp>
#include <foundation/storage/vfs/listing/list_entry.hpp>

#include <utility>

namespace foundation::storage::vfs::detail {

/// The position in the wrapped listing, and the rule that it stops at.
template<class T>
class FolderIteratorWildcardsImpl<T>::FilterImpl {
  public:
    class WildcardMatchingFilter {
      public:
        explicit WildcardMatchingFilter(ustring const& pattern) : pattern_(pattern) {}

        bool operator()(File const& file) const { return matches(file.getName()); }
        bool operator()(Folder const& folder) const { return matches(folder.getName()); }
        bool operator()(FileOrFolder const& item) const {
            return matches(getLocation(item).getName());
        }
        bool operator()(FileEntry const& entry) const { return matches(entry.getFile().getName()); }
        bool operator()(FolderEntry const& entry) const {
            return matches(entry.getFolder().getName());
        }
        bool operator()(FileOrFolderEntry const& entry) const {
            return matches(getLocation(entry).getName());
        }
        bool operator()(ListEntry const& entry) const { return matches(entry.getFilename()); }

      private:
        bool matches(ustring const& name) const {
            return provider::matchesWildcard(pattern_, name);
        }

        ustring pattern_;
    };

    FilterImpl(ustring const& pattern, FolderListingIterator<T> const& begin,
               FolderListingIterator<T> const& end)
        : position_(begin),
          matcher_(pattern),
          last_(end) {
        search();
    }

    void increment() {
        ++position_;
        search();
    }
    T const& retrieve() const { return *position_; }
    bool equal(FilterImpl const& other) const { return position_ == other.position_; }
    std::shared_ptr<FilterImpl> clone() const { return std::make_shared<FilterImpl>(*this); }

  private:
    void search() {
        while (position_ != last_ && !matcher_(*position_)) {
            ++position_;
        }
    }

    FolderListingIterator<T> position_;
    WildcardMatchingFilter matcher_;
    FolderListingIterator<T> last_;
};

template<class T>
FolderIteratorWildcardsImpl<T>::FolderIteratorWildcardsImpl() = default;

template<class T>
FolderIteratorWildcardsImpl<T>::FolderIteratorWildcardsImpl(
    std::shared_ptr<IFolderIteratorImpl<T>> wrapped, ustring pattern)
    : wrapped_(std::move(wrapped)),
      pattern_(std::move(pattern)) {
    FolderListingIterator<T> const end(wrapped_->buildEndIterator());
    filter_ = std::make_shared<FilterImpl>(pattern_, FolderListingIterator<T>(wrapped_), end);
}

template<class T>
FolderIteratorWildcardsImpl<T>::FolderIteratorWildcardsImpl(std::shared_ptr<FilterImpl> filter)
    : filter_(std::move(filter)) {}

template<class T>
FolderIteratorWildcardsImpl<T>::~FolderIteratorWildcardsImpl() = default;

template<class T>
void FolderIteratorWildcardsImpl<T>::increment() {
    filter_->increment();
}

template<class T>
bool FolderIteratorWildcardsImpl<T>::equal(IFolderIteratorImpl<T> const& other) const {
    return filter_->equal(*static_cast<FolderIteratorWildcardsImpl const&>(other).filter_);
}

template<class T>
T const& FolderIteratorWildcardsImpl<T>::dereference() const {
    return filter_->retrieve();
}

template<class T>
std::shared_ptr<IFolderIteratorImpl<T>> FolderIteratorWildcardsImpl<T>::cloneImpl() const {
    return std::make_shared<FolderIteratorWildcardsImpl>(filter_->clone());
}

template<class T>
std::shared_ptr<IFolderIteratorImpl<T>> FolderIteratorWildcardsImpl<T>::buildEndIterator() const {
    return std::make_shared<FolderIteratorWildcardsImpl>(wrapped_->buildEndIterator(), pattern_);
}

template class FolderIteratorWildcardsImpl<File>;
template class FolderIteratorWildcardsImpl<Folder>;
template class FolderIteratorWildcardsImpl<FileOrFolder>;
template class FolderIteratorWildcardsImpl<FileEntry>;
template class FolderIteratorWildcardsImpl<FolderEntry>;
template class FolderIteratorWildcardsImpl<FileOrFolderEntry>;
template class FolderIteratorWildcardsImpl<ListEntry>;

} // namespace foundation::storage::vfs::detail
