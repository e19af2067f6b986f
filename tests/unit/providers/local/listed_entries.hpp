#pragma once

#include <foundation/storage/provider/i_folder_entry_iterator.hpp>

#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace foundation::storage::provider::local::test {

using Cursor = std::unique_ptr<IFolderEntryIterator>;

/// An entry as its name in the storage's own bytes, a folder with a slash behind it.
std::string textOf(FolderEntry const& entry);

/// What is left of a listing, in its order.
std::vector<std::string> restOf(IFolderEntryIterator& cursor);
/// The same sorted.
std::vector<std::string> listed(IFolderEntryIterator& cursor);
std::vector<std::string> listed(Cursor const& cursor);
/// The same in one line.
std::string listedLine(Cursor const& cursor);

std::vector<std::string> sorted(std::vector<std::string> names);

Cursor clone(Cursor const& cursor);

/// What is below a folder on the disk, links not followed, as listed() gives it.
std::vector<std::string> treeOnDisk(std::string const& folder);

/// Those of `names` whose last component matches.
std::vector<std::string> matching(std::vector<std::string> const& names,
                                  std::u16string_view pattern);

} // namespace foundation::storage::provider::local::test
