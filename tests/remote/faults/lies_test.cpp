// Servers that lie, of which each machine can have some.

#include "lies.hpp"
#include "plain_request.hpp"
#include "table.hpp"

#include <gmock/gmock.h>

namespace remote_faults {
namespace {

using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Optional;
using Tls = LyingServer::Tls;

class Lies : public ::testing::TestWithParam<char const*> {
  protected:
    void TearDown() override { closePlainConnections(); }
};

TEST_P(Lies, DoNoHarm) {
#ifndef WITH_S3
    if (GetParam() == std::string("s3")) {
        GTEST_SKIP() << "the provider of object stores is not built";
    }
#endif
    SweepResult result;
    sweepLies(GetParam(), Extent::Few, result);
    EXPECT_THAT(result.findings, IsEmpty());
    EXPECT_THAT(notInjected(result, {{GetParam(), kindsOfLies(GetParam())}}), IsEmpty());
    EXPECT_GE(kindsOfLies(GetParam()).size() + liesWithoutSense(GetParam()).size(), 20U);
}

INSTANTIATE_TEST_SUITE_P(Of, Lies, ::testing::Values("web", "dav", "s3"));

// That more than the right result is seen.

RunResult told(Target const& target, bool mustFail, std::function<void()> const& run) {
    Scenario scenario{"untold", [&](Stage const&) {
                          run();
                          return std::optional<std::string>();
                      }};
    scenario.mustFail = mustFail;
    scenario.isReading = !mustFail;
    RunResult const result = runOnce(target, scenario, lieOf("untold"));
    closePlainConnections();
    return result;
}

TEST(LiesThatAreBelieved, AreSeen) {
    LyingServer const server(Tls::No, LYING_SERVER);
    Target const target = lyingWeb(server, "web", "good", "GET", Tls::No);
    RunResult const result = told(target, true, [] {});
    EXPECT_THAT(result.wrong, Optional(HasSubstr("not to be believed")));
    EXPECT_EQ(result.counts.applied, 0U);
    EXPECT_THROW(lyingWeb(server, "web", "no-such-behaviour", "GET", Tls::No), std::runtime_error);
    closePlainConnections();
}

#ifdef WITH_S3
TEST(UploadsLeftInAStoreThatLies, AreSeen) {
    LyingServer const store(Tls::No, LYING_STORE);
    Target const target = lyingStore(store, "open", "POST", Tls::No);
    RunResult const result = told(target, false, [&] {
        plainRequest("POST", "http://" + store.authority() + "/open/key?uploads");
        closePlainConnections();
    });
    EXPECT_THAT(result.leak, Optional(HasSubstr("key")));
    EXPECT_EQ(result.counts.applied, 1U);
    EXPECT_EQ(told(target, false, [] {}).leak, std::nullopt);
}
#endif

} // namespace
} // namespace remote_faults
