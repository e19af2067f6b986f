#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/provider/folder_entry.hpp>

namespace foundation::storage::provider {

/// A cursor over the entries of a folder. A fresh one stands before the first entry: ask hasNext(),
/// and if it is true call advance() and then currentEntry(). For one thread at a time.
class FOUNDATION_EXPORT IFolderEntryIterator {
  public:
    /// The entry that the last advance() reached.
    virtual FolderEntry currentEntry() const = 0;
    virtual bool hasNext() const = 0;
    virtual void advance() = 0;
    /// A new cursor at the same position, owned by the caller. Cheap and independent: a listing
    /// keeps many clones of one cursor alive at once.
    virtual IFolderEntryIterator* cloneIterator() const = 0;
    virtual ~IFolderEntryIterator();
};

} // namespace foundation::storage::provider
