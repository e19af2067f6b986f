// Stores whose certificates say nothing for them.

#include "../http/trustful_request.hpp"
#include "bucket_fixture.hpp"

namespace foundation::storage::provider::s3::detail {
namespace {

using Tls = http::test::LyingServer::Tls;
using ::testing::HasSubstr;

struct Certificate {
    char const* name;
    Tls tls;
    bool isTrusted; ///< as far as it is its own authority
};

class NoCertificateOfTheStore : public ::testing::TestWithParam<Certificate> {
  protected:
    static S3Options optionsFor(http::test::LyingServer const& store, bool trusts) {
        S3Options options;
        options.web.proxy = "";
        options.web.firstPause = std::chrono::milliseconds(1);
        options.web.longestPause = std::chrono::milliseconds(5);
        options.endpoint = "https://" + store.secureAuthority();
        options.region = "eu-test-1";
        options.credentials = {"CANARYACCESS", "CANARYSECRET/+=", "CANARYTOKEN"};
        if (trusts) {
            options.web.certificateFile = store.certificate();
        }
        return options;
    }
    template<class Call>
    static void expectRefusal(Call const& call) {
        try {
            call();
            ADD_FAILURE() << "is done";
        } catch (web::Failure const& failure) {
            EXPECT_EQ(failure.code(), ErrorCode::IOError);
            std::string const text = failure.what();
            EXPECT_THAT(text, HasSubstr("the certificate of the server is not valid"));
            EXPECT_EQ(text.find("CANARY"), std::string::npos) << text;
        }
    }

    http::test::LyingServer const store_{GetParam().tls};
};

TEST_P(NoCertificateOfTheStore, LetsItBeAsked) {
    Bucket const bucket("good", optionsFor(store_, GetParam().isTrusted));
    expectRefusal([&] { bucket.exists(bucket.deadline()); });
    expectRefusal([&] { bucket.list({}, bucket.deadline()); });
    expectRefusal([&] { bucket.put("a", "bytes", {}, bucket.deadline()); });
    expectRefusal([&] { bucket.beginUpload("a", {}, bucket.deadline()); });
    expectRefusal([&] {
        std::string buffer(10, '?');
        bucket.read("a", 0, buffer, {}, bucket.deadline());
    });
    EXPECT_EQ(store_.requests().size(), 0U); // nothing that is signed
    EXPECT_GE(store_.tlsConnections(), 5U);
    // It is there all the same, for whoever does not look.
    EXPECT_EQ(http::test::statusForTheTrustful("https://" + store_.secureAuthority() + "/open"),
              200);
}

INSTANTIATE_TEST_SUITE_P(That, NoCertificateOfTheStore,
                         ::testing::Values(Certificate{"HasExpired", Tls::Expired, true},
                                           Certificate{"IsAnothers", Tls::OfAnotherName, true},
                                           Certificate{"NobodyVouchesFor", Tls::Yes, false}),
                         [](auto const& made) { return std::string(made.param.name); });

} // namespace
} // namespace foundation::storage::provider::s3::detail
