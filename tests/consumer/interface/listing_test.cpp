#include "storage_test.hpp"

#include <foundation/storage/vfs/listing/detail/folder_iterator_wildcards_impl.hpp>
#include <foundation/storage/vfs/listing/detail/folder_listing_iterator_impl.hpp>
#include <foundation/storage/vfs/listing/detail/recursive_folder_listing_iterator_impl.hpp>

#include <set>
#include <type_traits>

namespace {

using namespace consumer;
using vfs::AbsoluteIRI;
using vfs::File;
using vfs::FileEntry;
using vfs::FileOrFolder;
using vfs::FileOrFolderEntry;
using vfs::Folder;
using vfs::FolderEntry;
using vfs::FolderListing;
using vfs::FolderListingIterator;
using vfs::ListEntry;
using Names = std::set<vfs::ustring>;

vfs::ustring nameOf(FileOrFolder const& element) {
    return getName(element);
}
vfs::ustring nameOf(FileOrFolderEntry const& element) {
    return getName(element);
}
template<class Element>
vfs::ustring nameOf(Element const& element) {
    return element.getName();
}

template<class T>
Names namesIn(FolderListing<T> const& listing) {
    Names names;
    for (T const& element : listing) {
        names.insert(nameOf(element));
    }
    return names;
}

/// The folder mem:/d with the files a.txt and b, and the folder e with the file c.txt.
class Listing : public StorageTest {
  protected:
    Listing() {
        folder(u"mem:/d/e").createFolderRecursive();
        fileWith(u"mem:/d/a.txt", "abc");
        fileWith(u"mem:/d/b", "");
        fileWith(u"mem:/d/e/c.txt", "");
    }

    Folder const d = folder(u"mem:/d");
};

TEST_F(Listing, FileEntryIsMadeOfAFolderAFileOrWithItsAttributes) {
    FileEntry const byName(d, u"a.txt");
    EXPECT_EQ(byName.getName(), u"a.txt");
    EXPECT_EQ(byName.getFile(), file(u"mem:/d/a.txt"));
    EXPECT_EQ(byName.getAttributes().values().size, 3U);
    EXPECT_EQ(FileEntry(file(u"mem:/d/b")).getName(), u"b");
    provider::AttributeValues values;
    values.size = 77;
    FileEntry const with(d, u"none", provider::FileAttributes(values));
    EXPECT_EQ(with.getAttributes().values().size, 77U);
}

TEST_F(Listing, FolderEntryIsMadeOfItsFolderItselfOrWithItsAttributes) {
    FolderEntry const byName(d, u"e");
    EXPECT_EQ(byName.getName(), u"e");
    EXPECT_EQ(byName.getFolder(), folder(u"mem:/d/e"));
    EXPECT_TRUE(byName.getAttributes().isWritable());
    EXPECT_EQ(FolderEntry(d).getName(), u"d");
    provider::AttributeValues values;
    values.mode = 7;
    FolderEntry const with(d, u"none", provider::FolderAttributes(values));
    EXPECT_EQ(with.getAttributes().values().mode, 7U);
}

TEST_F(Listing, ListEntryAsksEachTime) {
    ListEntry const entry(d, u"e/c.txt");
    EXPECT_EQ(entry.getName(), u"e/c.txt");
    EXPECT_EQ(entry.getFilename(), u"c.txt");
    EXPECT_EQ(entry.getLocation(), AbsoluteIRI(u"mem:/d/e/c.txt"));
    EXPECT_EQ(entry.getFileOrFolder().which(), 0);
    EXPECT_EQ(ListEntry(d, u"e").getFileOrFolder().which(), 1);
    EXPECT_TRUE(entry == ListEntry(folder(u"mem:/d/e"), u"c.txt"));
    EXPECT_TRUE(ListEntry(d, u"a.txt") < entry);
}

TEST_F(Listing, FreeFunctionsServeBothEntries) {
    for (FileOrFolderEntry const& entry :
         {FileOrFolderEntry(FileEntry(d, u"b")), FileOrFolderEntry(FolderEntry(d, u"e"))}) {
        vfs::ustring const name = entry.which() == 0 ? u"b" : u"e";
        EXPECT_EQ(getName(entry), name);
        EXPECT_EQ(getLocation(entry).toString(), u"mem:/d/" + name);
        EXPECT_EQ(getCanonicalLocation(entry).toString(), u"mem:/d/" + name);
    }
}

TEST_F(Listing, FolderListsInEightWays) {
    EXPECT_EQ(namesIn(d.listFiles()), (Names{u"a.txt", u"b"}));
    EXPECT_EQ(namesIn(d.listFolders()), (Names{u"e"}));
    EXPECT_EQ(namesIn(d.listAll()), (Names{u"a.txt", u"b", u"e"}));
    EXPECT_EQ(namesIn(d.listFileEntries()), (Names{u"a.txt", u"b"}));
    EXPECT_EQ(namesIn(d.listFolderEntries()), (Names{u"e"}));
    EXPECT_EQ(namesIn(d.listAllEntries()), (Names{u"a.txt", u"b", u"e"}));
    EXPECT_EQ(namesIn(d.listAllRecursive()), (Names{u"a.txt", u"b", u"e", u"e/c.txt"}));
    EXPECT_EQ(namesIn(d.listAllEntriesRecursive()), (Names{u"a.txt", u"b", u"e", u"e/c.txt"}));
}

TEST_F(Listing, PatternsChooseNames) {
    EXPECT_TRUE(d.providerSupportsFlatWildcardListing());
    EXPECT_EQ(namesIn(d.listFiles(u"*.txt")), (Names{u"a.txt"}));
    EXPECT_EQ(namesIn(d.listFolders(u"x*")), Names());
    EXPECT_EQ(namesIn(d.listAll(u"?")), (Names{u"b", u"e"}));
    EXPECT_EQ(namesIn(d.listFileEntries(u"b")), (Names{u"b"}));
    EXPECT_EQ(namesIn(d.listFolderEntries(u"e")), (Names{u"e"}));
    EXPECT_EQ(namesIn(d.listAllEntries(u"a*")), (Names{u"a.txt"}));
    EXPECT_EQ(namesIn(d.listAllRecursive(u"c*")), (Names{u"e/c.txt"}));
    EXPECT_EQ(namesIn(d.listAllEntriesRecursive(u"*.txt")), (Names{u"a.txt", u"e/c.txt"}));
}

template<class T>
class ListingOf : public Listing {
  protected:
    using Impl = vfs::detail::FolderListingIteratorImpl<T>;
    using Filter = vfs::detail::FolderIteratorWildcardsImpl<T>;

    std::unique_ptr<provider::IFolderEntryIterator> cursor() const {
        provider::StorageItem const item(mem, provider::StorageIRI(u"mem:/d"));
        if constexpr (std::is_same_v<T, File> || std::is_same_v<T, FileEntry>) {
            return item.listFiles(u"");
        } else if constexpr (std::is_same_v<T, Folder> || std::is_same_v<T, FolderEntry>) {
            return item.listFolders(u"");
        } else {
            return item.listAll(u"");
        }
    }
    static Names expected() {
        if constexpr (std::is_same_v<T, File> || std::is_same_v<T, FileEntry>) {
            return {u"a.txt", u"b"};
        } else if constexpr (std::is_same_v<T, Folder> || std::is_same_v<T, FolderEntry>) {
            return {u"e"};
        } else {
            return {u"a.txt", u"b", u"e"};
        }
    }
};

using Elements = testing::Types<File, Folder, FileOrFolder, FileEntry, FolderEntry,
                                FileOrFolderEntry, ListEntry>;
TYPED_TEST_SUITE(ListingOf, Elements);

TYPED_TEST(ListingOf, EachElementIsMadeOfACursor) {
    auto const impl = std::make_shared<typename TestFixture::Impl>(this->d, this->cursor());
    FolderListing<TypeParam> const listing(impl);
    EXPECT_FALSE(listing.empty());
    EXPECT_EQ(namesIn(listing), TestFixture::expected());

    FolderListingIterator<TypeParam> at = listing.begin();
    FolderListingIterator<TypeParam> const copy(at);
    EXPECT_TRUE(at == copy);
    EXPECT_EQ(nameOf(*at), nameOf(*copy));
    EXPECT_EQ(&*at, at.operator->());
    EXPECT_TRUE(at++ == copy);
    EXPECT_TRUE(at != copy);
    at = listing.end();
    EXPECT_TRUE(at == listing.end());
    EXPECT_FALSE(at == copy);
}

TYPED_TEST(ListingOf, EachElementIsFilteredByPattern) {
    auto const plain = std::make_shared<typename TestFixture::Impl>(this->d, this->cursor());
    Names names;
    for (vfs::ustring const& name : TestFixture::expected()) {
        if (name.size() == 1) {
            names.insert(name);
        }
    }
    FolderListing<TypeParam> const listing(
        std::make_shared<typename TestFixture::Filter>(plain, u"?"));
    EXPECT_EQ(namesIn(listing), names);
}

TYPED_TEST(ListingOf, EachElementHasAnEmptyListing) {
    EXPECT_TRUE(FolderListing<TypeParam>().empty());
    EXPECT_TRUE(FolderListingIterator<TypeParam>() == FolderListingIterator<TypeParam>());
    auto const end = std::make_shared<typename TestFixture::Impl>(this->d);
    EXPECT_TRUE(FolderListing<TypeParam>(end).empty());
    EXPECT_TRUE(FolderListingIterator<TypeParam>(end) == FolderListing<TypeParam>(end).end());
}

template<class T>
class WalkedListingOf : public Listing {};
using WalkedElements = testing::Types<ListEntry, FileOrFolderEntry>;
TYPED_TEST_SUITE(WalkedListingOf, WalkedElements);

TYPED_TEST(WalkedListingOf, SystemWalksTheTreeItself) {
    using Walk = vfs::detail::RecursiveFolderListingIteratorImpl<TypeParam>;
    FolderListing<TypeParam> const listing(std::make_shared<Walk>(this->d, u""));
    EXPECT_EQ(namesIn(listing), (Names{u"a.txt", u"b", u"e", u"c.txt"}));
    EXPECT_TRUE(Walk(u"").equal(*Walk(u"").buildEndIterator()));
}

} // namespace
