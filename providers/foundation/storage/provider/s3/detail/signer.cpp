#include <foundation/storage/provider/s3/detail/signer.hpp>

#include <foundation/storage/provider/s3/detail/digest.hpp>
#include <foundation/storage/provider/web/encoding.hpp>

#include <algorithm>
#include <array>
#include <cstdio>
#include <ctime>
#include <map>
#include <span>
#include <utility>
#include <vector>

namespace foundation::storage::provider::s3::detail {

namespace {

constexpr std::string_view algorithm = "AWS4-HMAC-SHA256";

/// Without blanks around it, and with one for several.
std::string trimmed(std::string_view value) {
    std::string result;
    for (char const c : value) {
        bool const isBlank = c == ' ' || c == '\t';
        if (!isBlank) {
            result += c;
        } else if (!result.empty() && result.back() != ' ') {
            result += ' ';
        }
    }
    if (result.ends_with(' ')) {
        result.pop_back();
    }
    return result;
}

/// What proxies add to, or change, is left out.
bool isSigned(std::string_view name) noexcept {
    constexpr std::array<std::string_view, 7> others{
        "accept",         "accept-encoding", "authorization", "connection",
        "content-length", "expect",          "user-agent"};
    return std::find(others.begin(), others.end(), name) == others.end();
}

/// By name; values of fields with one name stand behind each other.
std::map<std::string, std::string> signedFields(web::Headers const& fields) {
    std::map<std::string, std::string> result;
    for (auto const& [name, value] : fields.fields()) {
        std::string const key = web::inSmallLetters(name);
        if (!isSigned(key)) {
            continue;
        }
        auto const [entry, isNew] = result.try_emplace(key, trimmed(value));
        if (!isNew) {
            entry->second += ',' + trimmed(value);
        }
    }
    return result;
}

std::string canonicalQuery(std::string_view query) {
    std::vector<std::pair<std::string_view, std::string_view>> parameters;
    while (!query.empty()) {
        std::string_view const one = query.substr(0, query.find('&'));
        query.remove_prefix(std::min(one.size() + 1, query.size()));
        std::size_t const equals = std::min(one.find('='), one.size());
        parameters.emplace_back(one.substr(0, equals),
                                one.substr(std::min(equals + 1, one.size())));
    }
    std::sort(parameters.begin(), parameters.end()); // by name, and then by value
    std::string result;
    for (auto const& [name, value] : parameters) {
        result.append(result.empty() ? "" : "&").append(name).append("=").append(value);
    }
    return result;
}

std::string scopeText(std::string_view time, SigningScope const& scope) {
    return std::string(time.substr(0, 8)) + '/' + scope.region + '/' + scope.service +
           "/aws4_request";
}

std::string timeText(std::int64_t now) {
    auto const time = static_cast<std::time_t>(now);
    std::tm parts{};
    ::gmtime_r(&time, &parts);
    std::array<char, 32> text{};
    std::strftime(text.data(), text.size(), "%Y%m%dT%H%M%SZ", &parts);
    return text.data();
}

/// Behind the scheme and the authority, and those.
std::pair<std::string_view, std::string_view> authorityAndTarget(std::string_view url) {
    std::size_t const begin = url.find("://") + 3;
    std::size_t const end = std::min(url.find('/', begin), url.size());
    return {url.substr(begin, end - begin), url.substr(end)};
}

} // namespace

std::string signedNames(web::Headers const& fields) {
    std::string names;
    for (auto const& [name, value] : signedFields(fields)) {
        names.append(names.empty() ? "" : ";").append(name);
    }
    return names;
}

std::string canonicalRequest(std::string_view method, std::string_view target,
                             web::Headers const& fields, std::string_view payloadHash) {
    std::size_t const mark = std::min(target.find('?'), target.size());
    std::string text(method);
    text.append("\n").append(target.substr(0, mark));
    text.append("\n").append(canonicalQuery(target.substr(std::min(mark + 1, target.size()))));
    text += '\n';
    for (auto const& [name, value] : signedFields(fields)) {
        text.append(name).append(":").append(value).append("\n");
    }
    text.append("\n").append(signedNames(fields)).append("\n").append(payloadHash);
    return text;
}

std::string stringToSign(std::string_view time, SigningScope const& scope,
                         std::string_view canonicalRequest) {
    std::string text(algorithm);
    text.append("\n").append(time).append("\n").append(scopeText(time, scope)).append("\n");
    return text + hex(sha256(canonicalRequest));
}

std::string signatureOf(std::string_view secretKey, std::string_view time,
                        SigningScope const& scope, std::string_view stringToSign) {
    std::string const first = "AWS4" + std::string(secretKey);
    auto const* const bytes = reinterpret_cast<unsigned char const*>(first.data());
    Sha256 key = hmacSha256(std::span(bytes, first.size()), time.substr(0, 8));
    for (std::string_view const part :
         {std::string_view(scope.region), std::string_view(scope.service),
          std::string_view("aws4_request")}) {
        key = hmacSha256(key, part);
    }
    return hex(hmacSha256(key, stringToSign));
}

void sign(web::Request& request, Credentials const& credentials, SigningScope const& scope,
          std::int64_t now) {
    if (credentials.accessKey.empty()) {
        return;
    }
    std::string const time = timeText(now);
    request.headers.add("x-amz-date", time);
    if (!credentials.sessionToken.empty()) {
        request.headers.add("x-amz-security-token", credentials.sessionToken);
    }
    auto const [authority, target] = authorityAndTarget(request.url.text());
    web::Headers fields = request.headers;
    fields.add("host", std::string(authority));
    std::string const text = stringToSign(
        time, scope,
        canonicalRequest(request.method, target, fields,
                         fields.find("x-amz-content-sha256").value_or("UNSIGNED-PAYLOAD")));
    request.headers.add("Authorization",
                        std::string(algorithm) + " Credential=" + credentials.accessKey + '/' +
                            scopeText(time, scope) + ",SignedHeaders=" + signedNames(fields) +
                            ",Signature=" + signatureOf(credentials.secretKey, time, scope, text));
}

} // namespace foundation::storage::provider::s3::detail
