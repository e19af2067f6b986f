#include "listing_fixture.hpp"

#include <algorithm>
#include <filesystem>
#include <optional>
#include <random>
#include <sys/stat.h>
#include <system_error>

namespace foundation::storage::provider::local::test {

Cursor FlatListingTest::list(Listing listing, std::string_view name,
                             fl::i18n::ustring const& filter) const {
    return (provider_.get()->*listing)(at(name), filter);
}

Cursor FlatListingTest::names(std::string_view name) const {
    return list(&IProvider::listAllNamesOnly, name);
}

std::string FlatListingTest::nameOf(int number) {
    return std::string(160, 'n') + " " + std::to_string(number);
}

Names FlatListingTest::makeMany(std::string const& folder) const {
    makeFolder(folder);
    std::vector<std::string> result;
    for (int i = 0; i < many; ++i) {
        result.push_back(nameOf(i));
        std::string const file = path(folder + "/" + result.back());
        EXPECT_EQ(::mknod(file.c_str(), S_IFREG | 0644, 0), 0);
    }
    return sorted(std::move(result));
}

Cursor TreeListingTest::names(std::string_view name, fl::i18n::ustring const& filter) const {
    return provider_->listAllRecursiveNamesOnly(at(name), filter);
}

Cursor TreeListingTest::entries(std::string_view name, fl::i18n::ustring const& filter) const {
    return provider_->listAllRecursive(at(name), filter);
}

void TreeListingTest::makeTree(std::string const& folder, unsigned seed) const {
    std::mt19937 random(seed);
    makeFolder(folder);
    Names folders{folder};
    for (int i = 0; i < 400; ++i) {
        // The newest folder mostly, so that the tree gets deep.
        std::size_t const back = random() % 3 == 0 ? random() % folders.size() : 0;
        std::string const& parent = folders[folders.size() - 1 - back];
        std::string const name = parent + "/" + std::string(random() % 40 + 1, 'x') +
                                 std::to_string(i) + (i % 7 == 0 ? ".txt" : "");
        if (random() % 3 == 0) {
            makeFile(name);
        } else if (random() % 10 == 0) {
            makeLink(name, "..");
        } else if (std::count(name.begin(), name.end(), '/') < 40) {
            makeFolder(name);
            folders.push_back(name);
        }
    }
}

std::string describe(AttributeValues const& values) {
    auto const time = [](std::optional<Timestamp> const& t) {
        return t ? std::to_string(t->seconds) + '.' + std::to_string(t->nanoseconds)
                 : std::string("none");
    };
    return "modified " + time(values.lastModified) + " accessed " + time(values.lastAccessed) +
           " created " + time(values.created) + " size " +
           (values.size ? std::to_string(*values.size) : "none") + " mode " +
           (values.mode ? std::to_string(*values.mode) : "none") +
           (values.writable ? " writable" : "");
}

std::map<std::string, std::string> attributesIn(Cursor const& cursor) {
    std::map<std::string, std::string> result;
    while (cursor->hasNext()) {
        cursor->advance();
        FolderEntry const entry = cursor->currentEntry();
        std::string& text = result[textOf(entry)];
        if (entry.getFileAttributes()) {
            text = "file " + describe(entry.getFileAttributes()->values());
        }
        if (entry.getFolderAttributes()) {
            text += "folder " + describe(entry.getFolderAttributes()->values());
        }
    }
    return result;
}

bool isDepthFirst(Names const& order) {
    for (std::size_t i = 0; i < order.size(); ++i) {
        std::string const inside = order[i].substr(0, order[i].rfind('/', order[i].size() - 2) + 1);
        if (inside != "" && inside != "/" && (i == 0 || !order[i - 1].starts_with(inside))) {
            return false;
        }
    }
    return true;
}

std::string folderOf(unsigned long long descriptor) {
    std::error_code error;
    return std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor), error)
        .string();
}

} // namespace foundation::storage::provider::local::test
