#include <foundation/storage/vfs/listing/file_or_folder_entry.hpp>
#include <foundation/storage/vfs/listing/list_entry.hpp>

#include "fake_cursor.hpp"

#include <gtest/gtest.h>

#include <concepts>
#include <latch>
#include <thread>
#include <type_traits>

namespace {

using namespace vfs_test;
using vfs::AbsoluteIRI;
using vfs::ErrorCode;
using vfs::File;
using vfs::FileEntry;
using vfs::FileOrFolder;
using vfs::FileOrFolderEntry;
using vfs::Folder;
using vfs::FolderEntry;
using vfs::ListEntry;
using vfs::ustring;
using Log = std::vector<std::string>;

template<class T>
concept Comparable = requires(T const& a) {
    a == a;
}
|| requires(T const& a) {
    a < a;
};

static_assert(!std::is_default_constructible_v<FileEntry>);
static_assert(!std::is_default_constructible_v<FolderEntry>);
static_assert(!std::is_default_constructible_v<ListEntry>);
static_assert(!Comparable<FileEntry> && !Comparable<FolderEntry> && Comparable<ListEntry>);
static_assert(sizeof(FileEntry) == sizeof(std::shared_ptr<int>));
static_assert(sizeof(FolderEntry) == sizeof(std::shared_ptr<int>));
static_assert(sizeof(ListEntry) == sizeof(std::shared_ptr<int>));
static_assert(std::same_as<FileOrFolderEntry, boost::variant<FileEntry, FolderEntry>>);
static_assert(std::same_as<FileOrFolder, boost::variant<File, Folder>>);
static_assert(
    std::same_as<decltype(std::declval<FileEntry const&>().getName()), ustring const&> &&
    std::same_as<decltype(std::declval<FileEntry const&>().getFile()), File const&> &&
    std::same_as<decltype(std::declval<FileEntry const&>().getAttributes()),
                 provider::FileAttributes const&> &&
    std::same_as<decltype(std::declval<FolderEntry const&>().getFolder()), Folder const&> &&
    std::same_as<decltype(std::declval<FolderEntry const&>().getAttributes()),
                 provider::FolderAttributes const&> &&
    std::same_as<decltype(std::declval<ListEntry const&>().getName()), ustring const&> &&
    std::same_as<decltype(std::declval<ListEntry const&>().getFilename()), ustring>);

/// What the two entries that know their kind have in common, each by its own names.
template<class E>
struct Kind;

template<>
struct Kind<FileEntry> {
    using Handle = File;
    using Attributes = provider::FileAttributes;
    static constexpr char const* fetch = "getFileAttributes";
    static File const& handle(FileEntry const& entry) { return entry.getFile(); }
    static void answer(FakeProvider& fake, std::function<Attributes(StorageIRI const&)> with) {
        fake.onGetFileAttributes = std::move(with);
    }
};

template<>
struct Kind<FolderEntry> {
    using Handle = Folder;
    using Attributes = provider::FolderAttributes;
    static constexpr char const* fetch = "getFolderAttributes";
    static Folder const& handle(FolderEntry const& entry) { return entry.getFolder(); }
    static void answer(FakeProvider& fake, std::function<Attributes(StorageIRI const&)> with) {
        fake.onGetFolderAttributes = std::move(with);
    }
};

template<class E>
class Entry : public testing::Test {
  protected:
    using K = Kind<E>;
    using Handle = typename K::Handle;
    using Attributes = typename K::Attributes;

    Folder parent() const { return Folder(AbsoluteIRI(u"mem:/f"), storage.reference); }
    /// The handles and items that keep the provider alive, beside the test's own two.
    long holders() const { return storage.fake.use_count() - 2; }
    void answerWithSize(std::uint64_t size) {
        K::answer(*storage.fake, [size](StorageIRI const&) { return Attributes(values(size)); });
    }

    FakeStorage storage;
};

struct EntryName {
    template<class E>
    static std::string GetName(int) {
        return std::is_same_v<E, FileEntry> ? "File" : "Folder";
    }
};
using BothKinds = testing::Types<FileEntry, FolderEntry>;
TYPED_TEST_SUITE(Entry, BothKinds, EntryName);

TYPED_TEST(Entry, IsMadeWithoutAskingAnything) {
    TypeParam const entry(this->parent(), u"x");
    EXPECT_EQ(entry.getName(), u"x");
    EXPECT_TRUE(this->storage.fake->calls().empty());
    EXPECT_EQ(TestFixture::K::handle(entry).getLocation(), AbsoluteIRI(u"mem:/f/x"));
    EXPECT_TRUE(TestFixture::K::handle(entry).getStorageSystem() == this->storage.reference);
    EXPECT_TRUE(this->storage.fake->calls().empty()) << "a handle asks nothing either";
}

TYPED_TEST(Entry, KeepsTheNameAsTheListingGaveIt) {
    TypeParam const entry(this->parent(), u"a/b//c%20d");
    EXPECT_EQ(entry.getName(), u"a/b//c%20d");
    EXPECT_EQ(TestFixture::K::handle(entry).getName(), u"c%20d");
}

TYPED_TEST(Entry, OfAHandleIsThatItemItselfAndItsName) {
    typename TestFixture::Handle const handle(AbsoluteIRI(u"mem:/f/%61b"), this->storage.reference);
    TypeParam const entry(handle);
    EXPECT_EQ(entry.getName(), u"ab");
    EXPECT_EQ(TestFixture::K::handle(entry).getLocation().toString(), u"mem:/f/%61b");
    this->answerWithSize(7);
    EXPECT_EQ(entry.getAttributes().values().size, 7U);
    EXPECT_EQ(this->storage.fake->log(), Log{TestFixture::K::fetch + std::string(" mem:/f/%61b")});
}

TYPED_TEST(Entry, AnswersDeliveredAttributesWithoutTheProvider) {
    TypeParam const entry(this->parent(), u"x", typename TestFixture::Attributes(values(5)));
    EXPECT_EQ(entry.getName(), u"x");
    EXPECT_EQ(entry.getAttributes().values().size, 5U);
    EXPECT_EQ(TestFixture::K::handle(entry).getLocation(), AbsoluteIRI(u"mem:/f/x"))
        << "which need not exist for it";
    EXPECT_TRUE(this->storage.fake->calls().empty());
}

TYPED_TEST(Entry, FetchesMissingAttributesOnceForAllCopies) {
    this->answerWithSize(9);
    TypeParam const entry(this->parent(), u"x");
    TypeParam const copy = entry; // NOLINT(performance-unnecessary-copy-initialization)
    EXPECT_EQ(copy.getAttributes().values().size, 9U);
    EXPECT_EQ(&entry.getAttributes(), &copy.getAttributes());
    EXPECT_EQ(this->storage.fake->log(), Log{TestFixture::K::fetch + std::string(" mem:/f/x")});
}

TYPED_TEST(Entry, CopiesShareTheHandleWhicheverAsksFirst) {
    TypeParam const entry(this->parent(), u"x");
    TypeParam const copy = entry; // NOLINT(performance-unnecessary-copy-initialization)
    EXPECT_EQ(&TestFixture::K::handle(copy), &TestFixture::K::handle(entry));
    EXPECT_EQ(&copy.getName(), &entry.getName());
}

TYPED_TEST(Entry, ReferencesLiveAsLongAsAnyCopy) {
    this->answerWithSize(3);
    auto first = std::make_unique<TypeParam>(this->parent(), u"x");
    TypeParam const copy = *first;
    ustring const& name = first->getName();
    auto const& handle = TestFixture::K::handle(*first);
    auto const& attributes = first->getAttributes();
    first.reset();
    EXPECT_EQ(name, u"x");
    EXPECT_EQ(handle.getName(), u"x");
    EXPECT_EQ(attributes.values().size, 3U);
}

TYPED_TEST(Entry, AssignmentTakesOverWhatTheOtherShares) {
    TypeParam const entry(this->parent(), u"x");
    TypeParam assigned(this->parent(), u"y");
    assigned = entry;
    EXPECT_EQ(&TestFixture::K::handle(assigned), &TestFixture::K::handle(entry));
}

TYPED_TEST(Entry, FailedAttributesAreReportedAndAskedForAgain) {
    TestFixture::K::answer(*this->storage.fake,
                           [](StorageIRI const& l) ->
                           typename TestFixture::Attributes { fail(4, l); });
    TypeParam const entry(this->parent(), u"x");
    EXPECT_EQ(codeOf([&] { entry.getAttributes(); }), ErrorCode::ResourceNotFound);
    EXPECT_EQ(codeOf([&] { entry.getAttributes(); }), ErrorCode::ResourceNotFound);
    EXPECT_EQ(this->storage.fake->calls().size(), 2U) << "a failure is not kept";
    this->answerWithSize(1);
    EXPECT_EQ(entry.getAttributes().values().size, 1U);
    EXPECT_EQ(entry.getAttributes().values().size, 1U);
    EXPECT_EQ(this->storage.fake->calls().size(), 3U);
}

TYPED_TEST(Entry, HandleMadeForAttributesThatFailIsKept) {
    Folder const parent = this->parent();
    TypeParam const entry(parent, u"x");
    long const before = this->holders();
    EXPECT_EQ(codeOf([&] { entry.getAttributes(); }), ErrorCode::UnsupportedOperation);
    EXPECT_EQ(this->holders(), before + 1);
    EXPECT_EQ(TestFixture::K::handle(entry).getName(), u"x");
    EXPECT_EQ(this->holders(), before + 1);
}

TYPED_TEST(Entry, LetsGoOfTheFolderWhenTheHandleHasBeenMade) {
    TypeParam const entry(this->parent(), u"x");
    EXPECT_EQ(this->holders(), 1) << "the folder, which nobody else has";
    (void)TestFixture::K::handle(entry);
    EXPECT_EQ(this->holders(), 1) << "the handle, in its place";
}

TYPED_TEST(Entry, FailureToMakeTheHandleComesOutAsItIsEachTime) {
    TypeParam const entry(this->parent(), u"");
    EXPECT_EQ(entry.getName(), u"");
    for (int attempt = 0; attempt < 2; ++attempt) {
        EXPECT_THROW((void)TestFixture::K::handle(entry), provider::Exception);
        EXPECT_THROW(entry.getAttributes(), provider::Exception);
    }
    EXPECT_EQ(this->holders(), 1) << "the folder stays for the next attempt";
}

TYPED_TEST(Entry, HandleAndAttributesAreMadeOnceUnderManyThreads) {
    constexpr std::size_t threads = 64;
    this->answerWithSize(2);
    TypeParam const entry(this->parent(), u"x");
    std::latch start(threads);
    std::vector<void const*> seen(2 * threads);
    {
        std::vector<std::jthread> pool;
        for (std::size_t i = 0; i < threads; ++i) {
            pool.emplace_back([&, i, copy = entry] {
                start.arrive_and_wait();
                // Both orders: attributes need the handle, and a handle may be asked for alone.
                if (i % 2 == 0) {
                    seen[2 * i + 1] = &copy.getAttributes();
                }
                seen[2 * i] = &TestFixture::K::handle(copy);
                seen[2 * i + 1] = &copy.getAttributes();
            });
        }
    }
    for (std::size_t i = 0; i < threads; ++i) {
        EXPECT_EQ(seen[2 * i], &TestFixture::K::handle(entry));
        EXPECT_EQ(seen[2 * i + 1], &entry.getAttributes());
    }
    EXPECT_EQ(this->storage.fake->calls(), Log{TestFixture::K::fetch});
}

class FileOrFolderEntryTest : public testing::Test {
  protected:
    Folder parent() const { return Folder(AbsoluteIRI(u"mem:/f"), storage.reference); }

    FakeStorage storage;
};

TEST_F(FileOrFolderEntryTest, HoldsAFileFirst) {
    EXPECT_EQ(FileOrFolderEntry(FileEntry(parent(), u"x")).which(), 0);
    EXPECT_EQ(FileOrFolderEntry(FolderEntry(parent(), u"x")).which(), 1);
}

TEST_F(FileOrFolderEntryTest, NameMakesNoHandle) {
    Folder const kept = parent();
    for (FileOrFolderEntry const& entry : {FileOrFolderEntry(FileEntry(kept, u"a/x")),
                                           FileOrFolderEntry(FolderEntry(kept, u"a/x"))}) {
        long const before = storage.fake.use_count();
        EXPECT_EQ(getName(entry), u"a/x");
        EXPECT_EQ(storage.fake.use_count(), before);
        EXPECT_EQ(getLocation(entry), AbsoluteIRI(u"mem:/f/a/x"));
        EXPECT_EQ(storage.fake.use_count(), before + 1) << "a location does";
    }
    EXPECT_TRUE(storage.fake->calls().empty());
}

TEST_F(FileOrFolderEntryTest, LocationsAreThoseOfTheHandle) {
    storage.fake->onGetCanonicalLocation = [](StorageIRI const& l) {
        return StorageIRI(l, u"canonical");
    };
    FileOrFolderEntry const file = FileEntry(parent(), u"x");
    FileOrFolderEntry const folder = FolderEntry(parent(), u"y");
    EXPECT_EQ(getCanonicalLocation(file), AbsoluteIRI(u"mem:/f/x/canonical"));
    EXPECT_EQ(getCanonicalLocation(folder), AbsoluteIRI(u"mem:/f/y/canonical"));
    EXPECT_EQ(getLocation(folder), AbsoluteIRI(u"mem:/f/y"));
}

TEST_F(FileOrFolderEntryTest, FailuresAreThoseOfTheHandle) {
    storage.fake->onGetCanonicalLocation = [](StorageIRI const& l) -> StorageIRI { fail(2, l); };
    FileOrFolderEntry const file = FileEntry(parent(), u"x");
    FileOrFolderEntry const unnamed = FolderEntry(parent(), u"");
    EXPECT_EQ(codeOf([&] { getCanonicalLocation(file); }), ErrorCode::PermissionDenied);
    EXPECT_THROW(getLocation(unnamed), provider::Exception);
    EXPECT_EQ(getName(unnamed), u"");
}

class ListEntryTest : public testing::Test {
  protected:
    Folder at(char16_t const* text) const { return Folder(AbsoluteIRI(text), storage.reference); }
    ListEntry entry(char16_t const* name) const { return ListEntry(at(u"mem:/f"), name); }
    void answerExists(std::uint32_t number) {
        storage.fake->onExists = [number](StorageIRI const&) {
            return static_cast<provider::ExistsResult>(number);
        };
    }

    FakeStorage storage;
};

TEST_F(ListEntryTest, FilenameIsWhatStandsBehindTheLastSlash) {
    struct Row {
        char16_t const* name;
        char16_t const* filename;
    };
    Row const rows[] = {{u"a/b/c.txt", u"c.txt"},
                        {u"c.txt", u"c.txt"},
                        {u"/", u"/"},
                        {u"a/", u""},
                        {u"//", u""},
                        {u"/a", u"a"},
                        {u"", u""},
                        {u"a", u"a"},
                        {u"a//b", u"b"}};
    for (Row const& row : rows) {
        EXPECT_EQ(entry(row.name).getName(), row.name);
        EXPECT_EQ(entry(row.name).getFilename(), row.filename) << fl::i18n::to_string(row.name);
    }
    EXPECT_TRUE(storage.fake->calls().empty());
}

TEST_F(ListEntryTest, LocationIsTheNameBelowTheFolder) {
    EXPECT_EQ(entry(u"x").getLocation(), AbsoluteIRI(u"mem:/f/x"));
    EXPECT_EQ(entry(u"a/b c").getLocation(), AbsoluteIRI(u"mem:/f/a/b c"));
    EXPECT_EQ(entry(u"/x").getLocation(), AbsoluteIRI(u"mem:/x"));
    EXPECT_TRUE(storage.fake->calls().empty()) << "the storage is not asked";
    EXPECT_EQ(storage.system->built, 3) << "nor the system, beyond the folder itself";
}

TEST_F(ListEntryTest, EveryAnswerButFileAndNothingIsTakenForAFolder) {
    struct Row {
        std::uint32_t answer;
        bool folder;
    };
    for (Row const row : {Row{0, false}, Row{1, true}, Row{2, false}, Row{3, true}, Row{4, true},
                          Row{6, true}, Row{0x80000000, true}, Row{0xFFFFFFFF, true}}) {
        answerExists(row.answer);
        FileOrFolder const found = entry(u"x").getFileOrFolder();
        EXPECT_EQ(found.which(), row.folder ? 1 : 0) << row.answer;
        EXPECT_EQ(getLocation(found), AbsoluteIRI(u"mem:/f/x")) << row.answer;
        EXPECT_TRUE(getStorageSystem(found) == storage.reference) << row.answer;
    }
}

TEST_F(ListEntryTest, VanishedChildIsAFileWhetherNothingIsAnsweredOrThrown) {
    answerExists(2);
    EXPECT_EQ(entry(u"x").getFileOrFolder().which(), 0);
    storage.fake->onExists = [](StorageIRI const& l) -> provider::ExistsResult { fail(4, l); };
    FileOrFolder const gone = entry(u"x").getFileOrFolder();
    EXPECT_EQ(gone.which(), 0);
    storage.fake->onGetFileAttributes = [](StorageIRI const& l) -> provider::FileAttributes {
        fail(4, l);
    };
    EXPECT_EQ(codeOf([&] { isWritable(gone); }), ErrorCode::ResourceNotFound)
        << "the absence shows at the next operation";
}

TEST_F(ListEntryTest, AsksOnEveryCallAndMayAnswerDifferently) {
    ListEntry const asked = entry(u"x");
    answerExists(1);
    EXPECT_EQ(asked.getFileOrFolder().which(), 1);
    answerExists(0);
    EXPECT_EQ(asked.getFileOrFolder().which(), 0);
    EXPECT_EQ(storage.fake->log(), (Log{"exists mem:/f/x", "exists mem:/f/x"}));
}

TEST_F(ListEntryTest, FailureToAskIsTranslated) {
    storage.fake->onExists = [](StorageIRI const& l) -> provider::ExistsResult { fail(2, l); };
    EXPECT_EQ(codeOf([&] { entry(u"x").getFileOrFolder(); }), ErrorCode::PermissionDenied);
}

TEST_F(ListEntryTest, NeedsTheStorageSystemForTheKindAlone) {
    ListEntry const left = entry(u"x");
    storage.system.reset();
    EXPECT_EQ(left.getLocation(), AbsoluteIRI(u"mem:/f/x"));
    EXPECT_THROW(left.getFileOrFolder(), std::runtime_error);
}

TEST_F(ListEntryTest, ComparesLocationsAndNeverNames) {
    FakeStorage other;
    ListEntry const elsewhere(Folder(AbsoluteIRI(u"mem:/%66/"), other.reference), u"x");
    EXPECT_TRUE(entry(u"x") == elsewhere) << "another folder object and another system";
    EXPECT_TRUE(entry(u"a/x") == ListEntry(at(u"mem:/f/a"), u"x")) << "names differ";
    EXPECT_FALSE(entry(u"x") == ListEntry(at(u"mem:/g"), u"x")) << "names are the same";
    EXPECT_TRUE(ListEntry(at(u"mem:/a"), u"z") < ListEntry(at(u"mem:/b"), u"a"));
    EXPECT_FALSE(ListEntry(at(u"mem:/b"), u"a") < ListEntry(at(u"mem:/a"), u"z"));
    EXPECT_FALSE(entry(u"x") < entry(u"x"));
    EXPECT_TRUE(storage.fake->calls().empty());
}

TEST_F(ListEntryTest, LocationsThatCannotBeMadeFailTheComparison) {
    ListEntry const climbing = entry(u"../x");
    EXPECT_THROW((void)climbing.getLocation(), provider::Exception);
    EXPECT_THROW((void)(climbing == entry(u"x")), provider::Exception);
    EXPECT_THROW((void)(entry(u"x") < climbing), provider::Exception);
    EXPECT_EQ(climbing.getFilename(), u"x");

    ListEntry const pathless(
        Folder(provider::StorageItem(storage.fake, StorageIRI(u"mem://h")), storage.reference),
        u"x");
    EXPECT_THROW((void)pathless.getLocation(), vfs::InvalidIRIException);
}

TEST_F(ListEntryTest, IsReadByManyThreads) {
    answerExists(1);
    ListEntry const shared = entry(u"a/x");
    std::latch start(8);
    std::vector<std::jthread> pool;
    for (int i = 0; i < 8; ++i) {
        pool.emplace_back([&start, &shared] {
            start.arrive_and_wait();
            EXPECT_EQ(shared.getFilename(), u"x");
            EXPECT_EQ(shared.getFileOrFolder().which(), 1);
            EXPECT_TRUE(shared == shared);
        });
    }
}

} // namespace
