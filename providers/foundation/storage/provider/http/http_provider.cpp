#include <foundation/storage/provider/http/http_provider.hpp>

#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/http/http_stream.hpp>
#include <foundation/storage/provider/storage_item.hpp>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

namespace foundation::storage::provider::http {

namespace {

[[noreturn]] void refuse(StorageIRI const& location) {
    throw Exception(ErrorCode::ReadOnlyProvider, location);
}

bool isSuccess(int status) noexcept {
    return status >= 200 && status < 300;
}
bool isAbsence(int status) noexcept {
    return status == 404 || status == 410;
}

std::string base64(std::string_view bytes) {
    constexpr char digits[] = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";
    std::string result;
    for (std::size_t i = 0; i < bytes.size(); i += 3) {
        std::uint32_t group = 0;
        for (std::size_t k = 0; k < 3; ++k) {
            group =
                group << 8 | (i + k < bytes.size() ? static_cast<unsigned char>(bytes[i + k]) : 0U);
        }
        for (std::size_t k = 0; k < 4; ++k) {
            result += i + k > bytes.size() ? '=' : digits[group >> (18 - 6 * k) & 63];
        }
    }
    return result;
}

void addField(web::Headers& fields, std::string const& name, std::string const& value) {
    if (name.empty() || name.find_first_of(std::string_view(":\r\n\0 ", 5)) != std::string::npos ||
        value.find_first_of(std::string_view("\r\n\0", 3)) != std::string::npos) {
        throw std::invalid_argument("a field of a request that cannot be sent");
    }
    fields.add(name, value);
}

constexpr std::array toldFields{std::pair{"http.content-encoding", "Content-Encoding"},
                                std::pair{"http.content-type", "Content-Type"},
                                std::pair{"http.etag", "ETag"},
                                std::pair{"http.last-modified", "Last-Modified"}};

/// The fields that questions are about; a server may send many others.
web::Headers toldOf(web::Headers const& headers) {
    web::Headers told;
    for (auto const& [key, name] : toldFields) {
        if (auto const value = headers.find(name)) {
            told.add(name, std::string(*value));
        }
    }
    return told;
}

/// A colon would end the user, and begin a password (RFC 7617, section 2).
bool canBeUser(std::string_view user) noexcept {
    return std::none_of(user.begin(), user.end(), [](char c) {
        auto const byte = static_cast<unsigned char>(c);
        return byte == ':' || byte < 0x20 || byte == 0x7f;
    });
}

web::Identity identityOf(StorageIRI const& location, HttpOptions const& options) {
    web::Identity identity;
    web::Headers& fields = identity.fields;
    std::string const user = options.user.empty() ? web::userOf(location) : options.user;
    if (!canBeUser(user)) {
        if (options.user.empty()) {
            throw Exception(ErrorCode::InvalidLocation, location);
        }
        throw std::invalid_argument("a user that cannot be sent");
    }
    if (!options.bearerToken.empty()) {
        addField(fields, "Authorization", "Bearer " + options.bearerToken);
    } else if (!user.empty() || !options.password.empty()) {
        addField(fields, "Authorization", "Basic " + base64(user + ':' + options.password));
    } else {
        identity.netrcFile = options.netrcFile;
    }
    for (auto const& [name, value] : options.headers) {
        addField(fields, name, value);
    }
    return identity;
}

} // namespace

HttpProvider::HttpProvider(StorageIRI const& location, HttpOptions const& options)
    : home_(location),
      options_(options),
      client_(std::make_shared<web::Client const>(web::Url::of(location),
                                                  identityOf(location, options), options.web)),
      known_(options.attributeLifetime) {}

web::Url HttpProvider::urlOf(StorageIRI const& location) const {
    if (location.hasInnerIRI() || location.getSchemeView() != home_.getSchemeView() ||
        location.getAuthorityView() != home_.getAuthorityView()) {
        throw Exception(ErrorCode::InvalidLocation, location);
    }
    return web::Url::of(location);
}

HttpProvider::Description HttpProvider::describe(StorageIRI const& location) const try {
    web::Url const url = urlOf(location);
    if (auto known = known_.find(url.text())) {
        return *std::move(known);
    }
    auto const asked = detail::DescriptionMemory::Clock::now();
    Description answer = ask(url);
    if (isSuccess(answer.status)) {
        known_.keep(url.text(), answer, asked);
    }
    return answer;
} catch (web::Failure const& failure) {
    throw Exception(failure.code(), location);
}

HttpProvider::Description HttpProvider::ask(web::Url const& url) const {
    web::Deadline const deadline = client_->deadline();
    web::Headers fields;
    fields.add("Accept-Encoding", "identity");
    if (!isHeadRefused_) {
        auto const answer = client_->send({"HEAD", url, fields}, deadline);
        web::AnswerHead const& head = answer->head(deadline);
        if (isSuccess(head.status) || isAbsence(head.status)) {
            return {head.status, head.contentLength(), toldOf(head.headers)};
        }
        // Some servers refuse HEAD altogether, others where a key in the query is for GET alone.
        if (head.status == 405 || head.status == 501) {
            isHeadRefused_ = true;
        } else if (head.status != 400 && head.status != 403) {
            throw web::failureOfStatus(head.status);
        }
    }
    fields.add("Range", "bytes=0-0");
    auto const answer = client_->send({"GET", url, fields}, deadline);
    web::AnswerHead const& head = answer->head(deadline);
    Description result{head.status, std::nullopt, toldOf(head.headers)};
    if (head.status == 206 || head.status == 416) {
        auto const value = head.headers.find("Content-Range");
        auto const range = value ? web::parseContentRange(*value) : std::nullopt;
        if (head.status == 416 && (!range || range->size != 0U)) {
            throw web::failureOfStatus(head.status);
        }
        result.status = 200;
        result.size = range ? range->size : std::nullopt;
    } else if (isSuccess(head.status)) {
        result.size = head.contentLength();
    } else if (!isAbsence(head.status)) {
        throw web::failureOfStatus(head.status);
    }
    answer->finish();
    return result;
}

HttpProvider::Description HttpProvider::existing(StorageIRI const& location) const {
    Description result = describe(location);
    if (isAbsence(result.status)) {
        throw Exception(ErrorCode::ResourceNotFound, location);
    }
    return result;
}

ExistsResult HttpProvider::exists(StorageIRI const& location) const {
    return isAbsence(describe(location).status) ? ExistsResult::Nothing : ExistsResult::File;
}

FileAttributes HttpProvider::getFileAttributes(StorageIRI const& location) const {
    Description const description = existing(location);
    AttributeValues values;
    values.size = description.size;
    if (auto const time = description.headers.find("Last-Modified")) {
        values.lastModified.seconds = web::parseHttpDate(*time).value_or(0);
    }
    return FileAttributes(values);
}

FolderAttributes HttpProvider::getFolderAttributes(StorageIRI const& location) const {
    throw Exception(ErrorCode::UnsupportedOperation, location);
}

ExtendedAttributes HttpProvider::getExtendedAttributes(StorageIRI const& location) const {
    Description const description = existing(location);
    ExtendedAttributes result;
    for (auto const& [key, name] : toldFields) {
        if (auto const value = description.headers.find(name)) {
            result.emplace(key, *value);
        }
    }
    return result;
}

std::unique_ptr<ByteStream> HttpProvider::openReadOnlyStream(StorageIRI const& location) const {
    return openForReading(client_, urlOf(location), location, options_);
}

CopyStatus HttpProvider::copyFile(StorageIRI const& source, StorageItem const& destination,
                                  CopyFileOptions const& options) {
    if (destination.getProvider().get() == this) {
        refuse(destination.getLocation());
    }
    return IProvider::copyFile(source, destination, options);
}

void HttpProvider::setLastModified(StorageIRI const& location, boost::posix_time::ptime const&) {
    refuse(location);
}
void HttpProvider::setWritable(StorageIRI const& location, bool) {
    refuse(location);
}
void HttpProvider::createFile(StorageIRI const& location) {
    refuse(location);
}
void HttpProvider::createFolder(StorageIRI const& location) {
    refuse(location);
}
void HttpProvider::createFolderRecursive(StorageIRI const& location) {
    refuse(location);
}
void HttpProvider::removeFile(StorageIRI const& location) {
    refuse(location);
}
void HttpProvider::removeFolder(StorageIRI const& location) {
    refuse(location);
}
void HttpProvider::removeFolderRecursively(StorageIRI const& location) {
    refuse(location);
}
void HttpProvider::moveFile(StorageIRI const& source, StorageIRI const&, ReplacementPolicy const&) {
    refuse(source);
}
void HttpProvider::moveFolder(StorageIRI const& source, StorageIRI const&,
                              ReplacementPolicy const&) {
    refuse(source);
}
std::unique_ptr<ByteStream> HttpProvider::openStream(StorageIRI const& location,
                                                     ByteStreamOpenOptions const&) {
    refuse(location);
}

} // namespace foundation::storage::provider::http
