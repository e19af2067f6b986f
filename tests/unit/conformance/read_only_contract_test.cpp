// A storage that cannot be written is held to what can be read of it: the content that its place
// declares.

#include <foundation/storage/conformance/contract_gtest.hpp>
#include <foundation/storage/conformance/decorate.hpp>
#include <foundation/storage/conformance/read_only.hpp>
#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/memory/memory_provider.hpp>

#include <memory>
#include <string>
#include <vector>

namespace {

using namespace foundation::storage::provider;
using namespace foundation::storage::conformance;

constexpr AbilitySet lacking = changingAbilities | Ability::Flushing;

Place closedPlace() {
    using Kind = DeclaredItem::Kind;
    std::vector<DeclaredItem> const content{{u"a!", Kind::Folder, {}},
                                            {u"a!/b c", Kind::File, std::string(200'000, 'x')},
                                            {u"a!/empty", Kind::File, {}},
                                            {u"link", Kind::Link, "a!"},
                                            {u"\u00e4", Kind::File, "some text"}};
    auto const store = std::make_shared<memory::MemoryProvider>();
    StorageIRI const root(u"mem:/");
    for (DeclaredItem const& item : content) {
        StorageIRI const location(root, item.path);
        if (item.kind == Kind::Folder) {
            store->createFolder(location);
            continue;
        }
        if (item.kind == Kind::Link) {
            store->createLink(location, fl::i18n::to_ustring(item.bytes));
            continue;
        }
        auto const stream = store->openStream(location, {});
        stream->write(item.bytes.data(), static_cast<long>(item.bytes.size()));
        stream->close();
    }
    return {decorate<ReadOnly>(store), root, content};
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
