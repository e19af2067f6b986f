#include "contract_places.hpp"
#include "flawed_provider.hpp"

#include <foundation/storage/conformance/model_test.hpp>
#include <foundation/storage/provider/i_provider.hpp>

#include <gmock/gmock.h>

#include <algorithm>
#include <cstdlib>
#include <string>

namespace conformance_test {

using namespace foundation::storage::conformance;

namespace {

/// As many as the environment variable VFS_MODEL_OPERATIONS says.
std::size_t operations(std::size_t usual) {
    char const* const wanted = std::getenv("VFS_MODEL_OPERATIONS");
    return wanted == nullptr ? usual : std::strtoul(wanted, nullptr, 10);
}

std::uint32_t seeds() {
    char const* const wanted = std::getenv("VFS_MODEL_SEEDS");
    return wanted == nullptr ? 2 : static_cast<std::uint32_t>(std::strtoul(wanted, nullptr, 10));
}

void expectLikeTheModel(Place (*makePlace)(), std::size_t usual) {
    for (std::uint32_t seed = 1; seed <= seeds(); ++seed) {
        ModelTest test;
        test.makePlace = makePlace;
        test.seed = seed;
        test.operations = operations(usual);
        auto const failure = compareWithModel(test);
        ASSERT_FALSE(failure.has_value()) << "seed " << seed << '\n' << *failure;
    }
}

TEST(ModelTest, FindsMemoryLikeTheModel) {
    expectLikeTheModel(&memoryPlace, 20'000);
}

TEST(ModelTest, FindsTheLocalDiskLikeTheModel) {
    expectLikeTheModel(&localPlace, 8'000);
}

Place flawedPlace(Flaw flaw) {
    auto const provider = buildFlawedProvider(flaw);
    foundation::storage::provider::StorageIRI const folder(u"mem:/place");
    provider->createFolder(folder);
    return {provider, folder, {}, nullptr};
}

class ModelTestOfAFlaw : public ::testing::TestWithParam<Flaw> {};

TEST_P(ModelTestOfAFlaw, GivesTheFewOperationsThatShowIt) {
    ModelTest test;
    test.makePlace = [] { return flawedPlace(GetParam()); };

    auto const failure = compareWithModel(test);

    ASSERT_TRUE(failure.has_value());
    EXPECT_NE(failure->given, failure->expected);
    EXPECT_LE(std::count(failure->code.begin(), failure->code.end(), '\n'), 4) << failure->code;
}

INSTANTIATE_TEST_SUITE_P(Each, ModelTestOfAFlaw,
                         ::testing::Values(Flaw::ErrorCodeSwapped, Flaw::FailureNamesTheFolder,
                                           Flaw::RenameOverwrites, Flaw::CopyOverwrites,
                                           Flaw::FullFolderIsRemoved, Flaw::StreamLosesTheLastChunk,
                                           Flaw::AppendTruncates, Flaw::SeekBeforeTheStartClamps,
                                           Flaw::HasNextAdvances));

TEST(ModelTest, SaysWhatToDoToSeeIt) {
    ModelTest test;
    test.makePlace = [] { return flawedPlace(Flaw::CopyOverwrites); };

    auto const failure = compareWithModel(test);

    ASSERT_TRUE(failure.has_value());
    EXPECT_THAT(failure->code, ::testing::HasSubstr("provider->createFile(at(u\""));
    EXPECT_THAT(failure->code, ::testing::HasSubstr("provider->copyFile(at(u\""));
    EXPECT_THAT(failure->expected, ::testing::StartsWith("refused with 3, "));
    EXPECT_EQ(failure->given, "done");
}

TEST(ModelTest, GivesTheSameForTheSameSeed) {
    ModelTest test;
    test.makePlace = [] { return flawedPlace(Flaw::StreamLosesTheLastChunk); };
    test.seed = 5;

    auto const first = compareWithModel(test);
    auto const second = compareWithModel(test);

    ASSERT_TRUE(first && second);
    EXPECT_EQ(first->code, second->code);
}

} // namespace

} // namespace conformance_test
