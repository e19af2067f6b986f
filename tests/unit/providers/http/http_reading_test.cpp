// Reading from servers that keep to the protocol, each in its way.

#include "http_fixture.hpp"

#include <atomic>
#include <thread>
#include <vector>

namespace foundation::storage::provider::http::test {
namespace {

using ::testing::HasSubstr;

TEST_F(Http, ReadsTheSameBytesInEveryWayInWhichServersSendThem) {
    for (std::string const behaviour :
         {"good", "dated", "unmarked", "weak", "whole", "whole-without-length", "whole-in-chunks",
          "in-chunks", "of-unknown-size", "smaller-ranges", "hints-first", "folds",
          "redirected-until-it-expires"}) {
        for (std::size_t const size : {1, 999, 1000, 1001, 30'000}) {
            Reading const reading = read('/' + behaviour + '/' + std::to_string(size));
            EXPECT_EQ(reading.failure, "") << behaviour << ' ' << size;
            EXPECT_EQ(reading.bytes, content(size)) << behaviour << ' ' << size;
        }
    }
}

TEST_F(Http, ReadsEmptyFiles) {
    for (std::string const behaviour :
         {"good", "whole", "whole-without-length", "whole-in-chunks", "of-unknown-size"}) {
        Reading const reading = read('/' + behaviour + "/0");
        EXPECT_EQ(reading.failure, "") << behaviour;
        EXPECT_EQ(reading.bytes, "") << behaviour;
    }
}

TEST_F(Http, TakesFewRequestsToReadAFileToItsEnd) {
    HttpOptions options = quickOptions();
    options.largestRange = 64'000;
    ASSERT_EQ(read("/good/300000", options).bytes, content(300'000));

    // 1,000, 4,000, 16,000 bytes, and the rest, as 64,000 is the largest.
    auto const requests = server_.requests();
    ASSERT_EQ(requests.size(), 4U);
    EXPECT_THAT(requests[0], HasSubstr("range: bytes=0-999"));
    EXPECT_THAT(requests[1], HasSubstr("range: bytes=1000-4999"));
    EXPECT_THAT(requests[2], HasSubstr("range: bytes=5000-20999"));
    EXPECT_THAT(requests[3], HasSubstr("range: bytes=21000-\t"));
    for (std::string const& request : requests) {
        EXPECT_THAT(request, HasSubstr("accept-encoding: identity"));
    }
}

TEST_F(Http, ReadsASmallPieceWithARequestOfItsSize) {
    auto const stream = open("/good/300000");

    EXPECT_EQ(readAt(*stream, 250'000, 10), content(250'010, 250'000));
    EXPECT_EQ(readAt(*stream, 100'000, 10), content(100'010, 100'000));
    EXPECT_EQ(readAt(*stream, 100'300, 10), content(100'310, 100'300)); // asked for already

    EXPECT_EQ(server_.requests().size(), 3U);
    EXPECT_EQ(server_.countOf("range: bytes=250000-250999"), 1U);
    EXPECT_EQ(server_.countOf("range: bytes=100000-100999"), 1U);
}

TEST_F(Http, AsksForOneVersionFromTheSecondRequestOn) {
    read("/good/5000");
    EXPECT_EQ(server_.countOf("if-range: \"one\""), server_.requests().size() - 1);
    read("/dated/2000");
    EXPECT_EQ(server_.countOf("if-range: Sat, 01 Jun 2024 10:00:00 GMT"), 1U);
    read("/weak/2000"); // a weak one may stand for several contents; then the date has to do
    EXPECT_EQ(server_.countOf("if-range: Sat, 01 Jun 2024 10:00:00 GMT"), 2U);
    read("/empty-tag/2000"); // tells nothing
    EXPECT_EQ(server_.countOf("if-range: Sat, 01 Jun 2024 10:00:00 GMT"), 3U);
}

TEST_F(Http, SeeksAsInAnyFile) {
    auto const stream = open("/good/5000");

    EXPECT_EQ(stream->seek(-10, std::ios_base::end), 4990);
    char buffer[20];
    EXPECT_EQ(stream->read(buffer, sizeof buffer), 10);
    EXPECT_EQ(std::string(buffer, 10), content(5000, 4990));
    EXPECT_EQ(stream->read(buffer, sizeof buffer), -1);
    EXPECT_EQ(stream->seek(-4000, std::ios_base::cur), 1000);
    EXPECT_EQ(stream->read(buffer, 1), 1);
    EXPECT_EQ(buffer[0], content(1001, 1000)[0]);
    EXPECT_EQ(stream->seek(9000, std::ios_base::beg), 9000);
    EXPECT_EQ(stream->read(buffer, 1), -1);
    EXPECT_EQ(stream->read(buffer, 0), 0);
    EXPECT_THROW(stream->seek(-1, std::ios_base::beg), ByteStreamSeekFailure);
    EXPECT_EQ(stream->seek(0, std::ios_base::cur), 9000);
    stream->close();
    EXPECT_THROW(stream->read(buffer, 1), ByteStreamReadFailure);
    EXPECT_THROW(stream->close(), ByteStreamCloseFailure);
}

TEST_F(Http, SeeksBackWhereTheServerKnowsNoRangesByReadingAgain) {
    auto const stream = open("/whole/50000");

    EXPECT_EQ(readAt(*stream, 40'000, 10), content(40'010, 40'000));
    EXPECT_EQ(server_.requests().size(), 1U);
    EXPECT_EQ(readAt(*stream, 7, 10), content(17, 7));
    EXPECT_EQ(readAt(*stream, 49'995, 10), content(50'000, 49'995));
    EXPECT_EQ(server_.requests().size(), 2U);
    EXPECT_EQ(stream->seek(0, std::ios_base::end), 50'000);
}

TEST_F(Http, CannotSeekFromAnEndThatTheServerDoesNotTell) {
    auto const stream = open("/whole-in-chunks/50000");
    try {
        stream->seek(0, std::ios_base::end);
        FAIL() << "the end was made up";
    } catch (ByteStreamSeekFailure const& failure) {
        EXPECT_EQ(failure.getErrorCode(), ErrorCode::UnsupportedOperation);
    }
    EXPECT_EQ(readAt(*stream, 49'000, 2000), content(50'000, 49'000));
    EXPECT_EQ(stream->seek(0, std::ios_base::end), 50'000); // by now it is known
}

TEST_F(Http, TellsWhatIsKnownOfAFile) {
    auto const provider = this->provider();

    AttributeValues const values = provider->getFileAttributes(at("/good/1234")).values();
    EXPECT_EQ(values.size, 1234U);
    EXPECT_EQ(values.lastModified.seconds, 1'717'236'000);
    EXPECT_FALSE(values.writable);
    auto const extended = provider->getExtendedAttributes(at("/good/1234"));
    EXPECT_EQ(extended.at("http.etag"), "\"one\"");
    EXPECT_EQ(extended.at("http.last-modified"), "Sat, 01 Jun 2024 10:00:00 GMT");
    EXPECT_EQ(provider->exists(at("/good/1234")), ExistsResult::File);
    EXPECT_TRUE(provider->fileExists(at("/good/1234")));
    EXPECT_FALSE(provider->folderExists(at("/good/1234")));
    EXPECT_EQ(provider->exists(at("/missing")), ExistsResult::Nothing);
    EXPECT_EQ(provider->exists(at("/status/410")), ExistsResult::Nothing);
    EXPECT_EQ(codeOf([&] { provider->getFileAttributes(at("/missing")); }), 4);
    // Whether there are folders is asked where the kind is, once for each folder, and then of the
    // first name and of the root for what is missing.
    EXPECT_EQ(server_.countOf("\tOPTIONS\t"), 6U);
    EXPECT_EQ(server_.countOf("\tHEAD\t") + 6U, server_.requests().size());
    EXPECT_FALSE(provider->getFileAttributes(at("/whole-in-chunks/5")).values().size);
}

TEST_F(Http, AnswersFromWhatItWasToldAMomentAgoWhereThatIsWanted) {
    HttpOptions options = quickOptions();
    options.attributeLifetime = std::chrono::hours(1);
    auto const provider = this->provider(options);
    for (int i = 0; i < 3; ++i) {
        EXPECT_EQ(provider->getFileAttributes(at("/good/5")).values().size, 5U);
        EXPECT_EQ(provider->exists(at("/good/5")), ExistsResult::File);
        EXPECT_EQ(provider->getExtendedAttributes(at("/good/5")).at("http.etag"), "\"one\"");
        EXPECT_EQ(provider->exists(at("/good/5?other")), ExistsResult::File);
        EXPECT_EQ(provider->exists(at("/missing")), ExistsResult::Nothing);
    }
    // What is missing may come.
    EXPECT_EQ(server_.countOf("\tHEAD\t"), 2U + 3U);
    for (int i = 0; i < 200; ++i) {
        provider->exists(at("/good/" + std::to_string(i)));
    }
    EXPECT_EQ(provider->exists(at("/good/199")), ExistsResult::File);
    EXPECT_EQ(server_.countOf("/good/199"), 1U);
}

TEST_F(Http, AsksForAByteWhereHeadIsRefused) {
    for (std::string const behaviour : {"refuses-head", "forbids-head"}) {
        auto const provider = this->provider();
        for (int i = 0; i < 3; ++i) {
            auto const values = provider->getFileAttributes(at('/' + behaviour + "/1234")).values();
            EXPECT_EQ(values.size, 1234U) << behaviour;
        }
        EXPECT_EQ(provider->getFileAttributes(at('/' + behaviour + "/0")).values().size, 0U);
    }
    // That a method is not allowed holds for the server; that something is forbidden may not.
    EXPECT_EQ(server_.countOf("\tHEAD\t/refuses-head"), 1U);
    EXPECT_EQ(server_.countOf("\tHEAD\t/forbids-head"), 4U);
}

TEST_F(Http, RefusesChangesAndListings) {
    auto const provider = this->provider();
    StorageIRI const file = at("/good/5");
    EXPECT_EQ(codeOf([&] { provider->createFile(at("/new")); }), 7);
    EXPECT_EQ(codeOf([&] { provider->removeFile(file); }), 7);
    EXPECT_EQ(codeOf([&] { provider->setWritable(file, true); }), 7);
    EXPECT_EQ(codeOf([&] { provider->moveFile(file, at("/new"), ReplacementPolicy()); }), 7);
    EXPECT_EQ(codeOf([&] { provider->openStream(file, {}); }), 7);
    EXPECT_EQ(codeOf([&] { provider->listAll(at("/"), u""); }), 11);
    EXPECT_EQ(server_.countOf("\tOPTIONS\t"), server_.requests().size());
}

TEST_F(Http, ServesItsOwnAuthorityAlone) {
    auto const provider = this->provider();
    for (std::string const& text :
         {"http://" + server_.otherAuthority() + "/good/1", "https://" + server_.authority() + '/',
          "http://ann@" + server_.authority() + '/',
          "zip:" + ("http://" + server_.authority()) + "/a!/b"}) {
        StorageIRI const location(fl::i18n::to_ustring(text));
        EXPECT_EQ(codeOf([&] { provider->exists(location); }), 1) << text;
        EXPECT_EQ(codeOf([&] { provider->openReadOnlyStream(location); }), 1) << text;
    }
    EXPECT_EQ(codeOf([] { buildHttpProvider(StorageIRI(u"http:/no-host")); }), 1);
}

TEST_F(Http, SendsThePathAndTheQueryAsTheyStand) {
    auto const provider = this->provider();
    for (auto const& [path, sent] :
         {std::pair{"/a b/\xc3\xa9?q=1 2&r=%20", "/a%20b/%C3%A9?q=1%202&r=%20"},
          std::pair{"/x//y/", "/x//y/"}, std::pair{"/a/./b/../c", "/a/c"},
          std::pair{"/a+b;c=d,e@f:g", "/a+b;c=d,e@f:g"}, std::pair{"/%41%2b%ff?", "/%41%2b%ff"},
          std::pair{"", "/"}}) {
        provider->exists(at(path));
        std::string const request = server_.requests().back();
        EXPECT_THAT(request, HasSubstr("\tHEAD\t" + std::string(sent))) << path;
    }
}

TEST_F(Http, ReadsWithManyThreadsOverFewConnections) {
    auto const provider = this->provider();
    std::vector<std::thread> threads;
    std::atomic<int> right{0};
    for (int t = 0; t < 8; ++t) {
        threads.emplace_back([&, t] {
            for (int i = 0; i < 4; ++i) {
                auto const size = static_cast<std::size_t>(3000 + 100 * t + i);
                auto const stream =
                    provider->openReadOnlyStream(at("/good/" + std::to_string(size)));
                right += readAt(*stream, 0, 10'000) == content(size) ? 1 : 0;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    EXPECT_EQ(right, 32);
}

TEST(HttpFactory, GivesOneProviderForEachAuthority) {
    HttpProviderFactory const factory;
    auto const first = factory.buildProvider(StorageIRI(u"http://one.example/a?b"));
    EXPECT_EQ(factory.buildProvider(StorageIRI(u"http://one.example/c")), first);
    EXPECT_NE(factory.buildProvider(StorageIRI(u"https://one.example/c")), first);
    EXPECT_NE(factory.buildProvider(StorageIRI(u"http://one.example:81/c")), first);
    factory.shutdownProvider();
    EXPECT_NE(factory.buildProvider(StorageIRI(u"http://one.example/c")), first);
}

} // namespace
} // namespace foundation::storage::provider::http::test
