#include <foundation/storage/provider/s3/detail/store_failure.hpp>

#include <foundation/storage/provider/s3/detail/s3_xml.hpp>

#include <algorithm>
#include <array>

namespace foundation::storage::provider::s3::detail {

namespace {

struct Row {
    std::string_view word;
    ErrorCode code;
};
constexpr std::array rows{
    Row{"BucketNotEmpty", ErrorCode::FolderNotEmpty},
    Row{"InvalidBucketName", ErrorCode::InvalidLocation},
    Row{"InvalidURI", ErrorCode::InvalidLocation},
    Row{"KeyTooLongError", ErrorCode::InvalidLocation},
    Row{"AccessDenied", ErrorCode::PermissionDenied},
    Row{"ExpiredToken", ErrorCode::PermissionDenied},
    Row{"InvalidAccessKeyId", ErrorCode::PermissionDenied},
    Row{"InvalidSecurity", ErrorCode::PermissionDenied},
    Row{"InvalidToken", ErrorCode::PermissionDenied},
    Row{"RequestTimeTooSkewed", ErrorCode::PermissionDenied},
    Row{"SignatureDoesNotMatch", ErrorCode::PermissionDenied},
    Row{"TokenRefreshRequired", ErrorCode::PermissionDenied},
    Row{"BucketAlreadyExists", ErrorCode::ResourceAlreadyExists},
    Row{"BucketAlreadyOwnedByYou", ErrorCode::ResourceAlreadyExists},
    Row{"NoSuchBucket", ErrorCode::ResourceNotFound},
    Row{"NoSuchKey", ErrorCode::ResourceNotFound},
    Row{"NoSuchUpload", ErrorCode::ResourceNotFound},
    Row{"NoSuchVersion", ErrorCode::ResourceNotFound},
    Row{"EntityTooLarge", ErrorCode::FileTooLarge},
    Row{"OperationAborted", ErrorCode::ResourceInUse},
    Row{"QuotaExceeded", ErrorCode::NoSpaceLeft},
    Row{"TooManyBuckets", ErrorCode::NoSpaceLeft},
    Row{"MethodNotAllowed", ErrorCode::UnsupportedOperation},
    Row{"NotImplemented", ErrorCode::UnsupportedOperation},
    Row{"AuthorizationHeaderMalformed", ErrorCode::IOError}, // names another region
    Row{"IncorrectEndpoint", ErrorCode::IOError},
    Row{"PermanentRedirect", ErrorCode::IOError},
    Row{"TemporaryRedirect", ErrorCode::IOError},
};

/// Though their status is that of a request that is wrong: bytes were lost on the way, or others
/// were quicker.
constexpr std::array<std::string_view, 12> passing{"BadDigest",
                                                   "ConditionalRequestConflict",
                                                   "IncompleteBody",
                                                   "InternalError",
                                                   "OperationAborted",
                                                   "RequestTimeout",
                                                   "ServiceUnavailable",
                                                   "SlowDown",
                                                   "Throttling",
                                                   "Busy",
                                                   "RequestLimitExceeded",
                                                   "XAmzContentSHA256Mismatch"};

bool isLetterOrDigit(char c) noexcept {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9');
}

/// What the other side says may be shown where it is one word, and no secret sent back.
std::string shown(std::string_view word, std::string_view alsoPlain,
                  Credentials const& credentials) {
    constexpr std::size_t longest = 64;
    bool const isWord =
        !word.empty() && word.size() <= longest &&
        std::all_of(word.begin(), word.end(), [&](char c) {
            return isLetterOrDigit(c) || alsoPlain.find(c) != std::string_view::npos;
        });
    auto const repeats = [&](std::string const& secret) {
        return !secret.empty() && (word.find(secret) != std::string_view::npos ||
                                   (word.size() >= 8 && secret.find(word) != std::string::npos));
    };
    if (!isWord || repeats(credentials.accessKey) || repeats(credentials.secretKey) ||
        repeats(credentials.sessionToken)) {
        return {};
    }
    return std::string(word);
}

} // namespace

ErrorCode errorCodeOfWord(std::string_view word, int status) noexcept {
    auto const* const row =
        std::find_if(rows.begin(), rows.end(), [&](Row const& r) { return r.word == word; });
    return row != rows.end() ? row->code : web::errorCodeOfStatus(status);
}

bool mayPassByWord(std::string_view word, int status) noexcept {
    return web::mayPass(status) || std::find(passing.begin(), passing.end(), word) != passing.end();
}

std::optional<StoreFailure> failureOf(int status, web::Headers const& headers,
                                      std::string_view body, Credentials const& credentials) {
    std::optional<StoreError> const error = errorIn(body);
    if (web::isSuccess(status) && !error) {
        return std::nullopt;
    }
    StoreFailure const failure =
        failureOfWord(error ? error->word : std::string(), status, credentials);
    std::string const& word = failure.word();
    std::string_view region = headers.find("x-amz-bucket-region").value_or("");
    if (region.empty() && error) {
        region = error->region;
    }
    bool const isElsewhere =
        (status >= 300 && status < 400) || word == "PermanentRedirect" ||
        word == "AuthorizationHeaderMalformed" || word == "IncorrectEndpoint" ||
        word == "IllegalLocationConstraintException" || (status == 400 && word.empty());
    if (!isElsewhere) {
        return failure;
    }
    std::string const place = shown(region, "-", credentials);
    std::string text = failure.what();
    text +=
        place.empty() ? ": the bucket may be elsewhere" : ": the bucket is in the region " + place;
    return StoreFailure(web::Failure(failure.code(), text), status, word);
}

StoreFailure failureOfWord(std::string_view told, int status, Credentials const& credentials) {
    std::string const word = shown(told, "", credentials);
    std::string const number = std::to_string(status);
    std::string const text =
        "the store answered " + (word.empty() ? number : word + " (" + number + ')');
    auto const repetition = mayPassByWord(word, status) ? web::Failure::Repetition::MayHelp
                                                        : web::Failure::Repetition::IsUseless;
    return {web::Failure(errorCodeOfWord(word, status), text, repetition), status, word};
}

web::Failure wrongAnswer(std::string const& what) {
    return {ErrorCode::IOError, "the store's answer cannot be used: " + what};
}

} // namespace foundation::storage::provider::s3::detail
