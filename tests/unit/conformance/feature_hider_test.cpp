#include <foundation/storage/conformance/feature_hider.hpp>

#include "recording_provider.hpp"

#include <foundation/storage/conformance/decorate.hpp>
#include <foundation/storage/provider/memory/memory_factory.hpp>

#include <gtest/gtest.h>

#include <array>
#include <optional>
#include <vector>

namespace {

using namespace conformance_test;

using Listing = std::unique_ptr<IFolderEntryIterator> (IProvider::*)(StorageIRI const&,
                                                                     ustring const&) const;

constexpr std::array<Listing, 6> flatListings{
    &IProvider::listAll,          &IProvider::listFiles,          &IProvider::listFolders,
    &IProvider::listAllNamesOnly, &IProvider::listFilesNamesOnly, &IProvider::listFoldersNamesOnly,
};
constexpr std::array<Listing, 2> recursiveListings{&IProvider::listAllRecursive,
                                                   &IProvider::listAllRecursiveNamesOnly};

StorageIRI inStore(char16_t const* path) {
    return StorageIRI(std::u16string(u"mem:") + path);
}

std::shared_ptr<IProvider> smallStore() {
    auto store = memory::buildMemoryProvider();
    store->createFolderRecursive(inStore(u"/a/b.txt"));
    store->createFile(inStore(u"/c.txt"));
    store->createFile(inStore(u"/d"));
    store->createFile(inStore(u"/a/e"));
    return store;
}

std::vector<ustring> namesOf(IFolderEntryIterator& cursor) {
    std::vector<ustring> names;
    while (cursor.hasNext()) {
        cursor.advance();
        names.push_back(cursor.currentEntry().getName());
    }
    return names;
}

std::vector<ustring> namesOf(IProvider const& provider, Listing listing, ustring const& filter) {
    return namesOf(*(provider.*listing)(inStore(u"/"), filter));
}

template<class Call>
std::optional<ErrorCode> codeOf(Call const& call) {
    try {
        call();
    } catch (Exception const& e) {
        return e.getErrorCode();
    }
    return std::nullopt;
}

TEST(FeatureHider, HidesEveryFeatureUnlessToldWhich) {
    auto const hider = decorate<FeatureHider>(std::make_shared<RecordingProvider>());
    for (ExtendedFeature const feature : FeatureHider::allFeatures()) {
        EXPECT_FALSE(hider->hasFeature(at(u"/"), feature));
    }
}

TEST(FeatureHider, ShowsWhatItIsNotToHide) {
    auto const inner = std::make_shared<RecordingProvider>(); // has every feature
    for (ExtendedFeature const hidden : FeatureHider::allFeatures()) {
        auto const hider = decorate<FeatureHider>(inner, FeatureHider::Features{hidden});
        for (ExtendedFeature const feature : FeatureHider::allFeatures()) {
            EXPECT_EQ(hider->hasFeature(at(u"/"), feature), feature != hidden);
        }
    }
}

TEST(FeatureHider, AFlatListingIsUnfiltered) {
    auto const store = smallStore();
    auto const hider = decorate<FeatureHider>(store);
    for (Listing const listing : flatListings) {
        EXPECT_EQ(namesOf(*hider, listing, u"*.txt"), namesOf(*store, listing, u""));
        EXPECT_NE(namesOf(*store, listing, u"*.txt"), namesOf(*store, listing, u""));
    }
}

TEST(FeatureHider, ARecursiveListingIsUnfilteredWhereOnlyItsPatternsAreHidden) {
    auto const store = smallStore();
    auto const hider = decorate<FeatureHider>(
        store, FeatureHider::Features{ExtendedFeature::RecursiveWildcardListing});
    for (Listing const listing : recursiveListings) {
        EXPECT_EQ(namesOf(*hider, listing, u"*.txt"), namesOf(*store, listing, u""));
    }
    for (Listing const listing : flatListings) {
        EXPECT_EQ(namesOf(*hider, listing, u"*.txt"), namesOf(*store, listing, u"*.txt"));
    }
}

TEST(FeatureHider, RefusesTheOperationsOfHiddenFeatures) {
    auto const inner = std::make_shared<RecordingProvider>();
    auto const hider = decorate<FeatureHider>(inner);
    for (Listing const listing : recursiveListings) {
        EXPECT_EQ(codeOf([&] { (hider.get()->*listing)(at(u"/"), u""); }),
                  ErrorCode::UnsupportedOperation);
    }
    EXPECT_EQ(codeOf([&] { hider->removeFolderRecursively(at(u"/")); }),
              ErrorCode::UnsupportedOperation);
    EXPECT_THROW(hider->publishFolderEvents(at(u"/"), {}, {}, RecursiveFileWatching::Recursive),
                 ChangeEventsNotSupportedException);
    EXPECT_TRUE(inner->calls.empty());

    hider->publishFolderEvents(at(u"/"), {}, {}, RecursiveFileWatching::NonRecursive);
    EXPECT_EQ(inner->calls.size(), 1U);
}

TEST(FeatureHider, LeavesTheOperationsOfOtherFeatures) {
    auto const inner = std::make_shared<RecordingProvider>();
    auto const hider = decorate<FeatureHider>(inner, FeatureHider::Features{});
    for (Listing const listing : recursiveListings) {
        (hider.get()->*listing)(at(u"/"), u"pattern");
        EXPECT_EQ(inner->lastFilter, u"pattern");
    }
    hider->removeFolderRecursively(at(u"/"));
    hider->publishFolderEvents(at(u"/"), {}, {}, RecursiveFileWatching::Recursive);
    EXPECT_EQ(inner->calls.size(), 4U);
}

} // namespace
