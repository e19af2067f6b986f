// Every provider of this project keeps to the contract, but for what is declared here.

#include "examples/ten_line_provider.hpp"
#include "unit/conformance/contract_places.hpp"

#include <foundation/storage/conformance/contract_gtest.hpp>
#include <foundation/storage/conformance/decorate.hpp>
#include <foundation/storage/conformance/fault_injector.hpp>

namespace {

using namespace foundation::storage::conformance;

int const memoryTests = registerContractTests({.name = "Memory",
                                               .makePlace = conformance_test::memoryPlace,
                                               .unsupported = Ability::Flushing});

/// Around faults that nobody asks for: what is decorated keeps to all that the storage keeps to.
int const decoratedTests =
    registerContractTests({.name = "Decorated",
                           .makePlace =
                               [] {
                                   Place place = conformance_test::memoryPlace();
                                   place.provider = decorate<FaultInjector>(place.provider);
                                   return place;
                               },
                           .unsupported = Ability::Flushing});

int const localTests = registerContractTests(
    {.name = "Local", .makePlace = conformance_test::localPlace, .unsupported = Ability::Flushing});

int const tenLineTests = registerContractTests({
    .name = "TenLines",
    .makePlace =
        [] {
            return Place{std::make_shared<Greetings>(),
                         foundation::storage::provider::StorageIRI(u"hi:/"),
                         {{u"hello"}}};
        },
    .unsupported = allAbilities,
    .deviations =
        {
            {"Existence.ThePlaceIsAFolder", "there is one file and no folder"},
            {"Existence.TheCanonicalLocationInAMissingFolderIsNotFound",
             "the default asks no storage"},
        },
});

TEST(ContractRegistration, MakesATestOfEachCaseThatApplies) {
    EXPECT_GT(tenLineTests, 40);
    EXPECT_GT(memoryTests, 350);
    EXPECT_EQ(localTests, memoryTests);
    EXPECT_EQ(decoratedTests, memoryTests);
}

} // namespace
