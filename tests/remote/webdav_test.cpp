// What a real WebDAV server makes of the requests, beyond the contract.

#include "server.hpp"

#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/http/http_factory.hpp>
#include <foundation/storage/provider/i_provider.hpp>

#include <fl/i18n/conversion.hpp>

#include <gtest/gtest.h>
#include <memory>
#include <string>
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

} // namespace
} // namespace foundation::storage::provider::http
