#include "target.hpp"

#include "remote/server.hpp"

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/http/http_factory.hpp>
#ifdef WITH_S3
#include <foundation/storage/provider/s3/s3_factory.hpp>
#endif

#include <string_view>

namespace remote_faults {

using foundation::storage::provider::test::told;
using std::chrono::milliseconds;

std::string base64(std::string_view text) {
    static constexpr char digits[] =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string result;
    for (std::size_t i = 0; i < text.size(); i += 3) {
        unsigned group = 0;
        for (std::size_t j = i; j < i + 3; ++j) {
            group = group << 8 | (j < text.size() ? static_cast<unsigned char>(text[j]) : 0U);
        }
        for (std::size_t j = 0; j < 4; ++j) {
            result += i + j > text.size() ? '=' : digits[group >> (18 - 6 * j) & 63];
        }
    }
    return result;
}

provider::web::WebOptions webOptions(milliseconds patience) {
    provider::web::WebOptions options;
    options.proxy = "";
    options.connectTimeout = milliseconds(2'000);
    options.stallTimeout = patience;
    options.operationTimeout = operationTimeout;
    options.attempts = attempts;
    options.firstPause = milliseconds(5);
    options.longestPause = milliseconds(20);
    return options;
}

namespace {

constexpr char strangersSecret[] = "canary4stranger83";

std::string authorityOf(std::string const& url) {
    std::size_t const begin = url.find("//") + 2;
    return url.substr(0, url.find('/', begin));
}

Target webTarget(std::string name, std::string const& url, std::string const& folder) {
    provider::StorageIRI const root(fl::i18n::to_ustring(url));
    std::string const password = told("VFS_TEST_CANARY_PASSWORD");
    auto const make = [root, password](Who who, milliseconds patience) {
        provider::http::HttpOptions options;
        options.web = webOptions(patience);
        options.user = "canary";
        options.password = who == Who::Known ? password : strangersSecret;
        options.attributeLifetime = milliseconds(0);
        return provider::http::buildHttpProvider(root, options);
    };
    auto const environment = [password](Who who) -> std::map<std::string, std::string> {
        return {{"netrc", "default login canary password " +
                              (who == Who::Known ? password : std::string(strangersSecret))},
                {"no_proxy", "*"}};
    };
    return {std::move(name),
            root,
            make,
            makeFolderSide(folder + "/faults"),
            makeFaultLine(authorityOf(url)),
            {password, strangersSecret, base64("canary:" + password),
             base64("canary:" + std::string(strangersSecret)), "Authorization: "},
            environment};
}

#ifdef WITH_S3
Target storeTarget() {
    std::string const bucket = told("VFS_TEST_S3_OPEN_BUCKET");
    std::string const line = told("VFS_TEST_S3_FAULT_ENDPOINT");
    std::string const secret = told("VFS_TEST_S3_SECRET_KEY");
    static constexpr char token[] = "canary9token52";
    provider::StorageIRI const root(fl::i18n::to_ustring("s3://" + bucket + "/faults/"));
    auto const make = [root, line, secret](Who who, milliseconds patience) {
        provider::s3::S3Options options;
        options.web = webOptions(patience);
        options.endpoint = line;
        options.region = told("VFS_TEST_S3_REGION");
        options.addressing = provider::s3::AddressingStyle::Path;
        // The store does not look at the token, but it goes the way that a real one goes.
        options.credentials = {told("VFS_TEST_S3_ACCESS_KEY"),
                               who == Who::Known ? secret : strangersSecret, token};
        options.partSize = std::uint64_t{5} * 1024 * 1024;
        return provider::s3::buildS3Provider(root, options);
    };
    auto const environment = [line, secret](Who who) -> std::map<std::string, std::string> {
        return {{"AWS_ENDPOINT_URL", line},
                {"AWS_REGION", told("VFS_TEST_S3_REGION")},
                {"AWS_ACCESS_KEY_ID", told("VFS_TEST_S3_ACCESS_KEY")},
                {"AWS_SECRET_ACCESS_KEY", who == Who::Known ? secret : strangersSecret},
                {"AWS_SESSION_TOKEN", token},
                {"AWS_CONFIG_FILE", "/dev/null"},
                {"AWS_SHARED_CREDENTIALS_FILE", "/dev/null"},
                {"no_proxy", "*"}};
    };
    Target target{"s3",
                  root,
                  make,
                  makeBucketSide(told("VFS_TEST_S3_ENDPOINT"), bucket, "faults/"),
                  makeFaultLine(line),
                  {secret, strangersSecret, token, "AWS4-HMAC", "Signature="},
                  environment};
    target.listsTrees = true;
    target.hasUploads = true;
    return target;
}
#endif

} // namespace

std::vector<Target> allTargets() {
    std::vector<Target> result;
    if (std::string const url = told("VFS_TEST_WEB_FAULT_URL"); !url.empty()) {
        result.push_back(webTarget("web", url + "/private/faults/", told("VFS_TEST_WEB_ROOT")));
        result.back().hasFolders = false;
    }
    if (std::string const url = told("VFS_TEST_DAV_FAULT_BASIC_URL"); !url.empty()) {
        result.push_back(webTarget("dav", url + "faults/", told("VFS_TEST_DAV_ROOT") + "/basic"));
        result.back().movesFolders = true;
    }
#ifdef WITH_S3
    if (!told("VFS_TEST_S3_FAULT_ENDPOINT").empty()) {
        result.push_back(storeTarget());
    }
#endif
    return result;
}

} // namespace remote_faults
