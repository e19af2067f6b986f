#include "s3_environment.hpp"

#include "display.hpp"
#include "failure.hpp"
#include "profile_file.hpp"

#include <cstdlib>
#include <fstream>
#include <iterator>
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
        Text path = variable({name});
        if (!path) {
            auto const home = variable({"HOME"});
            if (!home) {
                return {};
            }
            path = *home + "/.aws/" + usual;
        }
        auto const text = environment_.file(*path);
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
    return text && (*text == "true" || *text == "True" || *text == "TRUE" || *text == "1");
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
    options.credentials = lookup.credentials();
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
                                  }).value_or("");
    Text const style = lookup.value("s3.addressing_style");
    if (style == "path") {
        options.addressing = s3::AddressingStyle::Path;
    } else if (style == "virtual") {
        options.addressing = s3::AddressingStyle::VirtualHost;
    }
    return options;
}

} // namespace cli
