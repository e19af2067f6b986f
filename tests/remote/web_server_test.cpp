// Files of a web server that many use.

#include "server.hpp"

#include "unit/providers/http/trustful_request.hpp"

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/extensions/i_end_first_streams.hpp>
#include <foundation/storage/provider/extensions/i_pinned_stream.hpp>
#include <foundation/storage/provider/http/http_factory.hpp>
#include <foundation/storage/provider/i_provider.hpp>

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <sys/stat.h>
#include <utility>

namespace foundation::storage::provider::http::test {
namespace {

using provider::test::told;

constexpr long fileSize = 3'000'000;

class WebServer : public ::testing::Test {
  protected:
    void SetUp() override {
        VFS_NEEDS_SERVER("VFS_TEST_WEB_URL");
        for (std::size_t i = 0; i < fileSize; ++i) {
            content_ += static_cast<char>((i * 7 + (i >> 8) * 13) & 255);
        }
        std::ofstream(fileOf(name_), std::ios::binary) << content_;
    }
    void TearDown() override { std::filesystem::remove(fileOf(name_)); }

    static std::string fileOf(std::string const& name) {
        return told("VFS_TEST_WEB_ROOT") + '/' + name;
    }
    static HttpOptions options() {
        HttpOptions options;
        options.web.proxy = "";
        options.web.certificateFile = told("VFS_TEST_WEB_CA_CERT");
        return options;
    }
    static StorageIRI at(std::string const& url) { return StorageIRI(fl::i18n::to_ustring(url)); }

    /// The bytes, or "code CODE".
    static std::string read(std::string const& url, HttpOptions const& options) try {
        StorageIRI const location = at(url);
        auto const stream = buildHttpProvider(location, options)->openReadOnlyStream(location);
        std::string result;
        char buffer[10'000];
        for (long got = 0; (got = stream->read(buffer, sizeof buffer)) > 0;) {
            result.append(buffer, static_cast<std::size_t>(got));
        }
        stream->close();
        return result;
    } catch (Exception const& failure) {
        return "code " + std::to_string(static_cast<int>(failure.getErrorCode()));
    } catch (ByteStreamFailure const& failure) {
        return "code " + std::to_string(static_cast<int>(failure.getErrorCode()));
    }

    // Other tests use the same server at the same time.
    std::string const name_ =
        ::testing::UnitTest::GetInstance()->current_test_info()->name() + std::string(".bin");
    std::string content_;
};

TEST_F(WebServer, IsReadByEveryWayThatItServesAFile) {
    for (char const* const path : {"/html/", "/norange/", "/gzip/", "/moved/"}) {
        EXPECT_TRUE(read(told("VFS_TEST_WEB_URL") + path + name_, options()) == content_) << path;
        EXPECT_TRUE(read(told("VFS_TEST_WEB_TLS_URL") + path + name_, options()) == content_)
            << path;
    }
}

TEST_F(WebServer, IsReadFromTheEndByEveryWay) {
    for (char const* const path : {"/html/", "/norange/", "/gzip/", "/moved/"}) {
        StorageIRI const location = at(told("VFS_TEST_WEB_URL") + path + name_);
        for (std::uint64_t const first : {64'000U, 2'000'000U}) { // and as a whole
            HttpOptions some = options();
            some.firstRange = first;
            auto const provider = buildHttpProvider(location, some);
            auto const stream =
                dynamic_cast<extensions::IEndFirstStreams&>(*provider).openEndFirst(location);
            auto const other = dynamic_cast<extensions::IPinnedStream&>(*stream).openAnother();
            for (auto const& one : {stream.get(), other.get()}) {
                EXPECT_EQ(one->seek(-200'000, std::ios_base::end), fileSize - 200'000) << path;
                std::string bytes(300'000, '\0');
                ASSERT_EQ(one->read(bytes.data(), 300'000), 200'000) << path;
                bytes.resize(200'000);
                EXPECT_TRUE(bytes == content_.substr(fileSize - 200'000)) << path;
                one->seek(1000, std::ios_base::beg);
                ASSERT_EQ(one->read(bytes.data(), 100'000), 100'000) << path;
                EXPECT_TRUE(bytes.substr(0, 100'000) == content_.substr(1000, 100'000)) << path;
            }
        }
    }
}

TEST_F(WebServer, TellsSizeAndTime) {
    std::string const url = told("VFS_TEST_WEB_URL") + "/html/";
    auto const provider = buildHttpProvider(at(url), options());
    auto const attributes = provider->getFileAttributes(at(url + name_));
    EXPECT_EQ(attributes.values().size, fileSize);
    struct ::stat status {};
    ASSERT_EQ(::stat(fileOf(name_).c_str(), &status), 0);
    EXPECT_EQ(attributes.values().lastModified.seconds, status.st_mtim.tv_sec);
    EXPECT_EQ(provider->exists(at(url + "missing")), ExistsResult::Nothing);
}

TEST_F(WebServer, GivesPrivateFilesToWhoHasThePassword) {
    std::string const url = told("VFS_TEST_WEB_URL") + "/private/" + name_;
    EXPECT_EQ(read(url, options()), "code 2");
    HttpOptions known = options();
    known.user = "test";
    known.password = "wrong";
    EXPECT_EQ(read(url, known), "code 2");
    known.password = "secret";
    EXPECT_TRUE(read(url, known) == content_);
}

TEST_F(WebServer, IsNotTrustedWithoutAValidCertificate) {
    HttpOptions others = options();
    others.web.certificateFile.clear(); // those of the system, which do not know this one
    for (auto const& [folder, given] :
         {std::pair{told("VFS_TEST_WEB_EXPIRED_URL") + '/', options()},
          std::pair{told("VFS_TEST_WEB_WRONG_NAME_URL") + '/', options()},
          std::pair{told("VFS_TEST_WEB_TLS_URL") + "/html/", others}}) {
        EXPECT_EQ(read(folder + name_, given), "code 9");
        // Whoever does not look is answered.
        EXPECT_EQ(statusForTheTrustful(folder + name_), 200) << folder;
    }
}

TEST_F(WebServer, DoesNotMixTwoVersionsOfAFile) {
    std::string const url = told("VFS_TEST_WEB_URL") + "/html/" + name_;
    auto const stream = buildHttpProvider(at(url), options())->openReadOnlyStream(at(url));
    char buffer[100];
    ASSERT_EQ(stream->read(buffer, sizeof buffer), 100);
    std::string const other(fileSize, 'x');
    std::ofstream(fileOf(name_ + ".new"), std::ios::binary) << other;
    std::filesystem::last_write_time(fileOf(name_ + ".new"),
                                     std::filesystem::last_write_time(fileOf(name_)) +
                                         std::chrono::seconds(2));
    std::filesystem::rename(fileOf(name_ + ".new"), fileOf(name_));
    stream->seek(2'000'000, std::ios_base::beg);
    EXPECT_THROW(stream->read(buffer, sizeof buffer), ByteStreamFailure);
}

} // namespace
} // namespace foundation::storage::provider::http::test
