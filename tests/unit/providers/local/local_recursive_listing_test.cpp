#include "child_process.hpp"
#include "listed_entries.hpp"
#include "local_fixture.hpp"

#include <foundation/storage/provider/local/local_factory.hpp>
#include <foundation/storage/provider/local_path.hpp>

#include <fl/i18n/conversion.hpp>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <gmock/gmock.h>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <stdexcept>
#include <sys/resource.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <thread>
#include <unistd.h>

namespace foundation::storage::provider::local::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Names = std::vector<std::string>;

class LocalRecursiveListing : public LocalProviderTest {
  protected:
    explicit LocalRecursiveListing(LocalOptions const& options = {}) : LocalProviderTest(options) {}

    Cursor names(std::string_view name = "", fl::i18n::ustring const& filter = {}) const {
        return provider_->listAllRecursiveNamesOnly(at(name), filter);
    }
    Cursor entries(std::string_view name = "", fl::i18n::ustring const& filter = {}) const {
        return provider_->listAllRecursive(at(name), filter);
    }

    /// Some hundred entries with names that depend on `seed` alone, up to 40 levels deep.
    void makeTree(std::string const& folder, unsigned seed) const {
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
};

class LocalRecursiveListingWithLinksFollowed : public LocalRecursiveListing {
  protected:
    LocalRecursiveListingWithLinksFollowed() : LocalRecursiveListing({.followLinks = true}) {}
};

/// Whether every entry follows the folder that it is in, or what is in it.
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

/// A chain of folders `a`, each with a folder `b` beside it where `pairs` is set, in memory where
/// the machine has a place for it: some file systems take long for so many.
class DeepTree {
  public:
    DeepTree(std::string const& elsewhere, unsigned levels, bool pairs)
        : path_(::access("/dev/shm", W_OK) == 0 ? "/dev/shm/local-provider-XXXXXX"
                                                : elsewhere + "/deep-XXXXXX") {
        if (::mkdtemp(path_.data()) == nullptr) {
            throw std::runtime_error(path_);
        }
        int folder = ::open(path_.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
        for (unsigned level = 0; level < levels; ++level) {
            // Both orders occur on file systems that list by age.
            bool done = !pairs || level % 2 == 0 || ::mkdirat(folder, "b", 0755) == 0;
            done = done && ::mkdirat(folder, "a", 0755) == 0;
            done = done && (!pairs || level % 2 != 0 || ::mkdirat(folder, "b", 0755) == 0);
            int const next = ::openat(folder, "a", O_PATH | O_DIRECTORY | O_CLOEXEC);
            ::close(folder);
            folder = next;
            if (!done || folder < 0) {
                throw std::runtime_error("the tree cannot be made");
            }
        }
        ::close(folder);
    }
    DeepTree(DeepTree const&) = delete;
    DeepTree& operator=(DeepTree const&) = delete;
    ~DeepTree() {
        int folder = ::open(path_.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
        unsigned level = 0;
        for (int next; (next = ::openat(folder, "a", O_PATH | O_DIRECTORY | O_CLOEXEC)) >= 0;
             ++level) {
            ::close(folder);
            folder = next;
        }
        for (; level != 0; --level) {
            int const above = ::openat(folder, "..", O_PATH | O_DIRECTORY | O_CLOEXEC);
            ::close(folder);
            folder = above;
            ::unlinkat(folder, "a", AT_REMOVEDIR);
            ::unlinkat(folder, "b", AT_REMOVEDIR);
        }
        ::close(folder);
        ::rmdir(path_.c_str());
    }

    StorageIRI location() const { return fromLocalPath(path_); }

  private:
    std::string path_;
};

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

TEST_F(LocalRecursiveListing, DeliversEverythingBelow) {
    makeTree("tree", 1);

    EXPECT_EQ(listed(names("tree")), treeOnDisk(path("tree")));
    EXPECT_EQ(listed(entries("tree")), treeOnDisk(path("tree")));
}

TEST_F(LocalRecursiveListing, GoesDepthFirstWithTheFolderBeforeItsContents) {
    makeTree("tree", 2);

    Names const order = restOf(*names("tree"));

    EXPECT_GT(order.size(), 100U);
    EXPECT_TRUE(isDepthFirst(order));
}

TEST_F(LocalRecursiveListing, NamesArePathsBelowTheListedFolder) {
    makeFolder("tree");
    makeFolder("tree/caf\xe9");
    makeFile("tree/caf\xe9/two\nlines");
    makeFolder("tree/empty");
    makeFile("tree/file");

    EXPECT_THAT(listed(names("tree")),
                ElementsAre("caf\xe9/", "caf\xe9/two\nlines", "empty/", "file"));
    Cursor const cursor = names("tree");
    while (cursor->hasNext()) {
        cursor->advance();
        StorageIRI const item(at("tree"), cursor->currentEntry().getName());
        EXPECT_NE(provider_->exists(item), ExistsResult::Nothing) << item;
    }
}

TEST_F(LocalRecursiveListing, AnEmptyFolderHasNoEntries) {
    makeFolder("empty");
    Cursor const cursor = names("empty");

    EXPECT_FALSE(cursor->hasNext());
    EXPECT_FALSE(cursor->hasNext());
    EXPECT_THROW(cursor->advance(), std::logic_error);
    EXPECT_THROW(cursor->currentEntry(), std::logic_error);
}

TEST_F(LocalRecursiveListing, WhatCannotBeListedIsRefusedAtOnce) {
    makeFile("file");
    makeLink("circle", "circle");
    struct {
        char const* name;
        ErrorCode code;
    } const refusals[] = {{"missing", ErrorCode::ResourceNotFound},
                          {"file", ErrorCode::ResourceNotFound},
                          {"circle", ErrorCode::InvalidLocation}};
    for (auto const& [name, code] : refusals) {
        EXPECT_TRUE(isRefused([&] { names(name); }, code, at(name))) << name;
        EXPECT_TRUE(isRefused([&] { entries(name); }, code, at(name))) << name;
    }
}

TEST_F(LocalRecursiveListing, AttributesAreThoseThatTheItemsHave) {
    makeTree("tree", 3);
    setTimes("tree", {1, 2}, {3, 4});
    Cursor const cursor = entries("tree");

    while (cursor->hasNext()) {
        cursor->advance();
        FolderEntry const entry = cursor->currentEntry();
        StorageIRI const item(at("tree"), entry.getName());
        if (!entry.isFile()) {
            ASSERT_TRUE(entry.getFolderAttributes()) << item;
            EXPECT_EQ(entry.getFolderAttributes()->values().lastModified,
                      provider_->getFolderAttributes(item).values().lastModified);
        } else if (provider_->existsExtended(item) == ExtendedExistsResult::File) {
            ASSERT_TRUE(entry.getFileAttributes()) << item;
            EXPECT_EQ(entry.getFileAttributes()->values().created,
                      provider_->getFileAttributes(item).values().created);
            EXPECT_EQ(entry.getFileAttributes()->values().mode, 0644U);
        } else {
            ASSERT_TRUE(entry.getFileAttributes()) << item;
            EXPECT_EQ(entry.getFileAttributes()->values().size, 2U); // of a link to `..`
        }
    }
}

TEST_F(LocalRecursiveListing, PatternsFilterAndEnterEveryFolderAllTheSame) {
    makeTree("tree", 4);
    Names const all = treeOnDisk(path("tree"));

    for (fl::i18n::ustring const pattern :
         {u"*", u"*.txt", u"?", u"x*", u"*x1*", u"**", u"nothing", u"*/*", u"x?"}) {
        EXPECT_EQ(listed(names("tree", pattern)), matching(all, pattern));
        EXPECT_EQ(listed(entries("tree", pattern)), matching(all, pattern));
    }
}

TEST_F(LocalRecursiveListing, ACursorMovesOnOnlyByAdvancing) {
    makeTree("tree", 5);
    Names const order = restOf(*names("tree"));
    Cursor const cursor = names("tree");

    EXPECT_THROW(cursor->currentEntry(), std::logic_error);
    for (std::string const& name : order) {
        ASSERT_TRUE(cursor->hasNext());
        ASSERT_TRUE(cursor->hasNext());
        cursor->advance();
        ASSERT_EQ(textOf(cursor->currentEntry()), name);
        cursor->hasNext();
        ASSERT_EQ(textOf(cursor->currentEntry()), name);
    }
    EXPECT_FALSE(cursor->hasNext());
    EXPECT_FALSE(cursor->hasNext());
    EXPECT_THROW(cursor->advance(), std::logic_error);
    EXPECT_EQ(textOf(cursor->currentEntry()), order.back());
}

TEST_F(LocalRecursiveListing, AdvancesWithoutBeingAskedFirst) {
    makeTree("tree", 5);
    Names const order = restOf(*names("tree"));
    Cursor const cursor = names("tree");

    for (std::string const& name : order) {
        cursor->advance();
        ASSERT_EQ(textOf(cursor->currentEntry()), name);
    }
    EXPECT_THROW(cursor->advance(), std::logic_error);
}

TEST_F(LocalRecursiveListing, ClonesAtEveryPositionGoOnByThemselves) {
    makeTree("tree", 6);
    for (fl::i18n::ustring const pattern : {u"", u"*.txt"}) {
        Names const order = restOf(*names("tree", pattern));
        Cursor const cursor = names("tree", pattern);
        std::vector<Cursor> clones;

        clones.push_back(clone(cursor));
        while (cursor->hasNext()) {
            clones.push_back(clone(cursor)); // this one has looked ahead
            cursor->advance();
            clones.push_back(clone(cursor));
        }
        clones.push_back(clone(cursor));

        ASSERT_EQ(clones.size(), 2 * order.size() + 2);
        for (std::size_t i = 0; i < clones.size(); ++i) {
            std::size_t const before = i / 2;
            if (before != 0) {
                ASSERT_EQ(textOf(clones[i]->currentEntry()), order[before - 1]);
            }
            ASSERT_EQ(restOf(*clones[i]),
                      Names(order.begin() + static_cast<std::ptrdiff_t>(before), order.end()));
        }
    }
}

TEST_F(LocalRecursiveListing, ClonesMayBeReadOnTwoThreads) {
    makeTree("tree", 7);
    Names const expected = treeOnDisk(path("tree"));
    Cursor const cursor = entries("tree");
    Cursor const first = clone(cursor);
    Cursor const second = clone(cursor);
    Names left;
    Names right;

    std::thread one([&] { left = listed(first); });
    std::thread other([&] { right = listed(second); });
    one.join();
    other.join();

    EXPECT_EQ(left, expected);
    EXPECT_EQ(right, expected);
    EXPECT_EQ(listed(cursor), expected);
}

TEST_F(LocalRecursiveListing, ACloneMakesNoSystemCall) {
    makeTree("tree", 8);
    std::vector<Cursor> cursors; // out here, so that the child does not close their descriptors

    std::string const outcome = inChild([&] {
        std::size_t const entries = restOf(*names("tree")).size();
        for (std::size_t i = 0; i <= entries; i += 10) {
            cursors.push_back(names("tree"));
            for (std::size_t k = 0; k < i; ++k) {
                cursors.back()->advance();
            }
        }
        allowMemoryCallsOnly();
        for (Cursor const& cursor : cursors) {
            for (int i = 0; i < 100; ++i) {
                clone(cursor);
            }
        }
        return std::string("none");
    });

    EXPECT_EQ(outcome, "none");
}

TEST_F(LocalRecursiveListing, HoldsFewDescriptorsAndNoneAtTheEnd) {
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

TEST_F(LocalRecursiveListing, ATreeOfOneLevelIsClosedBeforeItsFirstEntry) {
    makeFolder("flat");
    makeFile("flat/file");
    std::size_t const before = openDescriptors();

    Cursor const cursor = names("flat");

    EXPECT_EQ(openDescriptors(), before);
    EXPECT_THAT(listed(cursor), ElementsAre("file"));
}

TEST_F(LocalRecursiveListing, NamesAreListedWithoutAskingForTheirKind) {
    makeTree("tree", 10);
    std::size_t const expected = treeOnDisk(path("tree")).size();

    std::string const outcome = inChild([&] {
        injectFaults({{SYS_statx, 0, 0, EIO},
                      {SYS_newfstatat, 3, AT_SYMLINK_NOFOLLOW, EIO},
                      {SYS_stat, 0, 0, EIO},
                      {SYS_lstat, 0, 0, EIO}});
        return std::to_string(listed(names("tree")).size());
    });

    EXPECT_EQ(outcome, std::to_string(expected));
}

TEST_F(LocalRecursiveListing, FoldersOfManyChunksAmongOthersAreListedCompletely) {
    makeFolder("tree");
    for (int i = 0; i < 400; ++i) {
        std::string const name = "tree/" + std::string(150, 'n') + std::to_string(i);
        if (i % 50 == 0) {
            makeFolder(name);
            for (int k = 0; k < 300; ++k) {
                makeFile(name + "/" + std::string(120, 'm') + std::to_string(k));
            }
        } else {
            makeFile(name);
        }
    }
    Names const expected = treeOnDisk(path("tree"));
    Cursor const cursor = names("tree");
    Names found;
    std::vector<std::pair<std::size_t, Cursor>> clones;
    while (cursor->hasNext()) {
        cursor->advance();
        found.push_back(textOf(cursor->currentEntry()));
        if (found.size() % 100 == 0) {
            clones.emplace_back(found.size(), clone(cursor));
        }
    }

    EXPECT_EQ(sorted(found), expected);
    EXPECT_EQ(listed(entries("tree")), expected);
    for (auto const& [position, other] : clones) {
        EXPECT_EQ(restOf(*other),
                  Names(found.begin() + static_cast<std::ptrdiff_t>(position), found.end()));
    }
}

TEST_F(LocalRecursiveListing, TwentyThousandLevelsNeedFewDescriptors) {
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

TEST_F(LocalRecursiveListing, ACloneDeepDownFindsItsWayBackUp) {
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

TEST_F(LocalRecursiveListing, GoingBackUpTakesOneStepALevel) {
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

TEST_F(LocalRecursiveListing, FoldersBelowThatDenyAccessArePassedOver) {
    makeFolder("tree");
    makeFolder("tree/closed");
    makeFile("tree/closed/hidden");
    makeFolder("tree/open");
    makeFile("tree/open/file");
    makeFolder("tree/unsearchable");
    makeFolder("tree/unsearchable/folder");
    makeFile("tree/unsearchable/folder/hidden");
    ASSERT_EQ(::chmod(path("tree/closed").c_str(), 0), 0);
    ASSERT_EQ(::chmod(path("tree/unsearchable").c_str(), 0644), 0);

    std::string const outcome = inChild([&] {
        becomeUnprivileged();
        return listedLine(names("tree")) + " | " + listedLine(entries("tree"));
    });
    ::chmod(path("tree/closed").c_str(), 0755);
    ::chmod(path("tree/unsearchable").c_str(), 0755);

    std::string const expected = "closed/ open/ open/file unsearchable/ unsearchable/folder/";
    EXPECT_EQ(outcome, expected + " | " + expected);
}

TEST_F(LocalRecursiveListing, TheListedFolderItselfMustBeReadable) {
    makeFolder("closed", 0311);

    std::string const outcome = inChild([&] {
        becomeUnprivileged();
        return std::string(
            isRefused([&] { names("closed"); }, ErrorCode::PermissionDenied, at("closed"))
                ? "denied"
                : "other");
    });
    ::chmod(path("closed").c_str(), 0755);

    EXPECT_EQ(outcome, "denied");
}

TEST_F(LocalRecursiveListing, FoldersThatVanishArePassedOver) {
    makeFolder("tree");
    for (char const* name : {"a", "b", "c"}) {
        makeFolder(std::string("tree/") + name);
        makeFile(std::string("tree/") + name + "/inner");
    }
    Cursor const cursor = names("tree");
    for (char const* name : {"a", "b", "c"}) {
        std::filesystem::remove_all(path(std::string("tree/") + name));
    }

    EXPECT_THAT(listed(cursor), ElementsAre("a/", "b/", "c/"));
}

TEST_F(LocalRecursiveListing, AFolderThatBecameALinkIsNotEntered) {
    makeFolder("outside");
    makeFile("outside/secret");
    makeFolder("tree");
    makeFolder("tree/victim");
    makeFile("tree/victim/inner");
    Cursor const cursor = names("tree");
    std::filesystem::remove_all(path("tree/victim"));
    makeLink("tree/victim", "../outside");

    EXPECT_THAT(listed(cursor), ElementsAre("victim/"));
}

TEST_F(LocalRecursiveListing, AFolderThatIsMovedAwayEndsWhatIsBelowItAndNothingElse) {
    std::string folder = "tree";
    makeFolder(folder);
    for (int level = 0; level < 40; ++level) {
        makeFolder(folder + "/b");
        makeFile(folder + "/b/file");
        makeFolder(folder + "/c");
        makeFile(folder + "/c/file");
        folder += "/a" + std::to_string(level); // before, between or behind the others
        makeFolder(folder);
    }
    std::string moved = "tree";
    for (int level = 0; level < 10; ++level) {
        moved += "/a" + std::to_string(level);
    }
    // The order of listing is not known, so the move happens at every tenth position in turn.
    std::size_t const all = treeOnDisk(path("tree")).size();
    Names above;
    for (std::string const& name : treeOnDisk(path("tree"))) {
        if (!("tree/" + name).starts_with(moved + "/")) {
            above.push_back(name);
        }
    }
    for (std::size_t when = 0; when <= all; when += 10) {
        Cursor cursor = names("tree");
        Names found;
        for (std::size_t i = 0; i < when; ++i) {
            cursor->advance();
            found.push_back(textOf(cursor->currentEntry()));
        }
        Cursor other = clone(cursor);
        ASSERT_EQ(::rename(path(moved).c_str(), path("elsewhere").c_str()), 0);
        Names rest;
        Names restOfOther;
        EXPECT_NO_THROW(rest = restOf(*cursor));
        EXPECT_NO_THROW(restOfOther = restOf(*other));
        ASSERT_EQ(::rename(path("elsewhere").c_str(), path(moved).c_str()), 0);

        for (Names const& tail : {rest, restOfOther}) {
            Names once = found;
            once.insert(once.end(), tail.begin(), tail.end());
            once = sorted(std::move(once));
            EXPECT_EQ(std::adjacent_find(once.begin(), once.end()), once.end());
            EXPECT_TRUE(std::includes(once.begin(), once.end(), above.begin(), above.end()))
                << when;
        }
    }
}

TEST_F(LocalRecursiveListing, AListedFolderThatIsRemovedIsNotFoundWhenMoreIsNeeded) {
    makeFolder("tree");
    for (int i = 0; i < 1000; ++i) {
        makeFile("tree/" + std::string(150, 'n') + std::to_string(i));
    }
    Cursor const cursor = names("tree");
    Cursor const other = clone(cursor);
    std::filesystem::remove_all(path("tree"));

    EXPECT_TRUE(isRefused([&] { restOf(*cursor); }, ErrorCode::ResourceNotFound, at("tree")));
    EXPECT_FALSE(cursor->hasNext());
    EXPECT_TRUE(isRefused([&] { restOf(*other); }, ErrorCode::ResourceNotFound, at("tree")));
    EXPECT_FALSE(other->hasNext());
}

/// Lists on behind failures; these stand in the order of the listing as "code location".
std::string withFailures(Cursor const& cursor, StorageIRI const& base) {
    Names found;
    for (;;) {
        auto const refusal = refusalOf([&] {
            while (cursor->hasNext()) {
                cursor->advance();
                found.push_back(textOf(cursor->currentEntry()));
            }
        });
        if (!refusal) {
            break;
        }
        found.push_back("!" + std::to_string(static_cast<int>(refusal->code)) + ":" +
                        fl::i18n::ustringToStorageName(refusal->location.makePathRelativeTo(base)));
    }
    std::string result;
    for (std::string const& name : sorted(found)) {
        result += name + ' ';
    }
    return result;
}

TEST_F(LocalRecursiveListing, AFolderThatFailsIsToldOnceAndTheListingGoesOnBehindIt) {
    makeFolder("tree");
    for (char const* name : {"a", "bad", "c"}) {
        makeFolder(std::string("tree/") + name);
        makeFile(std::string("tree/") + name + "/file");
        makeFolder(std::string("tree/") + name + "/folder");
    }
    for (int const call : {SYS_getdents64, SYS_openat}) {
        std::string const outcome = inChild([&] {
            std::string const bad = path("tree/bad");
            interceptCalls(call, 0, 0, [&](auto const* arguments) -> std::optional<long> {
                bool const isBad =
                    call == SYS_getdents64
                        ? folderOf(arguments[0]) == bad
                        : std::strcmp(reinterpret_cast<char const*>(arguments[1]), "bad") == 0;
                return isBad ? std::optional<long>(-EIO) : std::nullopt;
            });
            Cursor const cursor = names("tree");
            Cursor const other = clone(cursor);
            return withFailures(cursor, at("tree")) + "| " + withFailures(other, at("tree"));
        });
        std::string const expected = "!9:bad a/ a/file a/folder/ bad/ c/ c/file c/folder/ ";
        EXPECT_EQ(outcome, expected + "| " + expected);
    }
}

TEST_F(LocalRecursiveListing, TheEntryBeforeAFailureStaysReadable) {
    makeFolder("tree");
    for (char const* name : {"a", "b"}) {
        makeFolder(std::string("tree/") + name);
        makeFile(std::string("tree/") + name + "/file of " + name);
    }

    std::string const outcome = inChild([&] {
        std::string good; // the folder that is entered first
        interceptCalls(SYS_getdents64, 0, 0, [&](auto const* arguments) -> std::optional<long> {
            std::string const folder = folderOf(arguments[0]);
            if (folder == path("tree")) {
                return std::nullopt;
            }
            good = good.empty() ? folder : good;
            return folder == good ? std::nullopt : std::optional<long>(-EIO);
        });
        Cursor const cursor = names("tree", u"file*"); // goes from one to the other in one step
        cursor->advance();
        std::string const before = textOf(cursor->currentEntry());
        auto const refusal = refusalOf([&] { cursor->advance(); });
        return std::string(refusal ? "failed " : "did not fail ") +
               (textOf(cursor->currentEntry()) == before ? "the same " : "another ") +
               (cursor->hasNext() ? "more" : "end");
    });

    EXPECT_EQ(outcome, "failed the same end");
}

TEST_F(LocalRecursiveListing, AFailureInTheMiddleOfAFolderEndsThatFolder) {
    makeFolder("tree");
    makeFolder("tree/long");
    for (int i = 0; i < 1000; ++i) {
        makeFile("tree/long/" + std::string(150, 'n') + std::to_string(i));
    }
    makeFile("tree/after");
    makeFile("tree/before");

    std::string const outcome = inChild([&] {
        std::string const bad = path("tree/long");
        int calls = 0;
        interceptCalls(SYS_getdents64, 0, 0, [&](auto const* arguments) -> std::optional<long> {
            return folderOf(arguments[0]) == bad && calls++ >= 2 ? std::optional<long>(-EIO)
                                                                 : std::nullopt;
        });
        std::string const found = withFailures(names("tree"), at("tree"));
        std::size_t const inside =
            static_cast<std::size_t>(std::count(found.begin(), found.end(), ' ') - 4);
        return (inside > 100 && inside < 900 ? "some " : std::to_string(inside) + " ") +
               found.substr(0, found.find("long/n"));
    });

    EXPECT_EQ(outcome, "some !9:long after before long/ ");
}

TEST_F(LocalRecursiveListing, TwoDescriptorsAreEnough) {
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
        Cursor const cursor = names("tree");
        int const next = ::open("/", O_PATH | O_CLOEXEC);
        ::close(next);
        rlimit const one{static_cast<rlim_t>(next) + 1, 64};
        ::setrlimit(RLIMIT_NOFILE, &one);
        return std::string(listed(cursor) == expected ? "all" : "not all");
    });

    EXPECT_EQ(outcome, "all");
}

TEST_F(LocalRecursiveListing, LinksAreNotEntered) {
    makeFolder("tree");
    makeFolder("tree/folder");
    makeFile("tree/folder/file");
    makeLink("tree/to folder", "folder");
    makeLink("tree/folder/up", "..");

    EXPECT_THAT(listed(names("tree")),
                ElementsAre("folder/", "folder/file", "folder/up", "to folder"));
}

TEST_F(LocalRecursiveListingWithLinksFollowed, LinksAreEnteredUnlessTheyLeadUp) {
    makeFolder("tree");
    makeFolder("tree/a");
    makeFolder("tree/b");
    makeFile("tree/b/file");
    makeLink("tree/a/to b", "../b");
    makeLink("tree/a/up", "..");
    makeLink("tree/a/self", ".");
    makeLink("tree/b/to a", "../a");
    makeLink("tree/dangling", "missing");
    makeLink("tree/circle", "circle");

    Names const expected{"a/",           "a/self/",    "a/to b/", "a/to b/file", "a/to b/to a/",
                         "a/up/",        "b/",         "b/file",  "b/to a/",     "b/to a/self/",
                         "b/to a/to b/", "b/to a/up/", "circle",  "dangling"};
    EXPECT_EQ(listed(names("tree")), expected);
    EXPECT_EQ(listed(entries("tree")), expected);
}

TEST_F(LocalRecursiveListingWithLinksFollowed, AWalkGoesBackUpTheWayItCame) {
    // Behind a link `..` is another folder than the one that the walk came from.
    makeFolder("outside");
    std::string folder = "tree";
    makeFolder(folder);
    for (int level = 0; level < 30; ++level) {
        std::string const target = "outside/" + std::to_string(level);
        makeFolder(target);
        makeFile(target + "/file");
        makeFolder(folder + "/b");
        makeLink(folder + "/a" + std::to_string(level), path(target)); // before or behind `b`
        folder = target;
    }
    Cursor const cursor = names("tree");
    Names const order = restOf(*cursor);

    EXPECT_EQ(order.size(), 3U * 30U);
    EXPECT_TRUE(isDepthFirst(order));
    Cursor const again = names("tree");
    for (std::size_t i = 0; i < order.size(); ++i) {
        again->advance();
        EXPECT_EQ(restOf(*clone(again)),
                  Names(order.begin() + static_cast<std::ptrdiff_t>(i) + 1, order.end()));
    }
}

TEST_F(LocalRecursiveListing, AProcessThatEndsWhileItIsListedIsNoFailure) {
    std::string const outcome = inChild([] {
        pid_t const process = ::fork();
        if (process == 0) {
            ::pause();
            ::_exit(0);
        }
        std::string const folder = "/proc/" + std::to_string(process);
        bool ended = false;
        interceptCalls(SYS_getdents64, 0, 0, [&](auto const* arguments) -> std::optional<long> {
            // Once open, this folder of a process that has ended answers EINVAL.
            if (!ended && folderOf(arguments[0]) == folder + "/net") {
                ::kill(process, SIGKILL);
                ::waitpid(process, nullptr, 0);
                ended = true;
            }
            return std::nullopt;
        });
        auto const provider = buildLocalProvider();
        Names const found = restOf(*provider->listAllRecursive(fromLocalPath(folder), u""));
        return std::string(ended ? "ended " : "did not end ") +
               (std::count(found.begin(), found.end(), "net/") == 1 ? "listed" : "not listed");
    });

    EXPECT_EQ(outcome, "ended listed");
}

TEST_F(LocalRecursiveListing, AnInvalidArgumentElsewhereIsAFailure) {
    makeFolder("tree");
    makeFolder("tree/bad");

    std::string const outcome = inChild([&] {
        interceptCalls(SYS_getdents64, 0, 0, [&](auto const* arguments) -> std::optional<long> {
            return folderOf(arguments[0]) == path("tree/bad") ? std::optional<long>(-EINVAL)
                                                              : std::nullopt;
        });
        return withFailures(names("tree"), at("tree"));
    });

    EXPECT_EQ(outcome, "!1:bad bad/ ");
}

TEST_F(LocalRecursiveListing, AllProcessesAreListedWithoutAFailure) {
    std::string const outcome = inChild([] {
        pid_t const maker = ::fork();
        if (maker == 0) { // of processes that end at once
            for (;;) {
                pid_t const brief = ::fork();
                if (brief == 0) {
                    ::_exit(0);
                }
                ::waitpid(brief, nullptr, 0);
            }
        }
        auto const provider = buildLocalProvider();
        std::size_t entries = 0;
        for (int round = 0; round < 3; ++round) {
            Cursor const cursor =
                round == 0 ? provider->listAllRecursive(fromLocalPath("/proc"), u"")
                           : provider->listAllRecursiveNamesOnly(fromLocalPath("/proc"), u"");
            for (int i = 0; i < 200'000 && cursor->hasNext(); ++i) {
                cursor->advance();
                ++entries;
            }
        }
        ::kill(maker, SIGKILL);
        ::waitpid(maker, nullptr, 0);
        return std::string(entries > 1000 ? "listed" : "too few");
    });

    EXPECT_EQ(outcome, "listed");
}

} // namespace
} // namespace foundation::storage::provider::local::test
