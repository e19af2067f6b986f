// Servers whose certificates say nothing for them.

#include "http_fixture.hpp"
#include "trustful_request.hpp"

#include <foundation/storage/provider/i_folder_entry_iterator.hpp>

#include <fl/i18n/conversion.hpp>

namespace foundation::storage::provider::http::test {
namespace {

using Tls = LyingServer::Tls;

struct Certificate {
    char const* name;
    Tls tls;
    bool isTrusted; ///< as far as it is its own authority
};

class NoCertificateOfTheServer : public ::testing::TestWithParam<Certificate> {
  protected:
    StorageIRI at(std::string const& path) const {
        return StorageIRI(fl::i18n::to_ustring("https://" + server_.secureAuthority() + path));
    }
    HttpOptions options() const {
        HttpOptions options = quickOptions();
        if (GetParam().isTrusted) {
            options.web.certificateFile = server_.certificate();
        }
        return options;
    }
    /// That the refusals were for the certificate: the server was met and has heard nothing, and
    /// is there for others.
    void expectRefusals(std::size_t count) const {
        EXPECT_EQ(server_.requests().size(), 0U);
        EXPECT_GE(server_.tlsConnections(), count);
        EXPECT_EQ(statusForTheTrustful("https://" + server_.secureAuthority() + "/good/3000"), 200);
    }

    LyingServer const server_{GetParam().tls};
};

TEST_P(NoCertificateOfTheServer, LetsAFileBeRead) {
    auto const provider = buildHttpProvider(at("/"), options());
    StorageIRI const file = at("/good/3000");
    EXPECT_EQ(codeOf([&] { provider->exists(file); }), 9);
    EXPECT_EQ(codeOf([&] { provider->getFileAttributes(file); }), 9);
    EXPECT_EQ(codeOf([&] { provider->openReadOnlyStream(file); }), 9);
    expectRefusals(3);
}

TEST_P(NoCertificateOfTheServer, LetsWebDavBeSpoken) {
    auto const provider = buildHttpProvider(at("/"), options());
    EXPECT_EQ(codeOf([&] { provider->listAll(at("/dav-good/"), u"")->hasNext(); }), 9);
    EXPECT_EQ(codeOf([&] { provider->createFolder(at("/dav-good/new")); }), 9);
    EXPECT_EQ(codeOf([&] { provider->removeFile(at("/dav-good/file")); }), 9);
    EXPECT_THROW(
        {
            auto const stream = provider->openStream(at("/dav-good/file"), {});
            stream->write("text", 4);
            stream->close();
        },
        std::exception);
    expectRefusals(4);
}

INSTANTIATE_TEST_SUITE_P(That, NoCertificateOfTheServer,
                         ::testing::Values(Certificate{"HasExpired", Tls::Expired, true},
                                           Certificate{"IsAnothers", Tls::OfAnotherName, true},
                                           Certificate{"NobodyVouchesFor", Tls::Yes, false}),
                         [](auto const& made) { return std::string(made.param.name); });

// What the others are held against: they differ in the certificate alone.
TEST(CertificateOfTheServer, LetsAFileBeReadAndWebDavBeSpoken) {
    LyingServer const server(Tls::Yes);
    auto const at = [&](std::string const& path) {
        return StorageIRI(fl::i18n::to_ustring("https://" + server.secureAuthority() + path));
    };
    HttpOptions options = quickOptions();
    options.web.certificateFile = server.certificate();
    auto const provider = buildHttpProvider(at("/"), options);
    EXPECT_EQ(readAt(*provider->openReadOnlyStream(at("/good/3000")), 0, 5000), content(3000));
    provider->createFolder(at("/dav-good/new"));
    auto const entries = provider->listAll(at("/dav-good/"), u"");
    ASSERT_TRUE(entries->hasNext());
    entries->advance();
    EXPECT_EQ(entries->currentEntry().getName(), u"new");
    EXPECT_GE(server.tlsConnections(), 1U);
}

} // namespace
} // namespace foundation::storage::provider::http::test
