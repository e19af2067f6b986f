#include "lying_target.hpp"

#include "plain_request.hpp"

#include "unit/providers/http/trustful_request.hpp"

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/http/http_factory.hpp>
#ifdef WITH_S3
#include <foundation/storage/provider/s3/s3_factory.hpp>
#endif

#include <algorithm>
#include <sstream>
#include <stdexcept>

namespace remote_faults {

using std::chrono::milliseconds;
using Tls = LyingServer::Tls;

namespace {

/// Where lies are told at the server's own end.
class LineOfTruth final : public FaultLine {
  public:
    LineOfTruth(LyingServer const& server, std::string met, Tls tls)
        : server_(server),
          met_(std::move(met)),
          tls_(tls) {}

    void set(Fault const&) override { before_ = counts(); }
    FaultCounts clear() override {
        FaultCounts const now = counts();
        return {now.requests - before_.requests, now.applied - before_.applied};
    }

  private:
    FaultCounts counts() const {
        auto const requests = static_cast<unsigned>(server_.requests().size());
        return {requests, static_cast<unsigned>(tls_ == Tls::No ? server_.countOf(met_)
                                                                : server_.tlsConnections())};
    }

    LyingServer const& server_;
    std::string const met_;
    Tls const tls_;
    FaultCounts before_{};
};

std::string get(std::string const& url) {
    PlainAnswer answer = plainRequest("GET", url);
    if (answer.status != 200) {
        throw std::runtime_error(url + " gives " + std::to_string(answer.status));
    }
    return std::move(answer.body);
}

/// Nothing but uploads, and those of one bucket.
class LyingSide final : public ServerSide {
  public:
    explicit LyingSide(std::string uploads) : uploads_(std::move(uploads)) {}

    void put(std::string const& path, std::string const&) override { refuse(path); }
    void remove(std::string const& path) override { refuse(path); }
    Files files(std::string const& folder) override { return refuse(folder), Files{}; }
    std::vector<std::string> takeUploads() override {
        std::vector<std::string> keys;
        if (!uploads_.empty()) {
            std::istringstream lines(get(uploads_));
            for (std::string key; std::getline(lines, key);) {
                keys.push_back(key);
            }
        }
        return keys;
    }

  private:
    static void refuse(std::string const& path) {
        throw std::logic_error(path + " of a server that lies");
    }

    std::string const uploads_;
};

void requireKnown(LyingServer const& server, std::string const& behaviour) {
    get("http://" + server.authority() + "/__knows/" + behaviour);
}

/// That it is there for whoever does not look, so that who refuses it does so for its certificate.
void requireServer(LyingServer const& server, std::string const& path, Tls tls) {
    if (tls != Tls::No && provider::http::test::statusForTheTrustful(
                              "https://" + server.secureAuthority() + path) != 200) {
        throw std::runtime_error("a server that lies does not answer over TLS");
    }
}

std::string originOf(LyingServer const& server, Tls tls) {
    return tls == Tls::No ? "http://" + server.authority() : "https://" + server.secureAuthority();
}

/// Nobody vouches for a certificate that is in order.
std::string authorityFor(LyingServer const& server, Tls tls) {
    return tls == Tls::Expired || tls == Tls::OfAnotherName ? server.certificate() : std::string();
}

LyingServer const& started(std::map<Tls, std::unique_ptr<LyingServer>>& servers, Tls tls,
                           char const* script) {
    std::unique_ptr<LyingServer>& server = servers[tls];
    if (!server) {
        server = std::make_unique<LyingServer>(tls, script);
    }
    return *server;
}

std::string objectUrl(LyingServer const& store, std::string const& bucket, std::string const& key) {
    return "http://" + store.authority() + "/__object/" + bucket + '/' + key;
}

} // namespace

LyingServer const& LyingServers::web(Tls tls) {
    return started(web_, tls, LYING_SERVER);
}

LyingServer const& LyingServers::store(Tls tls) {
    return started(store_, tls, LYING_STORE);
}

Target lyingWeb(LyingServer const& server, std::string const& name, std::string const& behaviour,
                std::string const& met, Tls tls) {
    requireKnown(server, behaviour);
    requireServer(server, "/good/10", tls);
    static constexpr char password[] = "canary5liar37";
    provider::StorageIRI const root(
        fl::i18n::to_ustring(originOf(server, tls) + '/' + behaviour + '/'));
    std::string const authority = authorityFor(server, tls);
    auto const make = [root, authority](Who, milliseconds patience) {
        provider::http::HttpOptions options;
        options.web = webOptions(patience);
        options.web.certificateFile = authority;
        options.user = "canary";
        options.password = password;
        options.attributeLifetime = milliseconds(0);
        options.firstRange = 1'000; // so that small files take several requests
        options.largestListing = std::uint64_t{1024} * 1024;
        return provider::http::buildHttpProvider(root, options);
    };
    return {name,
            root,
            make,
            std::make_shared<LyingSide>(""),
            std::make_shared<LineOfTruth>(server, met, tls),
            {password, base64("canary:" + std::string(password))},
            {}};
}

#ifdef WITH_S3
Target lyingStore(LyingServer const& server, std::string const& behaviour, std::string const& met,
                  Tls tls) {
    requireKnown(server, behaviour);
    requireServer(server, "/open", tls);
    provider::StorageIRI const root(fl::i18n::to_ustring("s3://" + behaviour + '/'));
    std::string const endpoint = originOf(server, tls);
    std::string const authority = authorityFor(server, tls);
    auto const make = [root, endpoint, authority](Who, milliseconds patience) {
        provider::s3::S3Options options;
        options.web = webOptions(patience);
        options.web.certificateFile = authority;
        options.endpoint = endpoint;
        options.region = "eu-test-1";
        options.addressing = provider::s3::AddressingStyle::Path;
        options.credentials = {"CANARYACCESS", "CANARYSECRET/+=", "CANARYTOKEN"};
        options.partSize = std::uint64_t{5} * 1024 * 1024;
        return provider::s3::buildS3Provider(root, options);
    };
    return {"s3",
            root,
            make,
            std::make_shared<LyingSide>("http://" + server.authority() + "/__uploads/" + behaviour),
            std::make_shared<LineOfTruth>(server, met, tls),
            {"CANARYSECRET", "CANARYTOKEN"},
            {}};
}
#endif

std::optional<std::string> objectOf(LyingServer const& store, std::string const& bucket,
                                    std::string const& key) {
    PlainAnswer answer = plainRequest("GET", objectUrl(store, bucket, key));
    if (answer.status != 200) {
        return std::nullopt;
    }
    return std::move(answer.body);
}

void putObject(LyingServer const& store, std::string const& bucket, std::string const& key,
               std::string const& bytes) {
    plainRequest("PUT", objectUrl(store, bucket, key), bytes);
}

} // namespace remote_faults
