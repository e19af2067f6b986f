// Whole trees copied, moved and removed on real storages and between them.

#include <foundation/storage/conformance/decorate.hpp>
#include <foundation/storage/conformance/fault_injector.hpp>
#include <foundation/storage/conformance/feature_hider.hpp>
#include <foundation/storage/provider/extensions/i_links.hpp>
#include <foundation/storage/vfs/listing/entries.hpp>
#include <foundation/storage/vfs/listing/folder_listing.hpp>
#include <foundation/storage/vfs/resources/file.hpp>
#include <foundation/storage/vfs/streams/file_streams.hpp>
#include <foundation/storage/vfs/walking/folder_visitor.hpp>
#include <foundation/storage/vfs/walking/walk_folder.hpp>

#include "integration/listing/odd_tree.hpp"
#include "unit/vfs/fake_provider.hpp"

#include <gtest/gtest.h>

#include <iterator>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <ostream>
#include <set>
#include <string>
#include <vector>

namespace {

namespace provider = foundation::storage::provider;
namespace vfs = foundation::storage::vfs;
using foundation::storage::conformance::decorate;
using foundation::storage::conformance::FaultInjector;
using foundation::storage::conformance::FeatureHider;
using listing_test::Place;
using provider::ReplacementPolicy;
using provider::StorageIRI;
using vfs::ErrorCode;
using vfs::File;
using vfs::Folder;
using vfs::FolderRemovalPolicy;
using vfs::FolderVisitResult;
using vfs::ustring;
using vfs_test::codeOf;
using vfs_test::OneProviderSystem;

/// A storage of which the system does the work on trees, or, with its features, the storage.
class Storage {
  public:
    explicit Storage(std::unique_ptr<Place> made, bool features)
        : place_(std::move(made)),
          served_(features ? place_->storage : decorate<FeatureHider>(place_->storage)),
          faulty_(decorate<FaultInjector>(served_)),
          system_(std::make_shared<OneProviderSystem>(faulty_)) {}

    Place const& place() const { return *place_; }
    FaultInjector& faults() const { return *faulty_; }
    provider::extensions::ILinks& links() const {
        return dynamic_cast<provider::extensions::ILinks&>(*place_->storage);
    }
    Folder at(StorageIRI const& location) const {
        return Folder(vfs::AbsoluteIRI(location, true),
                      vfs::StorageSystemReference(std::weak_ptr<vfs::StorageSystem>(system_)));
    }
    Folder root() const { return at(place_->root); }
    Folder folder(char16_t const* name) const { return Folder(root(), name); }

    static void write(Folder const& in, char16_t const* name, std::string const& text) {
        vfs::ofstream out(File(in, name));
        out << text;
        out.close();
    }

  private:
    std::unique_ptr<Place> place_;
    std::shared_ptr<provider::IProvider> served_;
    std::shared_ptr<FaultInjector> faulty_;
    std::shared_ptr<OneProviderSystem> system_;
};

std::string contentOf(File const& file) {
    vfs::ifstream in(file);
    return {std::istreambuf_iterator<char>(in), {}};
}

/// What is below a folder by its path there: "/" for a folder, "-> target" for a link, otherwise
/// the content.
std::map<ustring, std::string> treeIn(Storage const& storage, Folder const& root) {
    std::map<ustring, std::string> found;
    StorageIRI const base = root.getLocation().toStorageIRI();
    for (vfs::FileOrFolderEntry const& entry : root.listAllEntriesRecursive()) {
        StorageIRI const at = getLocation(entry).toStorageIRI();
        std::string what = "/";
        if (auto const* file = boost::get<vfs::FileEntry>(&entry)) {
            auto const kind = storage.place().storage->existsExtended(at);
            what = kind == provider::ExtendedExistsResult::File
                       ? contentOf(file->getFile())
                       : "-> " + fl::i18n::toDisplayString(storage.links().readLink(at));
        }
        found.emplace(at.makePathRelativeTo(base), what);
    }
    return found;
}

struct Journey {
    char const* name;
    std::unique_ptr<Place> (*from)();
    std::unique_ptr<Place> (*to)();
    bool features;
};
void PrintTo(Journey const& journey, std::ostream* out) {
    *out << journey.name;
}

Folder makeSource(Storage const& storage) {
    Folder const made = storage.folder(u"source");
    made.createFolder();
    Storage::write(made, u"a", "first");
    Folder const inner(made, u"inner");
    inner.createFolder();
    Storage::write(inner, u"b", std::string(300'000, 'b'));
    Folder(inner, u"empty").createFolder();
    Storage::write(made, u"z", "");
    return made;
}

class Trees : public testing::TestWithParam<Journey> {
  protected:
    Storage const from{GetParam().from(), GetParam().features};
    // One storage where both are of one kind: a location means one thing.
    std::optional<Storage> other;
    Storage const& to = GetParam().from == GetParam().to
                            ? from
                            : other.emplace(GetParam().to(), GetParam().features);
    Folder const source = makeSource(from);
    std::map<ustring, std::string> const content = treeIn(from, source);
};

INSTANTIATE_TEST_SUITE_P(
    , Trees,
    testing::Values(
        Journey{"DiskToDisk", &listing_test::onDisk, &listing_test::onDisk, true},
        Journey{"DiskToMemory", &listing_test::onDisk, &listing_test::inMemory, true},
        Journey{"MemoryToDisk", &listing_test::inMemory, &listing_test::onDisk, true},
        Journey{"MemoryToMemory", &listing_test::inMemory, &listing_test::inMemory, true},
        Journey{"DiskToDiskBySystem", &listing_test::onDisk, &listing_test::onDisk, false},
        Journey{"MemoryToDiskBySystem", &listing_test::inMemory, &listing_test::onDisk, false},
        Journey{"DiskToMemoryBySystem", &listing_test::onDisk, &listing_test::inMemory, false}),
    [](auto const& given) { return given.param.name; });

TEST_P(Trees, AreCopiedWhole) {
    ASSERT_EQ(content.size(), 5U);
    source.copyFolder(to.folder(u"copy"), ReplacementPolicy::FailIfExists);
    EXPECT_EQ(treeIn(to, to.folder(u"copy")), content);
    EXPECT_EQ(treeIn(from, source), content);
}

TEST_P(Trees, AreCopiedIntoAFolderUnderTheirName) {
    to.folder(u"into").createFolder();
    source.copyFolderInto(to.folder(u"into"), ReplacementPolicy::FailIfExists);
    EXPECT_EQ(treeIn(to, Folder(to.folder(u"into"), u"source")), content);
}

TEST_P(Trees, WithOddNamesAndLinksAreCopiedWhole) {
    from.folder(u"odd").createFolder();
    Folder const odd = from.folder(u"odd");
    makeOddTree(Place(from.place().storage, odd.getLocation().toStorageIRI()));
    odd.copyFolder(to.folder(u"odd copy"), ReplacementPolicy::FailIfExists);
    auto const expected = treeIn(from, odd);
    EXPECT_GT(expected.size(), 100U);
    EXPECT_EQ(treeIn(to, to.folder(u"odd copy")), expected);
}

TEST_P(Trees, AreMovedWhole) {
    source.moveFolder(to.folder(u"moved"), ReplacementPolicy::FailIfExists);
    EXPECT_EQ(treeIn(to, to.folder(u"moved")), content);
    EXPECT_FALSE(source.folderExists());
}

TEST_P(Trees, AreRemovedWholeAndNothingThatALinkLeadsTo) {
    Folder const outside = from.folder(u"outside");
    outside.createFolder();
    Storage::write(outside, u"canary", "alive");
    from.links().createLink(File(source, u"to outside").getLocation().toStorageIRI(),
                            u"../outside");
    from.links().createLink(File(source, u"dangling").getLocation().toStorageIRI(), u"nowhere");
    from.links().createLink(File(source, u"loop").getLocation().toStorageIRI(), u".");
    source.removeFolder(FolderRemovalPolicy::Recursive);
    EXPECT_FALSE(source.folderExists());
    EXPECT_EQ(contentOf(File(outside, u"canary")), "alive");
    EXPECT_EQ(codeOf([&] { source.removeFolder(FolderRemovalPolicy::Recursive); }),
              ErrorCode::ResourceNotFound);
}

TEST_P(Trees, OntoAnExistingTreeDoWhatThePolicySays) {
    struct Row {
        ReplacementPolicy policy;
        bool merges;
        std::string a; // what the existing file holds behind the copy
    };
    Row const table[] = {{ReplacementPolicy::FailIfExists, false, "old"},
                         {ReplacementPolicy::ReplaceExisting, false, "old"},
                         {ReplacementPolicy::ReplaceReadOnly, true, "first"},
                         {ReplacementPolicy::ReplaceAndDeferDenied, true, "first"},
                         {ReplacementPolicy::KeepExisting, true, "old"}};
    for (Row const& row : table) {
        Folder const there = to.folder(u"there");
        there.createFolder();
        Storage::write(there, u"a", "old");
        Storage::write(there, u"own", "mine");
        auto const copy = [&] { source.copyFolder(there, row.policy); };
        auto expected = content;
        if (row.merges) {
            EXPECT_NO_THROW(copy());
        } else {
            EXPECT_EQ(codeOf(copy), row.policy == ReplacementPolicy::FailIfExists
                                        ? ErrorCode::ResourceAlreadyExists
                                        : ErrorCode::FolderNotEmpty);
            expected.clear();
        }
        expected[u"a"] = row.a;
        expected[u"own"] = "mine";
        EXPECT_EQ(treeIn(to, there), expected);
        there.removeFolder(FolderRemovalPolicy::Recursive);
    }
}

TEST_P(Trees, OntoAnEmptyFolderReplaceExistingMakesItAnew) {
    to.folder(u"there").createFolder();
    source.copyFolder(to.folder(u"there"), ReplacementPolicy::ReplaceExisting);
    EXPECT_EQ(treeIn(to, to.folder(u"there")), content);
}

TEST_P(Trees, ReadOnlyFileIsReplacedUnderOnePolicyAndReportedAtTheEndUnderAnother) {
    Folder const there = to.folder(u"there");
    there.createFolder();
    for (char16_t const* name : {u"a", u"z"}) {
        Storage::write(there, name, "old");
        File(there, name).setWritable(false);
    }
    auto const copy = [&](ReplacementPolicy policy) { source.copyFolder(there, policy); };
    EXPECT_EQ(codeOf([&] { copy(ReplacementPolicy::ReplaceAndDeferDenied); }),
              ErrorCode::PermissionDenied);
    auto expected = content;
    expected[u"a"] = "old";
    expected[u"z"] = "old";
    EXPECT_EQ(treeIn(to, there), expected) << "all others are copied";
    copy(ReplacementPolicy::ReplaceReadOnly);
    EXPECT_EQ(treeIn(to, there), content);
}

TEST_P(Trees, MoveMergesByCopyWhereThePolicyDoes) {
    Folder const there = to.folder(u"there");
    there.createFolder();
    Storage::write(there, u"own", "mine");
    EXPECT_TRUE(codeOf([&] { source.moveFolder(there, ReplacementPolicy::FailIfExists); }) ==
                ErrorCode::ResourceAlreadyExists);
    EXPECT_EQ(treeIn(from, source), content) << "nothing is lost";
    source.moveFolder(there, ReplacementPolicy::ReplaceReadOnly);
    auto expected = content;
    expected[u"own"] = "mine";
    EXPECT_EQ(treeIn(to, there), expected);
    EXPECT_FALSE(source.folderExists());
}

TEST_P(Trees, OntoThemselvesLoseNothing) {
    from.links().createLink(File(from.root(), u"link").getLocation().toStorageIRI(), u"source");
    ustring const base = from.root().getLocation().toString();
    ustring const slash = base.back() == u'/' ? u"" : u"/";
    std::vector<StorageIRI> const spellings{source.getLocation().toStorageIRI(),
                                            StorageIRI(base + slash + u"source/inner/../../source"),
                                            StorageIRI(base + slash + u"source/"),
                                            StorageIRI(base + slash + u"link")};
    for (StorageIRI const& spelling : spellings) {
        for (ReplacementPolicy const policy :
             {ReplacementPolicy::FailIfExists, ReplacementPolicy::ReplaceExisting,
              ReplacementPolicy::ReplaceReadOnly, ReplacementPolicy::ReplaceAndDeferDenied,
              ReplacementPolicy::KeepExisting}) {
            try {
                source.copyFolder(from.at(spelling), policy);
            } catch (vfs::Exception const&) {
                // Refused; under KeepExisting there is nothing to copy.
            }
            EXPECT_ANY_THROW(source.moveFolder(from.at(spelling), policy))
                << fl::i18n::toDisplayString(spelling.toString());
            ASSERT_EQ(treeIn(from, source), content)
                << fl::i18n::toDisplayString(spelling.toString()) << ' '
                << static_cast<std::uint32_t>(policy);
        }
    }
}

TEST_P(Trees, IntoThemselvesAreRefused) {
    for (char16_t const* name : {u"new", u"inner"}) {
        Folder const inside(source, name);
        EXPECT_EQ(codeOf([&] { source.copyFolder(inside, ReplacementPolicy::KeepExisting); }),
                  ErrorCode::InvalidLocation);
        EXPECT_ANY_THROW(source.moveFolder(inside, ReplacementPolicy::KeepExisting));
    }
    EXPECT_EQ(treeIn(from, source), content);
}

TEST_P(Trees, AreWalkedInParallelAsOneByOne) {
    from.folder(u"odd").createFolder();
    Folder const odd = from.folder(u"odd");
    makeOddTree(Place(from.place().storage, odd.getLocation().toStorageIRI()));
    struct Noting : vfs::FolderVisitor {
        FolderVisitResult visitEntryBefore(vfs::FolderEntry const& e) override {
            return note("before ", e.getFolder().getLocation());
        }
        FolderVisitResult visitEntry(vfs::FileEntry const& e) override {
            return note("file ", e.getFile().getLocation());
        }
        FolderVisitResult visitEntryAfter(vfs::FolderEntry const& e) override {
            return note("after ", e.getFolder().getLocation());
        }
        FolderVisitResult note(std::string const& call, vfs::AbsoluteIRI const& at) {
            std::lock_guard const lock(mutex);
            calls.insert(call + fl::i18n::toDisplayString(at.toString()));
            return FolderVisitResult::Continue;
        }
        std::mutex mutex;
        std::multiset<std::string> calls;
    };
    Noting serial;
    Noting parallel;
    EXPECT_EQ(vfs::walkFolder(odd, serial), FolderVisitResult::Continue);
    EXPECT_EQ(vfs::walkFolderParallel(odd, parallel), FolderVisitResult::Continue);
    EXPECT_GT(serial.calls.size(), 100U);
    EXPECT_EQ(parallel.calls, serial.calls);
}

TEST_P(Trees, CarryTheTimesOfTheirFoldersOverWithinOneScheme) {
    auto const time = provider::toPtime({981'173'106, 789'012'000});
    Folder(source, u"inner").setLastModified(time);
    source.copyFolder(to.folder(u"copy"), ReplacementPolicy::FailIfExists);
    bool const oneScheme = &from == &to;
    EXPECT_EQ(Folder(to.folder(u"copy"), u"inner").getAttributes().getLastModified() == time,
              oneScheme);
}

/// Calls `operation` with each call of the storages in turn failing, until none fails any more.
template<class Operation>
void failAtEveryCall(std::set<Storage const*> const& storages, Operation operation) {
    for (Storage const* failing : storages) {
        bool failed = true;
        for (std::uint64_t call = 1; failed; ++call) {
            ASSERT_LT(call, 1000U);
            std::uint64_t const before = failing->faults().countOfFaults();
            operation([&] { failing->faults().failAtAny(call, provider::ErrorCode::IOError); },
                      [&] {
                          failed = failing->faults().countOfFaults() != before;
                          failing->faults().clear();
                      },
                      call);
        }
    }
}

TEST_P(Trees, FailureAtEveryCallOfAMoveLosesNothing) {
    failAtEveryCall({&from, &to}, [&](auto fail, auto end, std::uint64_t call) {
        Folder const moved = to.folder(u"moved");
        fail();
        bool done = true;
        try {
            source.moveFolder(moved, ReplacementPolicy::ReplaceReadOnly);
        } catch (std::exception const&) {
            done = false;
        } catch (foundation::core::except::IException const&) {
            done = false;
        }
        end();
        // Either the source is whole, or the copy is.
        auto const there = moved.folderExists() ? treeIn(to, moved) : decltype(content)();
        bool const sourceIsWhole = source.folderExists() && treeIn(from, source) == content;
        EXPECT_TRUE(sourceIsWhole || there == content) << call;
        EXPECT_TRUE(!done || there == content) << call;
        if (moved.folderExists()) {
            moved.removeFolder(FolderRemovalPolicy::Recursive);
        }
        if (source.folderExists()) {
            source.removeFolder(FolderRemovalPolicy::Recursive);
        }
        makeSource(from);
    });
}

TEST_P(Trees, FailureAtEveryCallOfARemovalLeavesWhatASecondOneRemoves) {
    failAtEveryCall({&from}, [&](auto fail, auto end, std::uint64_t call) {
        fail();
        try {
            source.removeFolder(FolderRemovalPolicy::Recursive);
        } catch (vfs::Exception const& e) {
            EXPECT_EQ(e.getErrorCode(), ErrorCode::IOError) << call;
        }
        end();
        if (source.folderExists()) {
            source.removeFolder(FolderRemovalPolicy::Recursive);
        }
        EXPECT_FALSE(source.folderExists()) << call;
        makeSource(from);
    });
}

/// Each call of the storages in turn fails; what is there behind it is whole, and a second run
/// completes the copy.
TEST_P(Trees, FailureAtEveryCallLeavesWholeFilesAndTheSource) {
    failAtEveryCall({&from, &to}, [&](auto fail, auto end, std::uint64_t call) {
        Folder const copy = to.folder(u"copy");
        fail();
        try {
            source.copyFolder(copy, ReplacementPolicy::ReplaceReadOnly);
        } catch (vfs::Exception const& e) {
            EXPECT_EQ(e.getErrorCode(), ErrorCode::IOError) << call;
        } catch (provider::Exception const& e) {
            EXPECT_EQ(e.getErrorCode(), provider::ErrorCode::IOError) << call;
        }
        end();
        if (copy.folderExists()) {
            for (auto const& [path, what] : treeIn(to, copy)) {
                EXPECT_EQ(what, content.at(path)) << call;
            }
        }
        EXPECT_EQ(treeIn(from, source), content) << call;
        source.copyFolder(copy, ReplacementPolicy::ReplaceReadOnly);
        EXPECT_EQ(treeIn(to, copy), content) << call;
        copy.removeFolder(FolderRemovalPolicy::Recursive);
    });
}

// By the visitors alone: what the disk does by itself goes deeper, and is tested there.
class DeepTrees : public Trees {};
INSTANTIATE_TEST_SUITE_P(
    , DeepTrees,
    testing::Values(Journey{"OnDisk", &listing_test::onDisk, &listing_test::onDisk, false},
                    Journey{"InMemory", &listing_test::inMemory, &listing_test::inMemory, false}),
    [](auto const& given) { return given.param.name; });

TEST_P(DeepTrees, OfTwoThousandLevelsAreWalkedCopiedAndRemoved) {
    constexpr int levels = 2000;
    Folder deep = from.folder(u"d");
    Folder const top = deep;
    for (int level = 0; level < levels; ++level) {
        deep.createFolder();
        deep = Folder(deep, u"d");
    }
    struct Counting : vfs::FolderVisitor {
        FolderVisitResult visitEntryAfter(vfs::FolderEntry const&) override {
            ++folders;
            return FolderVisitResult::Continue;
        }
        int folders = 0;
    } counting;
    vfs::walkFolder(top, counting);
    EXPECT_EQ(counting.folders, levels);

    top.copyFolder(to.folder(u"copy"), ReplacementPolicy::FailIfExists);
    counting.folders = 0;
    vfs::walkFolder(to.folder(u"copy"), counting);
    EXPECT_EQ(counting.folders, levels);

    for (Folder const& folder : {top, to.folder(u"copy")}) {
        folder.removeFolder(FolderRemovalPolicy::Recursive);
        EXPECT_FALSE(folder.folderExists());
    }
}

} // namespace
