// The contract suite can fail: providers with one flaw each do not pass it.

#include "flawed_provider.hpp"

#include <foundation/storage/conformance/contract.hpp>
#include <foundation/storage/provider/i_provider.hpp>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <sstream>
#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

namespace {

using namespace foundation::storage::conformance;
using conformance_test::Flaw;
using foundation::storage::provider::StorageIRI;
using testing::Contains;
using testing::ElementsAre;
using testing::HasSubstr;
using testing::IsEmpty;

Contract contractOf(Flaw flaw) {
    Contract contract;
    contract.name = "Flawed";
    contract.makePlace = [flaw] {
        return Place{conformance_test::buildFlawedProvider(flaw), StorageIRI(u"mem:/")};
    };
    contract.unsupported = Ability::Flushing;
    // A store in memory tells of a change before the change returns.
    if (flaw == Flaw::RemovalIsNotTold) {
        contract.patience = std::chrono::milliseconds(50);
    }
    return contract;
}

std::set<std::string> brokenCases(Contract const& contract) {
    std::set<std::string> broken;
    for (CaseReport const& each : checkContract(contract).cases) {
        if (each.outcome == Outcome::Broken) {
            broken.insert(each.name);
        }
    }
    return broken;
}

TEST(ContractSuite, FindsNothingWhereThereIsNoFlaw) {
    EXPECT_THAT(brokenCases(contractOf(Flaw::None)), IsEmpty());
}

struct Find {
    char const* name;
    Flaw flaw;
    char const* brokenCase;
};

class ContractSuiteFinds : public testing::TestWithParam<Find> {};

TEST_P(ContractSuiteFinds, TheFlaw) {
    auto const& [name, flaw, brokenCase] = GetParam();
    EXPECT_THAT(brokenCases(contractOf(flaw)), Contains(brokenCase));
}

INSTANTIATE_TEST_SUITE_P(
    OfAProvider, ContractSuiteFinds,
    testing::Values(
        Find{"AnErrorCodeThatIsSwapped", Flaw::ErrorCodeSwapped,
             "Files.WhatIsThereCannotBeCreated"},
        Find{"AFailureThatNamesTheFolder", Flaw::FailureNamesTheFolder,
             "Files.WhatIsMissingIsNamedByTheRemoval"},
        Find{"ARenameThatOverwrites", Flaw::RenameOverwrites,
             "Moves.AFileLeavesWhatIsThereWhereThePolicySaysSo"},
        Find{"ACopyThatOverwrites", Flaw::CopyOverwrites,
             "Copies.WhatIsThereIsLeftWhereThePolicySaysSo"},
        Find{"AFullFolderThatIsRemoved", Flaw::FullFolderIsRemoved,
             "Folders.AFolderWithAFileIsNotRemoved"},
        Find{"ARemovalThatTakesPrefixes", Flaw::RemovalTakesPrefixes,
             "Folders.WhatIsBesideARemovedTreeStays"},
        Find{"AStreamThatLosesTheLastChunk", Flaw::StreamLosesTheLastChunk,
             "Streams.FilesOfEverySizeAreKept"},
        Find{"ReadsThatAreShort", Flaw::ReadsAreShort, "Streams.AReadIsShortAtTheEndAlone"},
        Find{"AnAppendThatTruncates", Flaw::AppendTruncates, "Streams.AnAppendGoesToTheEnd"},
        Find{"ASeekThatClamps", Flaw::SeekBeforeTheStartClamps,
             "Streams.ASeekBeforeTheStartLeavesThePosition"},
        Find{"AHasNextThatAdvances", Flaw::HasNextAdvances, "Cursors.AskingDoesNotAdvance"},
        Find{"ACloneThatSharesItsPosition", Flaw::CloneSharesItsPosition,
             "Cursors.AClonesStepsLeaveTheOriginal"},
        Find{"HiddenNamesThatAreNotListed", Flaw::HiddenNamesAreNotListed,
             "Names.DotsAreNoStepsInLongerNames"},
        Find{"ARemovalThatIsNotTold", Flaw::RemovalIsNotTold, "ChangeEvents.ARemovedFileIsTold"},
        Find{"ACreationThatRaces", Flaw::CreationRaces, "Concurrency.OneOfManyCreatesAFile"},
        Find{"TimesThatAreRounded", Flaw::TimesAreRounded, "Attributes.ATimeOfMicrosecondsIsKept"},
        Find{"AFeatureThatIsNotDeclared", Flaw::FeatureIsNotDeclared,
             "Declarations.TheFeaturesAreThoseDeclared"}),
    [](auto const& found) { return std::string(found.param.name); });

TEST(ContractSuite, FindsWhatWorksThoughItIsDeclaredUnsupported) {
    for (auto const& [ability, refusal] :
         {std::pair(Ability::FileMoves, "Refusals.FileMoves"),
          std::pair(Ability::RecursiveListing, "Refusals.RecursiveListing"),
          std::pair(Ability::FlatWildcards, "Refusals.FlatWildcards"),
          std::pair(Ability::ChangeEvents, "Refusals.ChangeEvents"),
          std::pair(Ability::Links, "Declarations.TheExtensionsAreThoseDeclared")}) {
        Contract contract = contractOf(Flaw::None);
        contract.unsupported = contract.unsupported | ability;
        EXPECT_THAT(brokenCases(contract), Contains(refusal));
    }
}

TEST(ContractSuite, ADeclaredDeviationIsNoBreach) {
    Contract contract = contractOf(Flaw::TimesAreRounded);
    contract.deviations = {
        {"Attributes.ATimeOfMicrosecondsIsKept", "kept to the second"},
        {"Attributes.ATimeBeforeTheEpochIsKept", "kept to the second"},
    };
    Report const report = checkContract(contract);
    EXPECT_TRUE(report.isKept());
    EXPECT_EQ(report.count(Outcome::Deviates), 2U);
}

TEST(ContractSuite, FindsADeviationThatIsNone) {
    Contract contract = contractOf(Flaw::None);
    contract.deviations = {{"Attributes.ATimeOfMicrosecondsIsKept", "kept to the second"},
                           {"Attributes.NoSuchCase", "misspelled"}};
    EXPECT_THAT(brokenCases(contract),
                ElementsAre("Attributes.ATimeOfMicrosecondsIsKept",
                            "Declarations.EveryDeviationNamesACaseThatApplies"));
}

TEST(ContractSuite, TellsEverythingThatIsWrong) {
    CaseReport const report =
        checkCase(contractOf(Flaw::ErrorCodeSwapped), "Files.WhatIsThereCannotBeCreated");
    EXPECT_EQ(report.outcome, Outcome::Broken);
    EXPECT_THAT(report.remarks,
                ElementsAre("createFile of the existing \"file\" gave InvalidLocation "
                            "about mem:/file instead of ResourceAlreadyExists about "
                            "mem:/file",
                            HasSubstr("\"folder\"")));
}

TEST(ContractSuite, WhatIsNotSupportedIsLeftOutByName) {
    Contract contract = contractOf(Flaw::None);
    contract.unsupported = Ability::Flushing | Ability::Reading;
    CaseReport const report = checkCase(contract, "Streams.WhatIsThereIsRead");
    EXPECT_EQ(report.outcome, Outcome::LeftOut);
    EXPECT_THAT(report.remarks, ElementsAre("needs Reading"));
    EXPECT_EQ(whyLeftOut(contract, "Refusals.Reading"), std::nullopt);
    EXPECT_EQ(whyLeftOut(contract, "Refusals.Writing"), "checks the refusal of Writing");
}

TEST(ContractSuite, SaysWhereNoPlaceCanBeMade) {
    Contract contract = contractOf(Flaw::None);
    contract.makePlace = []() -> Place { throw std::runtime_error("no room"); };
    CaseReport const report = checkCase(contract, "Existence.ThePlaceIsAFolder");
    EXPECT_EQ(report.outcome, Outcome::Broken);
    EXPECT_THAT(report.remarks, ElementsAre(HasSubstr("no room")));
}

TEST(ContractSuite, KnowsNoOtherCases) {
    for (char const* const name : {"", ".", "Files", "Files.", "Files.NoSuchCase", "NoFamily.X"}) {
        EXPECT_THROW(checkCase(contractOf(Flaw::None), name), std::out_of_range) << name;
    }
}

TEST(ContractSuite, NamesEachCaseOnce) {
    std::vector<std::string> names = allCases();
    EXPECT_GT(names.size(), 350U);
    std::sort(names.begin(), names.end());
    EXPECT_EQ(std::adjacent_find(names.begin(), names.end()), names.end());
}

TEST(ContractSuite, PrintsWhatIsBrokenAndTheNumbers) {
    Report const report{"Mine",
                        {{"A.Kept", Outcome::Kept, {}},
                         {"A.Broken", Outcome::Broken, {"this", "and that"}},
                         {"A.Deviates", Outcome::Deviates, {"on purpose", "so"}},
                         {"A.LeftOut", Outcome::LeftOut, {"needs Links"}}}};
    std::ostringstream text;
    text << report;
    EXPECT_EQ(text.str(), "A.Broken broken\n  this\n  and that\n"
                          "A.Deviates deviates\n  on purpose\n  so\n"
                          "Mine: 4 cases, 1 kept, 1 broken, 1 deviate, 1 left out\n");
}

} // namespace
