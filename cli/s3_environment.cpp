#include "s3_environment.hpp"

#include "display.hpp"
#include "failure.hpp"
#include "profile_file.hpp"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <cstdint>
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <string_view>
#include <system_error>
#include <utility>

namespace cli {

namespace s3 = foundation::storage::provider::s3;

namespace {

using Sections = std::map<std::string, ProfileSection, std::less<>>;
using Text = std::optional<std::string>;

/// Looks at variables and files; what is empty counts as missing.
class Lookup {
  public:
    explicit Lookup(S3Environment const& environment) : environment_(environment) {
        Text const named = variable({"AWS_PROFILE", "AWS_DEFAULT_PROFILE"});
        std::string const profile = named.value_or("default");
        credentials_ = read("AWS_SHARED_CREDENTIALS_FILE", "credentials");
        config_ = read("AWS_CONFIG_FILE", "config");
        fromCredentials_ = section(credentials_, profile);
        fromConfig_ = section(config_, "profile " + profile);
        if (!fromConfig_ && profile == "default") {
            fromConfig_ = section(config_, profile);
        }
        if (named && !fromCredentials_ && !fromConfig_) {
            throw Refusal("no file has the profile '" + onOneLine(profile) +
                          "', which AWS_PROFILE names");
        }
    }

    /// The first that is set.
    Text variable(std::initializer_list<char const*> names) const {
        for (char const* const name : names) {
            if (auto value = environment_.variable(name); value && !value->empty()) {
                return value;
            }
        }
        return std::nullopt;
    }

    /// Of the profile.
    Text value(std::string_view key) const {
        for (ProfileSection const* const from : {fromCredentials_, fromConfig_}) {
            if (Text found = valueIn(from, key)) {
                return found;
            }
        }
        return std::nullopt;
    }

    /// Where the profile says the services are that it uses.
    Text endpoint() const {
        if (auto const services = value("services")) {
            if (Text found =
                    valueIn(section(config_, "services " + *services), "s3.endpoint_url")) {
                return found;
            }
        }
        return value("endpoint_url");
    }

    /// Both keys come from one place.
    s3::Credentials credentials() const {
        if (auto const access = variable({"AWS_ACCESS_KEY_ID"})) {
            if (auto const secret = variable({"AWS_SECRET_ACCESS_KEY"})) {
                return {*access, *secret, variable({"AWS_SESSION_TOKEN"}).value_or("")};
            }
        }
        for (ProfileSection const* const from : {fromCredentials_, fromConfig_}) {
            auto const access = valueIn(from, "aws_access_key_id");
            auto const secret = valueIn(from, "aws_secret_access_key");
            if (access && secret) {
                return {*access, *secret, valueIn(from, "aws_session_token").value_or("")};
            }
        }
        return {};
    }

  private:
    Sections read(char const* name, std::string const& usual) const {
        std::string path = variable({name}).value_or("~/.aws/" + usual);
        if (path.starts_with("~/")) { // no shell expands what stands in quotes, or in a unit file
            auto const home = variable({"HOME"});
            if (!home) {
                return {};
            }
            path.replace(0, 1, *home);
        }
        auto const text = environment_.file(path);
        return text ? parseProfiles(*text) : Sections();
    }

    static ProfileSection const* section(Sections const& sections, std::string const& heading) {
        auto const found = sections.find(heading);
        return found == sections.end() ? nullptr : &found->second;
    }

    static Text valueIn(ProfileSection const* section, std::string_view key) {
        if (!section) {
            return std::nullopt;
        }
        auto const found = section->find(key);
        return found == section->end() || found->second.empty() ? std::nullopt
                                                                : Text(found->second);
    }

    S3Environment const& environment_;
    Sections credentials_;
    Sections config_;
    ProfileSection const* fromCredentials_ = nullptr;
    ProfileSection const* fromConfig_ = nullptr;
};

bool isTrue(Text const& text) {
    if (!text) {
        return false;
    }
    std::string small = *text;
    std::transform(small.begin(), small.end(), small.begin(),
                   [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; });
    return small == "true" || small == "yes" || small == "1";
}

/// A setting and what it is called, which the refusal of a bad one tells; its value it does not.
struct Setting {
    char const* name;
    Text text;

    bool isThere() const noexcept { return text.has_value(); }
    std::uint64_t number(std::uint64_t least, std::uint64_t most) const {
        std::uint64_t value = 0;
        char const* const end = text->data() + text->size();
        auto const [rest, failure] = std::from_chars(text->data(), end, value);
        if (failure != std::errc() || rest != end || value < least || value > most) {
            throw Refusal(std::string(name) + " is no number from " + std::to_string(least) +
                          " to " + std::to_string(most));
        }
        return value;
    }
    /// With a unit or without: KB and KiB are both 1,024 bytes, as is the custom for these files.
    std::uint64_t bytes(std::uint64_t least, std::uint64_t most) const {
        std::uint64_t value = 0;
        char const* const end = text->data() + text->size();
        auto const [rest, failure] = std::from_chars(text->data(), end, value);
        std::string unit(rest, end);
        std::erase(unit, ' ');
        static constexpr std::string_view powers = "kmgt";
        unsigned shift = 0;
        bool isUnit = unit.empty();
        if (!unit.empty()) {
            char const first = static_cast<char>(unit[0] | 32);
            std::size_t const power = powers.find(first);
            std::string_view const behind = std::string_view(unit).substr(1);
            isUnit = power != std::string_view::npos &&
                     (behind == "B" || behind == "b" || behind == "iB" || behind == "ib" ||
                      behind == "IB");
            shift = isUnit ? static_cast<unsigned>(10 * (power + 1)) : 0;
        }
        if (failure != std::errc() || !isUnit || value > (most >> shift)) {
            throw Refusal(std::string(name) + " is no size up to " + std::to_string(most));
        }
        return std::max(value << shift, least);
    }
};

/// Zero is the custom for as long as it takes; the deadline of the operation ends that.
std::chrono::milliseconds timeout(Setting const& setting, std::chrono::milliseconds longest) {
    std::uint64_t const seconds = setting.number(0, 86'400);
    return seconds == 0 ? longest : std::chrono::milliseconds(seconds * 1'000);
}

void takeNumbers(Lookup const& lookup, s3::S3Options& options) {
    constexpr std::uint64_t mebibyte = std::uint64_t{1024} * 1024;
    auto const inProfile = [&](char const* name) { return Setting{name, lookup.value(name)}; };
    Setting const attempts = [&] {
        Setting const variable{"AWS_MAX_ATTEMPTS", lookup.variable({"AWS_MAX_ATTEMPTS"})};
        return variable.isThere() ? variable : inProfile("max_attempts");
    }();
    if (attempts.isThere()) {
        options.web.attempts = static_cast<unsigned>(attempts.number(1, 1'000));
    }
    if (Setting const size = inProfile("s3.multipart_chunksize"); size.isThere()) {
        options.partSize = size.bytes(5 * mebibyte, 5 * 1'024 * mebibyte);
    }
    if (Setting const count = inProfile("s3.max_concurrent_requests"); count.isThere()) {
        options.concurrency = static_cast<unsigned>(count.number(1, 1'000));
    }
    if (Setting const wait = inProfile("cli_connect_timeout"); wait.isThere()) {
        options.web.connectTimeout = timeout(wait, options.web.operationTimeout);
    }
    if (Setting const wait = inProfile("cli_read_timeout"); wait.isThere()) {
        options.web.stallTimeout = timeout(wait, options.web.operationTimeout);
    }
}

} // namespace

S3Environment S3Environment::ofProcess() {
    return {
        [](char const* name) -> Text {
            char const* const value = std::getenv(name);
            return value ? Text(value) : std::nullopt;
        },
        [](std::string const& path) -> Text {
            std::ifstream in(path, std::ios::binary);
            if (!in) {
                return std::nullopt;
            }
            return std::string(std::istreambuf_iterator<char>(in), {});
        },
    };
}

s3::S3Options s3Options(S3Environment const& environment) {
    Lookup const lookup(environment);
    auto const first = [](Text one, auto const& other) { return one ? one : other(); };
    s3::S3Options options;
    if (!isTrue(lookup.variable({"AWS_NO_SIGN_REQUEST"}))) {
        options.credentials = lookup.credentials();
    }
    options.region = first(lookup.variable({"AWS_REGION", "AWS_DEFAULT_REGION"}), [&] {
                         return lookup.value("region");
                     }).value_or(options.region);
    if (!isTrue(lookup.variable({"AWS_IGNORE_CONFIGURED_ENDPOINT_URLS"}))) {
        options.endpoint = first(lookup.variable({"AWS_ENDPOINT_URL_S3", "AWS_ENDPOINT_URL"}), [&] {
                               return lookup.endpoint();
                           }).value_or("");
    }
    options.web.certificateFile = first(lookup.variable({"AWS_CA_BUNDLE"}), [&] {
                                      return lookup.value("ca_bundle");
                                  }).value_or(certificateFile(environment));
    takeNumbers(lookup, options);
    Text const style = lookup.value("s3.addressing_style");
    if (style == "path") {
        options.addressing = s3::AddressingStyle::Path;
    } else if (style == "virtual") {
        options.addressing = s3::AddressingStyle::VirtualHost;
    }
    return options;
}

std::string certificateFile(S3Environment const& environment) {
    for (char const* const name : {"AWS_CA_BUNDLE", "CURL_CA_BUNDLE", "SSL_CERT_FILE"}) {
        if (auto const value = environment.variable(name); value && !value->empty()) {
            return *value;
        }
    }
    return {};
}

} // namespace cli
