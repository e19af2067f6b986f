// The store over TLS, and with the bucket's name in the host.

#include "server.hpp"

#include "unit/providers/http/trustful_request.hpp"

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/i_folder_entry_iterator.hpp>
#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/provider/s3/s3_factory.hpp>

#include <gtest/gtest.h>
#include <string>
#include <unistd.h>

namespace foundation::storage::provider::s3 {
namespace {

using provider::test::told;

class StoreOverTls : public ::testing::Test {
  protected:
    void SetUp() override { VFS_NEEDS_SERVER("VFS_TEST_S3_TLS_ENDPOINT"); }

    static S3Options optionsFor(std::string const& endpoint, AddressingStyle style) {
        S3Options options;
        options.web.proxy = "";
        options.web.certificateFile = told("VFS_TEST_S3_CA_CERT");
        options.endpoint = endpoint;
        options.region = told("VFS_TEST_S3_REGION");
        options.addressing = style;
        options.credentials = {told("VFS_TEST_S3_ACCESS_KEY"), told("VFS_TEST_S3_SECRET_KEY"), {}};
        options.partSize = std::uint64_t{5} * 1024 * 1024;
        return options;
    }
    static std::shared_ptr<IProvider> provider(S3Options const& options) {
        return buildS3Provider(root(), options);
    }
    static StorageIRI root() {
        return StorageIRI(fl::i18n::to_ustring("s3://" + told("VFS_TEST_S3_BUCKET") + "/tls-" +
                                               std::to_string(::getpid()) + '/'));
    }
    static StorageIRI at(char16_t const* name) { return StorageIRI(root(), name); }

    static void write(IProvider& provider, StorageIRI const& file, std::string const& bytes) {
        auto const stream = provider.openStream(file, {});
        stream->write(bytes.data(), static_cast<long>(bytes.size()));
        stream->close();
    }
    static std::string read(IProvider& provider, StorageIRI const& file) {
        auto const stream = provider.openReadOnlyStream(file);
        std::string bytes;
        std::string buffer(1'000'000, '\0');
        for (long got = 0;
             (got = stream->read(buffer.data(), static_cast<long>(buffer.size()))) > 0;) {
            bytes.append(buffer, 0, static_cast<std::size_t>(got));
        }
        return bytes;
    }
    /// In one request and in parts, whose bytes are not signed over TLS; names that are encoded.
    static void expectWholeLife(S3Options const& options) {
        auto const provider = StoreOverTls::provider(options);
        provider->createFolder(root());
        for (std::size_t const size : {0U, 100'000U, 12'000'000U}) {
            std::string bytes(size, '\0');
            for (std::size_t i = 0; i < size; ++i) {
                bytes[i] = static_cast<char>((i * 7 + (i >> 8) * 13) & 255);
            }
            StorageIRI const file = at(u"a+b ä");
            write(*provider, file, bytes);
            EXPECT_EQ(provider->getFileAttributes(file).values().size, size);
            EXPECT_TRUE(read(*provider, file) == bytes) << size;
        }
        auto const entries = provider->listAll(root(), u"");
        ASSERT_TRUE(entries->hasNext());
        entries->advance();
        EXPECT_EQ(entries->currentEntry().getName(), u"a+b ä");
        EXPECT_FALSE(entries->hasNext());
        provider->removeFolderRecursively(root());
        EXPECT_EQ(provider->exists(at(u"a+b ä")), ExistsResult::Nothing);
    }
    template<class Call>
    static int codeOf(Call const& call) {
        try {
            call();
        } catch (Exception const& failure) {
            return static_cast<int>(failure.getErrorCode());
        }
        return -1;
    }
};

TEST_F(StoreOverTls, KeepsFiles) {
    expectWholeLife(optionsFor(told("VFS_TEST_S3_TLS_ENDPOINT"), AddressingStyle::Path));
}

TEST_F(StoreOverTls, IsNotTrustedWithoutItsAuthority) {
    S3Options options = optionsFor(told("VFS_TEST_S3_TLS_ENDPOINT"), AddressingStyle::Path);
    options.web.certificateFile.clear(); // those of the system, which do not know this one
    EXPECT_EQ(codeOf([&] { provider(options)->exists(at(u"file")); }), 9);
    EXPECT_NE(http::test::statusForTheTrustful(options.endpoint), 0);
}

TEST_F(StoreOverTls, IsNotTrustedWithACertificateThatHasExpiredOrIsAnothers) {
    VFS_NEEDS_SERVER("VFS_TEST_WEB_EXPIRED_URL");
    for (char const* const variable : {"VFS_TEST_WEB_EXPIRED_URL", "VFS_TEST_WEB_WRONG_NAME_URL"}) {
        S3Options options = optionsFor(told(variable), AddressingStyle::Path);
        options.web.certificateFile = told("VFS_TEST_WEB_CA_CERT");
        auto const store = provider(options);
        EXPECT_EQ(codeOf([&] { store->exists(at(u"file")); }), 9) << variable;
        EXPECT_EQ(codeOf([&] { store->openReadOnlyStream(at(u"file")); }), 9) << variable;
        EXPECT_NE(http::test::statusForTheTrustful(options.endpoint), 0) << variable;
    }
}

TEST_F(StoreOverTls, IsFoundByTheNameOfTheBucketInTheHost) {
    expectWholeLife(optionsFor(told("VFS_TEST_S3_VHOST_ENDPOINT"), AddressingStyle::VirtualHost));
}

} // namespace
} // namespace foundation::storage::provider::s3
