// The contract suite can fail: providers with one flaw each do not pass it.

#include "flawed_provider.hpp"

#include <foundation/storage/conformance/contract.hpp>
#include <foundation/storage/provider/i_provider.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <set>
#include <sstream>
#include <string>

namespace {

using namespace foundation::storage::conformance;
using conformance_test::Flaw;
using testing::Contains;
using testing::IsEmpty;

Contract contractOf(Flaw flaw) {
    Contract contract;
    contract.name = "Flawed";
    contract.makePlace = [flaw] {
        auto const provider = conformance_test::buildFlawedProvider(flaw);
        foundation::storage::provider::StorageIRI const folder(u"mem:/place");
        provider->createFolder(folder);
        return Place{provider, folder, {}, nullptr};
    };
    contract.unsupported = Ability::Flushing | Ability::FolderAttributeChange;
    contract.patience = std::chrono::milliseconds(300);
    return contract;
}

std::set<std::string> brokenCases(Flaw flaw) {
    std::set<std::string> broken;
    for (CaseReport const& each : checkContract(contractOf(flaw)).cases) {
        if (each.outcome == Outcome::Broken) {
            broken.insert(each.name);
        }
    }
    return broken;
}

TEST(ContractSuite, FindsNothingWhereThereIsNoFlaw) {
    EXPECT_THAT(brokenCases(Flaw::None), IsEmpty());
}

TEST(ContractSuite, FindsAnErrorCodeThatIsSwapped) {
    EXPECT_THAT(brokenCases(Flaw::ErrorCodeSwapped), Contains("Files.WhatIsThereCannotBeCreated"));
}

TEST(ContractSuite, FindsAFailureThatNamesAnotherLocation) {
    EXPECT_THAT(brokenCases(Flaw::MissingFileIsAnotherOne),
                Contains("Files.WhatIsMissingIsNamedByTheRemoval"));
}

} // namespace
