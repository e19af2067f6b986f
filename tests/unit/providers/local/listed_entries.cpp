#include "listed_entries.hpp"

#include <foundation/storage/provider/wildcard.hpp>

#include <fl/i18n/conversion.hpp>

#include <algorithm>
#include <filesystem>
#include <iterator>

namespace foundation::storage::provider::local::test {

std::string textOf(FolderEntry const& entry) {
    return fl::i18n::ustringToStorageName(entry.getName()) + (entry.isFile() ? "" : "/");
}

std::vector<std::string> restOf(IFolderEntryIterator& cursor) {
    std::vector<std::string> result;
    while (cursor.hasNext()) {
        cursor.advance();
        result.push_back(textOf(cursor.currentEntry()));
    }
    return result;
}

std::vector<std::string> listed(IFolderEntryIterator& cursor) {
    return sorted(restOf(cursor));
}

std::vector<std::string> listed(Cursor const& cursor) {
    return listed(*cursor);
}

std::string listedLine(Cursor const& cursor) {
    std::string result;
    for (std::string const& name : listed(cursor)) {
        result += (result.empty() ? "" : " ") + name;
    }
    return result;
}

std::vector<std::string> sorted(std::vector<std::string> names) {
    std::sort(names.begin(), names.end());
    return names;
}

Cursor clone(Cursor const& cursor) {
    return Cursor(cursor->cloneIterator());
}

std::vector<std::string> treeOnDisk(std::string const& folder) {
    std::vector<std::string> result;
    for (auto const& entry : std::filesystem::recursive_directory_iterator(folder)) {
        bool const isFolder = std::filesystem::is_directory(entry.symlink_status());
        result.push_back(entry.path().string().substr(folder.size() + 1) + (isFolder ? "/" : ""));
    }
    return sorted(std::move(result));
}

std::vector<std::string> matching(std::vector<std::string> const& names,
                                  std::u16string_view pattern) {
    std::vector<std::string> result;
    std::copy_if(names.begin(), names.end(), std::back_inserter(result), [&](std::string name) {
        if (name.ends_with('/')) {
            name.pop_back();
        }
        name.erase(0, name.rfind('/') + 1);
        return matchesWildcard(pattern, fl::i18n::storageNameToUstring(name));
    });
    return result;
}

} // namespace foundation::storage::provider::local::test
