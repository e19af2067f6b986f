// What a real WebDAV server makes of the requests, beyond the contract.

#include "server.hpp"

#include <foundation/storage/provider/attributes.hpp>
#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/extensions/i_end_first_streams.hpp>
#include <foundation/storage/provider/http/http_factory.hpp>
#include <foundation/storage/provider/i_provider.hpp>

#include <fl/i18n/conversion.hpp>

#include <chrono>
#include <gtest/gtest.h>
#include <memory>
#include <string>
#include <thread>
#include <unistd.h>

namespace foundation::storage::provider::http {
namespace {

using test::told;

HttpOptions ofUser(std::string const& user, std::string const& password) {
    HttpOptions options;
    options.web.proxy = "";
    options.user = user;
    options.password = password;
    options.web.certificateFile = told("VFS_TEST_DAV_CA_CERT");
    return options;
}

void expectWholeLife(char const* variable) {
    StorageIRI const root(fl::i18n::to_ustring(told(variable)));
    auto const provider =
        buildHttpProvider(root, ofUser(told("VFS_TEST_DAV_USER"), told("VFS_TEST_DAV_PASSWORD")));
    StorageIRI const folder(root, fl::i18n::to_ustring("life-" + std::to_string(::getpid())));
    provider->createFolder(folder);
    StorageIRI const file(folder, u"a file");
    std::string const bytes(3'000'000, 'x');
    auto stream = provider->openStream(file, {});
    stream->write(bytes.data(), static_cast<long>(bytes.size()));
    EXPECT_EQ(provider->exists(file), ExistsResult::Nothing); // before it is complete
    stream->close();
    EXPECT_EQ(provider->getFileAttributes(file).values().size, bytes.size());
    stream = provider->openReadOnlyStream(file);
    std::string read(bytes.size() + 1, '\0');
    long const got = stream->read(read.data(), static_cast<long>(read.size()));
    read.resize(static_cast<std::size_t>(got));
    EXPECT_TRUE(read == bytes);
    stream = dynamic_cast<extensions::IEndFirstStreams&>(*provider).openEndFirst(file);
    EXPECT_EQ(stream->seek(-5, std::ios_base::end), 2'999'995);
    EXPECT_EQ(stream->read(read.data(), 10), 5);
    auto const entries = provider->listAll(folder, u"");
    ASSERT_TRUE(entries->hasNext());
    entries->advance();
    EXPECT_EQ(entries->currentEntry().getName(), u"a file");
    EXPECT_FALSE(entries->hasNext());
    provider->removeFolderRecursively(folder);
    EXPECT_EQ(provider->exists(folder), ExistsResult::Nothing);
}

TEST(WebDav, IsWrittenByAUserWhoseNameIsTold) {
    VFS_NEEDS_SERVER("VFS_TEST_DAV_BASIC_URL");
    expectWholeLife("VFS_TEST_DAV_BASIC_URL");
}

TEST(WebDav, IsWrittenOverTls) {
    VFS_NEEDS_SERVER("VFS_TEST_DAV_TLS_URL");
    expectWholeLife("VFS_TEST_DAV_TLS_URL");
}

void write(IProvider& provider, StorageIRI const& file, std::string const& bytes) {
    auto const stream = provider.openStream(file, {});
    stream->write(bytes.data(), static_cast<long>(bytes.size()));
    stream->close();
}

/// The tag that a file has once it is so old that another change would give it another one.
std::string strongTagOf(IProvider const& provider, StorageIRI const& file) {
    std::string tag;
    for (int i = 0; i < 50; ++i) {
        tag = provider.getExtendedAttributes(file).at("http.etag");
        if (!tag.starts_with("W/")) {
            break;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    return tag;
}

TEST(WebDav, KeepsWhatAnotherHasWrittenSinceAFileWasRead) {
    VFS_NEEDS_SERVER("VFS_TEST_DAV_URL");
    StorageIRI const root(fl::i18n::to_ustring(told("VFS_TEST_DAV_URL")));
    HttpOptions options = ofUser("", "");
    options.attributeLifetime = std::chrono::milliseconds(0);
    auto const provider = buildHttpProvider(root, options);
    StorageIRI const file(root, fl::i18n::to_ustring("tagged-" + std::to_string(::getpid())));
    ByteStreamOpenOptions const appending{ByteStreamAccess::ReadWrite,
                                          ByteStreamCreation::OpenExisting, 1, 0};
    write(*provider, file, "bytes");
    std::string const first = strongTagOf(*provider, file);
    ASSERT_FALSE(first.starts_with("W/"));
    auto stream = provider->openStream(file, appending);
    stream->write(", more", 6);
    stream->close();
    EXPECT_EQ(provider->getFileAttributes(file).values().size, 11U);

    EXPECT_NE(strongTagOf(*provider, file), first);
    stream = provider->openStream(file, appending);
    write(*provider, file, "their bytes, which are others");
    stream->write(", lost", 6);
    try {
        stream->close();
        ADD_FAILURE() << "it was replaced";
    } catch (ByteStreamCloseFailure const& e) {
        EXPECT_EQ(e.getErrorCode(), ErrorCode::ResourceInUse);
    }
    EXPECT_EQ(provider->getFileAttributes(file).values().size, 29U);
    strongTagOf(*provider, file);
    provider->removeFile(file); // as it was seen
    EXPECT_EQ(provider->exists(file), ExistsResult::Nothing);
}

TEST(WebDav, IsDeniedToWhoeverHasAnotherPassword) {
    VFS_NEEDS_SERVER("VFS_TEST_DAV_BASIC_URL");
    StorageIRI const root(fl::i18n::to_ustring(told("VFS_TEST_DAV_BASIC_URL")));
    auto const provider = buildHttpProvider(root, ofUser(told("VFS_TEST_DAV_USER"), "another"));
    for (int i = 0; i < 2; ++i) { // and goes on being denied
        try {
            provider->createFile(StorageIRI(root, u"file"));
            ADD_FAILURE() << "a file was made";
        } catch (Exception const& e) {
            EXPECT_EQ(e.getErrorCode(), ErrorCode::PermissionDenied);
        }
    }
}

TEST(WebDav, SaysThatADigestIsWantedWhichCannotBeGiven) {
    VFS_NEEDS_SERVER("VFS_TEST_DAV_DIGEST_URL");
    StorageIRI const root(fl::i18n::to_ustring(told("VFS_TEST_DAV_DIGEST_URL")));
    auto const provider =
        buildHttpProvider(root, ofUser(told("VFS_TEST_DAV_USER"), told("VFS_TEST_DAV_PASSWORD")));
    auto const expectRefused = [](auto const& call) {
        try {
            call();
            ADD_FAILURE() << "it was let in";
        } catch (Exception const& e) {
            EXPECT_EQ(e.getErrorCode(), ErrorCode::PermissionDenied);
            EXPECT_NE(e.getReason().find("wants Digest authentication"), std::string::npos)
                << e.getReason();
        }
    };
    StorageIRI const file(root, u"file");
    expectRefused([&] { provider->listAll(root, u""); });
    expectRefused([&] { provider->openReadOnlyStream(file); });
    expectRefused([&] { provider->createFile(file); });
    expectRefused([&] { provider->exists(file); });
}

} // namespace
} // namespace foundation::storage::provider::http
