// What archives on servers cost: the numbers that are told to users.

#include "../tarred.hpp"
#include "../zipped.hpp"
#include "dav_fixture.hpp"

#include <foundation/storage/provider/extensions/i_end_first_streams.hpp>
#include <foundation/storage/provider/storage_item.hpp>
#include <foundation/storage/provider/tar/tar_factory.hpp>
#include <foundation/storage/provider/zip/zip_factory.hpp>

#include <cstdlib>
#include <filesystem>
#include <fstream>

namespace foundation::storage::provider::http::test {
namespace {

using provider::test::noise;
using provider::test::tarred;
using provider::test::zipped;

class HttpArchives : public Http {
  protected:
    HttpArchives() {
        std::string pattern = std::filesystem::temp_directory_path() / "vfs-archives-XXXXXX";
        folder_ = ::mkdtemp(pattern.data());
        write(zipped({{"first", 3000},
                      {"large", 900'000},
                      {"middle", 3000},
                      {"larger", 3'000'000},
                      {"last", 3000}}));
    }
    ~HttpArchives() override { std::filesystem::remove_all(folder_); }

    void write(std::string const& bytes) const {
        std::ofstream(folder_ + "/a.zip", std::ios::binary) << bytes;
    }
    /// With nothing forgotten in the time that a test takes.
    static HttpOptions usualOptions() {
        HttpOptions options;
        options.web = quickOptions().web;
        options.attributeLifetime = std::chrono::hours(1);
        return options;
    }
    /// By a provider of the server that knows nothing yet.
    void openArchive(std::string const& kind, HttpOptions const& options = usualOptions()) {
        item_ = at('/' + kind + folder_ + "/a.zip");
        archive_ = zip::buildZipProvider(StorageItem(provider(options), item_));
    }
    std::string bytesOf(std::string const& member) const {
        auto const stream = archive_->openReadOnlyStream(
            StorageIRI(u"zip", item_, u"/" + fl::i18n::to_ustring(member)));
        return readAt(*stream, 0, 1'000'000);
    }
    std::size_t countNames() const {
        std::size_t count = 0;
        for (auto const cursor = archive_->listAll(StorageIRI(u"zip", item_, u"/"), u"");
             cursor->hasNext();) {
            cursor->advance();
            ++count;
        }
        return count;
    }
    /// The methods that are asked for since the last call.
    std::string asked() {
        std::string words;
        std::vector<std::string> const requests = server_.requests();
        for (; seen_ < requests.size(); ++seen_) {
            std::size_t const method = requests[seen_].find('\t') + 1;
            words += (words.empty() ? "" : " ") +
                     requests[seen_].substr(method, requests[seen_].find('\t', method) - method);
        }
        return words;
    }

    std::string folder_;
    StorageIRI item_ = at("/");
    std::shared_ptr<IProvider> archive_;
    std::size_t seen_ = 0;
};

TEST_F(HttpArchives, AListingTakesAQuestionAndTheEnd) {
    openArchive("disk");
    EXPECT_EQ(countNames(), 5U);
    EXPECT_EQ(asked(), "HEAD GET");
}

TEST_F(HttpArchives, AMemberTakesOneMore) {
    openArchive("disk");
    EXPECT_EQ(bytesOf("middle"), noise(3000, 2));
    EXPECT_EQ(asked(), "HEAD GET GET");
    EXPECT_EQ(bytesOf("first"), noise(3000, 0));
    EXPECT_EQ(asked(), "GET");
    EXPECT_EQ(bytesOf("last"), noise(3000, 4));
    EXPECT_EQ(asked(), "");
}

TEST_F(HttpArchives, OfASmallOneEverythingComesAtOnce) {
    write(zipped({{"a", 20'000}, {"b", 20'000}}));
    openArchive("disk");
    EXPECT_EQ(bytesOf("a"), noise(20'000, 0));
    EXPECT_EQ(bytesOf("b"), noise(20'000, 1));
    EXPECT_EQ(asked(), "HEAD GET");
}

TEST_F(HttpArchives, OneThatRefusesTheEndIsAskedForTheStartAndTheEndOfThat) {
    openArchive("disk-without-ends");
    EXPECT_EQ(countNames(), 5U);
    EXPECT_EQ(asked(), "HEAD GET GET GET");
    EXPECT_EQ(bytesOf("middle"), noise(3000, 2));
    EXPECT_EQ(asked(), "GET");
    write(zipped({{"a", 20'000}, {"b", 20'000}}));
    openArchive("disk-without-ends");
    EXPECT_EQ(bytesOf("b"), noise(20'000, 1));
    EXPECT_EQ(asked(), "HEAD GET GET");
}

TEST_F(HttpArchives, WithoutRangesItIsReadToTheEndForTheDirectoryAndOnceForMembersInTheirOrder) {
    openArchive("disk-whole");
    EXPECT_EQ(countNames(), 5U);
    EXPECT_EQ(asked(), "HEAD GET");
    EXPECT_EQ(bytesOf("first"), noise(3000, 0));
    EXPECT_EQ(asked(), "GET");
    EXPECT_EQ(bytesOf("middle"), noise(3000, 2));
    EXPECT_EQ(bytesOf("last"), noise(3000, 4));
    EXPECT_EQ(asked(), "");
}

TEST_F(HttpArchives, MembersInTheirOrderTakeFewRequests) {
    std::vector<std::pair<std::string, std::size_t>> many;
    many.reserve(300);
    for (int i = 0; i < 300; ++i) {
        many.emplace_back("member" + std::to_string(i), 10'000);
    }
    write(zipped(many));
    openArchive("disk");
    for (unsigned i = 0; i < 300; ++i) {
        ASSERT_EQ(bytesOf(many[i].first), noise(10'000, i)) << i;
    }
    EXPECT_LE(server_.requests().size(), 20U); // for 3 MB
}

TEST_F(HttpArchives, AMissingOneIsMissing) {
    std::filesystem::remove(folder_ + "/a.zip");
    EXPECT_EQ(codeOf([&] { openArchive("disk"); }), 4);
}

TEST_F(HttpArchives, OneThatChangesIsReadAgain) {
    HttpOptions forgetful = usualOptions();
    forgetful.attributeLifetime = std::chrono::milliseconds(0);
    openArchive("disk", forgetful);
    write(zipped({{"other", 800'000}, {"middle", 4000}, {"more", 800'000}}));
    EXPECT_EQ(bytesOf("middle"), noise(4000, 1));
    EXPECT_EQ(codeOf([&] { bytesOf("first"); }), 4);
}

TEST_F(HttpArchives, WhatPassesThrowsNothingAwayThatWasReadOfOne) {
    std::vector<std::pair<std::string, std::size_t>> many;
    many.reserve(8);
    for (int i = 0; i < 8; ++i) {
        many.emplace_back("m" + std::to_string(i), 300'000);
    }
    HttpOptions giving = usualOptions();
    giving.web.attempts = 1;
    for (ustring const kind : {u"tar", u"zip"}) {
        write(kind == u"tar" ? tarred(many) : zipped(many));
        item_ = at("/disk-or-busy" + folder_ + "/a.zip");
        StorageItem const item(provider(giving), item_);
        archive_ = kind == u"tar" ? tar::buildTarProvider(item) : zip::buildZipProvider(item);
        auto const first = [&](ustring const& member) {
            return readAt(*archive_->openReadOnlyStream(StorageIRI(kind, item_, u"/" + member)), 0,
                          1000);
        };
        EXPECT_EQ(first(u"m1"), noise(1000, 1));
        asked();
        std::string const busy = folder_ + "/a.zip.busy";
        std::ofstream(busy).put('x');
        EXPECT_ANY_THROW(first(u"m4"));
        EXPECT_EQ(asked(), "GET");
        std::filesystem::remove(busy);
        EXPECT_EQ(first(u"m4"), noise(1000, 4));
        EXPECT_EQ(asked(), "GET") << "of a " << fl::i18n::to_string(kind);
    }
}

class DavArchives : public Dav {};

TEST_F(DavArchives, CostTheSame) {
    write("/dav-good/a.zip", zipped({{"first", 3000}, {"large", 900'000}, {"last", 200'000}}));
    HttpOptions options = boundedOptions();
    options.attributeLifetime = std::chrono::hours(1);
    options.firstRange = HttpOptions().firstRange;
    auto const provider = buildHttpProvider(at("/"), options);
    provider->getFolderAttributes(at("/dav-good/")); // that it is WebDAV
    std::size_t const before = server_.requests().size();
    StorageIRI const item = at("/dav-good/a.zip");
    auto const archive = zip::buildZipProvider(StorageItem(provider, item));
    EXPECT_EQ(server_.requests().size() - before, 2U);
    EXPECT_EQ(readAt(*archive->openReadOnlyStream(StorageIRI(u"zip", item, u"/first")), 0, 5000),
              noise(3000, 0));
    EXPECT_EQ(server_.requests().size() - before, 3U);
    EXPECT_EQ(readAt(*archive->openReadOnlyStream(StorageIRI(u"zip", item, u"/large")), 0, 900),
              noise(900, 1));
    EXPECT_EQ(server_.requests().size() - before, 4U);
}

TEST_F(DavArchives, AFolderIsNone) {
    StorageIRI const folder = at("/dav-good/f");
    provider_->createFolder(folder);
    EXPECT_EQ(codeOf([&] { zip::buildZipProvider(StorageItem(provider_, folder)); }), 1);
    EXPECT_EQ(codeOf([&] {
                  dynamic_cast<extensions::IEndFirstStreams&>(*provider_).openEndFirst(folder);
              }),
              codeOf([&] { provider_->openReadOnlyStream(folder); }));
}

} // namespace
} // namespace foundation::storage::provider::http::test
