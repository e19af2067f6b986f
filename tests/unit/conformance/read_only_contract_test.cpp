// A storage that cannot be written is held to what can be read of it: the content that its place
// declares.

#include <foundation/storage/conformance/contract_gtest.hpp>
#include <foundation/storage/conformance/decorate.hpp>
#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/memory/memory_factory.hpp>
#include <foundation/storage/provider/storage_item.hpp>

#include <boost/property_tree/ptree.hpp>

#include <set>

namespace {

using namespace foundation::storage::provider;
using namespace foundation::storage::conformance;

constexpr AbilitySet lacking = changingAbilities | Ability::Links | Ability::Flushing |
                               Ability::ChangeEvents | Ability::RecursiveChangeEvents;

/// Refuses what is told of it beforehand; has no extension, as it is made without decorate().
class Closed : public ProviderDecorator {
  public:
    explicit Closed(std::shared_ptr<IProvider> inner) : ProviderDecorator(std::move(inner)) {}

    bool hasFeature(StorageIRI const& location, ExtendedFeature const& feature) const override {
        return feature != ExtendedFeature::RecursiveFolderRemoval &&
               feature != ExtendedFeature::RecursiveChangeEvents &&
               ProviderDecorator::hasFeature(location, feature);
    }
    CopyStatus copyFile(StorageIRI const& source, StorageItem const& destination,
                        CopyFileOptions const& options) override {
        return IProvider::copyFile(source, destination, options);
    }
    void moveFolder(StorageIRI const& source, StorageIRI const& destination,
                    ReplacementPolicy const& policy) override {
        IProvider::moveFolder(source, destination, policy);
    }
    void publishFileEvents(StorageIRI const& location, ChangeCallback callback,
                           ChangeKinds const& kinds) override {
        IProvider::publishFileEvents(location, std::move(callback), kinds);
    }
    void publishFolderEvents(StorageIRI const& location, ChangeCallback callback,
                             ChangeKinds const& kinds, RecursiveFileWatching recursive) override {
        IProvider::publishFolderEvents(location, std::move(callback), kinds, recursive);
    }
    void stopPublishingFileEvents(StorageIRI const& location) override {
        IProvider::stopPublishingFileEvents(location);
    }
    void stopPublishingFolderEvents(StorageIRI const& location) override {
        IProvider::stopPublishingFolderEvents(location);
    }

  protected:
    void before(Operation operation, StorageIRI const* location) const override {
        using enum Operation;
        static std::set<Operation> const changes{SetLastModified,
                                                 SetWritable,
                                                 CreateFile,
                                                 CreateFolder,
                                                 CreateFolderRecursive,
                                                 RemoveFile,
                                                 RemoveFolder,
                                                 RemoveFolderRecursively,
                                                 MoveFile,
                                                 OpenStream};
        if (changes.count(operation) > 0) {
            throw Exception(ErrorCode::ReadOnlyProvider, *location);
        }
    }
};

Place closedPlace() {
    using Kind = DeclaredItem::Kind;
    std::vector<DeclaredItem> const content{{u"a!", Kind::Folder, {}},
                                            {u"a!/b c", Kind::File, std::string(200'000, 'x')},
                                            {u"a!/empty", Kind::File, {}},
                                            {u"\u00e4", Kind::File, "some text"}};
    auto const store = memory::buildMemoryProvider();
    StorageIRI const root(u"mem:/");
    for (DeclaredItem const& item : content) {
        StorageIRI const location(root, item.path);
        if (item.kind == Kind::Folder) {
            store->createFolder(location);
            continue;
        }
        auto const stream = store->openStream(location, {});
        stream->write(item.bytes.data(), static_cast<long>(item.bytes.size()));
        stream->close();
    }
    return {std::make_shared<Closed>(store), root, content};
}

int const tests =
    registerContractTests({.name = "ReadOnly", .makePlace = closedPlace, .unsupported = lacking});

TEST(ReadOnlyContract, IsMoreThanRefusals) {
    EXPECT_GT(tests, 70);
}

TEST(ReadOnlyContract, FindsContentThatIsNotAsDeclared) {
    Contract contract{.name = "Other",
                      .makePlace =
                          [] {
                              Place place = closedPlace();
                              place.content.back().bytes = "some test";
                              place.content.push_back({u"missing", DeclaredItem::Kind::Folder, {}});
                              return place;
                          },
                      .unsupported = lacking};
    for (char const* const name :
         {"Existence.WhatIsThereIsToldByKind", "Streams.WhatIsThereIsRead",
          "Listings.EachEntryIsDeliveredOnce", "Trees.EachItemIsDeliveredOnceByItsPath"}) {
        EXPECT_EQ(checkCase(contract, name).outcome, Outcome::Broken) << name;
    }
}

} // namespace
