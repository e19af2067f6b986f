#include "child_process.hpp"
#include "deep_tree.hpp"
#include "listing_fixture.hpp"

#include <algorithm>
#include <cstring>
#include <fcntl.h>
#include <gmock/gmock.h>
#include <map>
#include <mutex>
#include <optional>
#include <set>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <unistd.h>

namespace foundation::storage::provider::local::test {
namespace {

using ::testing::ElementsAre;

class LocalDeepListing : public TreeListingTest {};

/// Lists a deep tree and says what was found: how many of each name, and how deep it went.
std::string describeDeep(IFolderEntryIterator& cursor, unsigned levels, std::size_t& descriptors) {
    fl::i18n::ustring chain;
    for (unsigned i = 0; i < levels; ++i) {
        chain += u"a/";
    }
    std::map<char16_t, std::set<std::size_t>> found;
    std::size_t entries = 0;
    for (; cursor.hasNext(); ++entries) {
        cursor.advance();
        fl::i18n::ustring const name = cursor.currentEntry().getName();
        if (std::memcmp(name.data(), chain.data(), (name.size() - 1) * sizeof(char16_t)) != 0) {
            return "a wrong path";
        }
        found[name.back()].insert(name.size());
        if (entries % 100 == 0) {
            descriptors = std::max(descriptors, openDescriptors());
        }
    }
    return std::to_string(entries) + " entries, a " + std::to_string(found[u'a'].size()) + " b " +
           std::to_string(found[u'b'].size()) + " to length " +
           std::to_string(found[u'a'].empty() ? 0 : *found[u'a'].rbegin());
}

TEST_F(LocalDeepListing, HoldsFewDescriptorsAndNoneAtTheEnd) {
    makeTree("tree", 9);
    std::size_t const before = openDescriptors();
    std::size_t most = 0;
    Cursor const cursor = names("tree");
    Cursor const abandoned = names("tree");
    std::vector<Cursor> clones;
    abandoned->advance();
    std::size_t const afterOne = openDescriptors();
    while (cursor->hasNext()) {
        cursor->advance();
        clones.push_back(clone(cursor));
        most = std::max(most, openDescriptors());
    }

    EXPECT_LE(most, afterOne + 15);
    EXPECT_EQ(openDescriptors(), before + 1);
    for (Cursor const& other : clones) {
        restOf(*other);
    }
    restOf(*abandoned);
    EXPECT_EQ(openDescriptors(), before);
}

TEST_F(LocalDeepListing, ATreeOfOneLevelIsClosedBeforeItsFirstEntry) {
    makeFolder("flat");
    makeFile("flat/file");
    std::size_t const before = openDescriptors();

    Cursor const cursor = names("flat");

    EXPECT_EQ(openDescriptors(), before);
    EXPECT_THAT(listed(cursor), ElementsAre("file"));
}

TEST_F(LocalDeepListing, TwentyThousandLevelsNeedFewDescriptors) {
    constexpr unsigned levels = 20'000;
    for (bool const pairs : {false, true}) {
        DeepTree const tree(path(""), levels, pairs);
        std::string const outcome = inChild([&] {
            rlimit const few{64, 64};
            ::setrlimit(RLIMIT_NOFILE, &few);
            std::size_t const before = openDescriptors();
            std::size_t most = 0;
            Cursor const cursor = provider_->listAllRecursiveNamesOnly(tree.location(), u"");
            std::string const found = describeDeep(*cursor, levels, most);
            return found + (most <= before + 17 ? ", few" : ", " + std::to_string(most)) +
                   (openDescriptors() == before ? ", none left" : ", some left");
        });
        EXPECT_EQ(outcome, pairs ? "40000 entries, a 20000 b 20000 to length 39999, few, none left"
                                 : "20000 entries, a 20000 b 0 to length 39999, few, none left");
    }
}

TEST_F(LocalDeepListing, ACloneDeepDownFindsItsWayBackUp) {
    constexpr unsigned levels = 5'000; // paths beyond the kernel's limit
    DeepTree const tree(path(""), levels, true);
    Cursor const cursor = provider_->listAllRecursive(tree.location(), u"");
    std::size_t longest = 0;
    std::size_t deepestAt = 0;
    std::size_t entries = 0;
    Cursor deepest;
    while (cursor->hasNext()) {
        cursor->advance();
        ++entries;
        std::size_t const size = cursor->currentEntry().getName().size();
        if (size > longest) {
            longest = size;
            deepestAt = entries;
            deepest = clone(cursor);
        }
    }

    EXPECT_EQ(longest, 2 * levels - 1);
    EXPECT_EQ(entries, 2 * levels);
    EXPECT_EQ(restOf(*deepest).size(), entries - deepestAt);
}

TEST_F(LocalDeepListing, GoingBackUpTakesOneStepALevel) {
    constexpr unsigned levels = 300;
    DeepTree const tree(path(""), levels, true);

    std::string const outcome = inChild([&] {
        unsigned calls = 0;
        std::mutex mutex;
        interceptCalls(SYS_openat, 0, 0, [&](auto const*) -> std::optional<long> {
            std::lock_guard const lock(mutex);
            ++calls;
            return std::nullopt;
        });
        restOf(*provider_->listAllRecursiveNamesOnly(tree.location(), u""));
        std::lock_guard const lock(mutex);
        return calls <= 3 * levels ? std::string("few") : std::to_string(calls);
    });

    EXPECT_EQ(outcome, "few");
}

TEST_F(LocalDeepListing, TwoDescriptorsAreEnough) {
    std::string folder = "tree";
    makeFolder(folder);
    for (int level = 0; level < 20; ++level) {
        makeFolder(folder + "/b");
        makeFolder(folder + "/c");
        folder += "/a" + std::to_string(level); // before, between or behind the others
        makeFolder(folder);
    }
    Names const expected = treeOnDisk(path("tree"));

    std::string const outcome = inChild([&] {
        listed(names("tree")); // a sanitizer needs a pipe for the first call of each class
        Cursor const cursor = names("tree");
        int const next = ::open("/", O_PATH | O_CLOEXEC);
        ::close(next);
        rlimit const one{static_cast<rlim_t>(next) + 1, 64};
        ::setrlimit(RLIMIT_NOFILE, &one);
        return std::string(listed(cursor) == expected ? "all" : "not all");
    });

    EXPECT_EQ(outcome, "all");
}

} // namespace
} // namespace foundation::storage::provider::local::test
