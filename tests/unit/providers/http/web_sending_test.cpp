// Requests that carry something, and requests that are not to be sent twice.

#include "lying_server.hpp"

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/web/client.hpp>

#include <gmock/gmock.h>

#include <chrono>
#include <future>
#include <stdexcept>
#include <stop_token>
#include <thread>

namespace foundation::storage::provider::web {
namespace {

using http::test::content;
using http::test::LyingServer;
using ::testing::HasSubstr;
using ::testing::Not;

class WebSending : public ::testing::Test {
  protected:
    static WebOptions quickOptions() {
        WebOptions options;
        options.proxy = "";
        options.firstPause = std::chrono::milliseconds(1);
        options.longestPause = std::chrono::milliseconds(5);
        options.operationTimeout = std::chrono::milliseconds(20'000);
        return options;
    }
    Url at(std::string const& path) const {
        return Url::of(StorageIRI(fl::i18n::to_ustring("http://" + server_.authority() + path)));
    }
    Client client(WebOptions const& options = quickOptions(), Identity identity = {}) const {
        return {at("/"), std::move(identity), options};
    }

    /// "STATUS BODY" of the answer, or "code CODE: TEXT".
    static std::string sent(Client const& client, Request const& request) try {
        Deadline const deadline = client.deadline();
        auto const answer = client.send(request, deadline);
        std::string result = std::to_string(answer->head(deadline).status) + ' ';
        char buffer[100];
        while (std::size_t const got = answer->read(buffer, deadline)) {
            result.append(buffer, got);
        }
        return result;
    } catch (Failure const& failure) {
        return "code " + std::to_string(static_cast<int>(failure.code())) + ": " + failure.what();
    }
    Request put(std::string const& path, std::string const& bytes) const {
        Request request{"PUT", at(path)};
        request.body = Body::of(bytes);
        return request;
    }

    LyingServer server_;
};

TEST_F(WebSending, BringsBodiesOfAllSizes) {
    Client const web = client();
    for (std::size_t const size : {0, 1, 65'535, 65'536, 1'500'000}) {
        std::string const bytes = content(size);
        EXPECT_EQ(sent(web, put("/takes/" + std::to_string(size), bytes)),
                  "200 " + std::to_string(size) + " bytes, right");
    }
    EXPECT_EQ(server_.countOf("content-length: 0"), 1U);
    EXPECT_EQ(server_.countOf("expect:"), 0U);
    EXPECT_EQ(server_.countOf("transfer-encoding:"), 0U);
    EXPECT_EQ(server_.countOf("on-connection: 1"), 5U);
}

TEST_F(WebSending, SendsABodyFromItsStartEachTime) {
    std::string const bytes = content(300'000);
    EXPECT_EQ(sent(client(), put("/takes-at-the-third-time/300000", bytes)),
              "200 300000 bytes, right");
    EXPECT_EQ(server_.requests().size(), 3U);
}

TEST_F(WebSending, SendsOnceWhatMayHaveBeenDone) {
    std::string const bytes = content(1000);
    Request request = put("/takes-and-is-lost/1000", bytes);
    request.isRepeatable = false;
    try {
        Client const web = client();
        web.send(request, web.deadline());
        FAIL();
    } catch (Failure const& failure) {
        EXPECT_TRUE(failure.mayPass());
        EXPECT_FALSE(failure.cannotHaveCome());
        EXPECT_STREQ(failure.what(), "the connection was lost");
    }
    EXPECT_EQ(server_.requests().size(), 1U);
}

TEST_F(WebSending, SendsOnceAlsoWhereAnOpenConnectionIsLost) {
    std::string const bytes = content(1000);
    Client const web = client();
    Request request = put("/loses-what-comes-on-an-open-connection/1000", bytes);
    EXPECT_EQ(sent(web, request), "200 1000 bytes, right");
    request.isRepeatable = false;
    EXPECT_EQ(sent(web, request), "200 1000 bytes, right");
    EXPECT_EQ(server_.requests().size(), 2U);
}

TEST_F(WebSending, SendsAgainWhatTheServerHasNotDone) {
    std::string const bytes = content(1000);
    Request request = put("/busy-twice/0", {});
    request.isRepeatable = false;
    EXPECT_THAT(sent(client(), request), HasSubstr("200 "));
    EXPECT_EQ(server_.requests().size(), 3U);
}

TEST_F(WebSending, SaysThatNothingCanHaveComeWhereNobodyListens) {
    Client const web = client();
    Request request{"POST", Url::of(StorageIRI(u"http://127.0.0.1:1/"))};
    request.isRepeatable = false;
    try {
        web.send(request, web.deadline());
        FAIL();
    } catch (Failure const& failure) {
        EXPECT_TRUE(failure.cannotHaveCome());
    }
}

TEST_F(WebSending, TakesARefusalBeforeTheEndOfTheBody) {
    // So much that it cannot all be under way when the refusal comes.
    std::string const bytes = content(20'000'000);
    WebOptions options = quickOptions();
    options.attempts = 1;
    EXPECT_THAT(sent(client(options), put("/refuses-before-the-end/20000000", bytes)),
                ::testing::AnyOf("403 ", "code 9: the connection was lost"));
}

TEST_F(WebSending, BelievesNoSuccessBeforeTheEndOfTheBody) {
    std::string const bytes = content(20'000'000);
    WebOptions options = quickOptions();
    options.attempts = 1;
    EXPECT_EQ(sent(client(options), put("/agrees-before-the-end/20000000", bytes)),
              "code 9: the server answered before it had the whole request");
}

TEST_F(WebSending, WaitsNoLongerForAServerThatTakesNothing) {
    std::string const bytes = content(20'000'000);
    WebOptions options = quickOptions();
    options.attempts = 1;
    options.stallTimeout = std::chrono::milliseconds(100);
    EXPECT_EQ(sent(client(options), put("/stops-taking/20000000", bytes)),
              "code 9: the server has sent or taken nothing for too long");
}

TEST_F(WebSending, IsPatientWhileTheServerTakesSomething) {
    std::string const bytes = content(8'000'000);
    WebOptions options = quickOptions();
    options.stallTimeout = std::chrono::milliseconds(1000);
    EXPECT_EQ(sent(client(options), put("/takes-slowly/8000000", bytes)), "200 8000000 bytes");
    EXPECT_EQ(server_.requests().size(), 1U);
}

TEST_F(WebSending, KeepsMethodAndBodyOverRedirects) {
    std::string const bytes = content(1000);
    for (char const* const status : {"301", "302", "307", "308"}) {
        EXPECT_EQ(sent(client(), put("/takes-elsewhere/1000?" + std::string(status), bytes)),
                  "200 1000 bytes, right");
    }
    EXPECT_EQ(server_.countOf("PUT\t/takes/1000"), 4U);
}

TEST_F(WebSending, FollowsNoRedirectThatChangesTheMethod) {
    std::string const bytes = content(1000);
    EXPECT_EQ(sent(client(), put("/takes-elsewhere/1000?303", bytes)), "303 ");
    Request post = put("/takes-elsewhere/1000?302", bytes);
    post.method = "POST";
    EXPECT_EQ(sent(client(), post), "302 ");
    EXPECT_EQ(server_.countOf("/takes/1000"), 0U);
}

TEST_F(WebSending, PassesOnWhyABodyCannotBeRead) {
    Client const web = client();
    Request request{"PUT", at("/takes/1000")};
    request.body = Body{
        1000, [](std::uint64_t, std::span<char>) { throw std::out_of_range("the disk is gone"); }};
    EXPECT_THROW(web.send(request, web.deadline()), std::out_of_range);
}

TEST_F(WebSending, SignsEachSendingAnewAndForItsOwnOriginAlone) {
    unsigned count = 0;
    Identity identity;
    identity.sign = [&](Request& request) {
        request.headers.add("X-Signature", "canary-" + std::to_string(++count));
    };
    std::string const bytes = content(1000);
    Client const web = client(quickOptions(), identity);
    EXPECT_EQ(sent(web, put("/takes-at-the-third-time/1000", bytes)), "200 1000 bytes, right");
    for (char const* const signature : {"canary-1", "canary-2", "canary-3"}) {
        EXPECT_EQ(server_.countOf(signature), 1U);
    }
    EXPECT_EQ(sent(web, put("/takes-at-another-origin/1000", bytes)), "200 1000 bytes, right");
    EXPECT_THAT(server_.requests().back(), Not(HasSubstr("canary")));
}

TEST_F(WebSending, SignsAnewAlsoWhereAnOpenConnectionIsOfNoUse) {
    unsigned count = 0;
    Identity identity;
    identity.sign = [&](Request& request) {
        request.headers.add("X-Signature", "canary-" + std::to_string(++count));
    };
    Client const web = client(quickOptions(), identity);
    Request const request{"GET", at("/garbled-when-used-again/5")};
    EXPECT_EQ(sent(web, request), "200 " + content(5));
    EXPECT_EQ(sent(web, request), "200 " + content(5));
    for (char const* const signature : {"canary-1", "canary-2", "canary-3"}) {
        EXPECT_EQ(server_.countOf(signature), 1U);
    }
}

// The body's own failure is the reason, not that the server has not waited for its end.
TEST_F(WebSending, PassesOnWhyABodyCannotBeReadAlsoBehindAnAnswer) {
    Client const web = client();
    Request request{"PUT", at("/agrees-before-the-end/20000000")};
    unsigned pieces = 0;
    request.body = Body{20'000'000, [&](std::uint64_t, std::span<char>) {
                            if (++pieces == 2) { // by then the answer is there
                                std::this_thread::sleep_for(std::chrono::milliseconds(100));
                            } else if (pieces == 3) {
                                throw std::out_of_range("the disk is gone");
                            }
                        }};
    EXPECT_THROW(web.send(request, web.deadline()), std::out_of_range);
    EXPECT_EQ(server_.requests().size(), 1U);
}

TEST_F(WebSending, GivesAServerTimeToWorkOnceItHasTheRequest) {
    std::string const bytes = content(2'000'000);
    Client const web = client();
    Request request = put("/takes-slowly/2000000", bytes);
    request.takesTime = true;
    request.longestWork = std::chrono::milliseconds(1000);
    EXPECT_EQ(sent(web, request), "200 2000000 bytes");
    request.url = at("/never-answers/0");
    request.body = Body::of(std::span<char const>());
    EXPECT_EQ(sent(web, request), "code 9: the server took longer than the operation may");
}

TEST_F(WebSending, EndsAtOnceWhereItIsStopped) {
    WebOptions patient;
    patient.proxy = "";
    patient.firstPause = patient.longestPause = std::chrono::minutes(2);
    Client const web = client(patient);
    for (std::string const path :
         {"/never-answers/1000", "/stalls-in-the-body/1000", "/always-busy/1000",
          // Where the stop comes between an answer and the pause after it is for chance to say.
          "/always-busy/1001", "/always-busy/1002", "/always-busy/1003", "/always-busy/1004"}) {
        std::stop_source stop;
        auto failed = std::async(std::launch::async, [&] {
            try {
                Deadline const deadline = web.deadline(stop.get_token());
                auto const answer = web.send({"GET", at(path)}, deadline);
                char buffer[100];
                while (answer->read(buffer, deadline) > 0) {
                }
                return false;
            } catch (Failure const&) {
                return true;
            }
        });
        while (server_.countOf(path) == 0) {
            std::this_thread::yield();
        }
        stop.request_stop();
        ASSERT_EQ(failed.wait_for(std::chrono::seconds(15)), std::future_status::ready) << path;
        EXPECT_TRUE(failed.get()) << path;
    }
}

TEST(WebOverTls, SaysThatACertificateIsNotValid) {
    using Tls = LyingServer::Tls;
    for (Tls const tls : {Tls::Expired, Tls::OfAnotherName, Tls::Yes}) {
        LyingServer const server(tls);
        Url const root =
            Url::of(StorageIRI(fl::i18n::to_ustring("https://" + server.secureAuthority() + '/')));
        WebOptions options;
        options.proxy = "";
        options.certificateFile = tls == Tls::Yes ? "" : server.certificate();
        Client const client(root, {}, options);
        Deadline const deadline = client.deadline();
        try {
            client.send({"GET", root}, deadline)->head(deadline);
            ADD_FAILURE() << "is answered";
        } catch (Failure const& failure) {
            EXPECT_EQ(failure.code(), ErrorCode::IOError);
            EXPECT_THAT(failure.what(), HasSubstr("the certificate of the server is not valid"));
            EXPECT_FALSE(failure.mayPass()); // so it is asked once
        }
        EXPECT_EQ(server.tlsConnections(), 1U);
        EXPECT_EQ(server.requests().size(), 0U);
    }
}

} // namespace
} // namespace foundation::storage::provider::web
