#include <foundation/storage/provider/http/http_provider.hpp>

#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/http/detail/range_reader.hpp>
#include <foundation/storage/provider/http/http_stream.hpp>
#include <foundation/storage/provider/storage_item.hpp>
#include <foundation/storage/provider/web/encoding.hpp>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

namespace foundation::storage::provider::http {

namespace {

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

AttributeValues valuesOf(detail::Description const& description) {
    AttributeValues values;
    values.size = description.size;
    if (auto const time = description.headers.find("Last-Modified")) {
        values.lastModified.seconds = web::parseHttpDate(*time).value_or(0);
    }
    if (description.created) {
        values.created = Timestamp{*description.created, 0};
    }
    values.writable = description.isWritable;
    return values;
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
        addField(fields, "Authorization", "Basic " + web::base64(user + ':' + options.password));
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
      dav_(client_, options.largestListing),
      space_(std::make_shared<spool::Space>(options.maximumPendingMemory, options.temporaryFolder)),
      known_(options.attributeLifetime),
      folders_(options.attributeLifetime) {}

bool HttpProvider::isOwn(StorageIRI const& location) const {
    return !location.hasInnerIRI() && location.getSchemeView() == home_.getSchemeView() &&
           location.getAuthorityView() == home_.getAuthorityView();
}

web::Url HttpProvider::urlOf(StorageIRI const& location) const {
    if (!isOwn(location)) {
        throw Exception(ErrorCode::InvalidLocation, location);
    }
    return web::Url::of(location);
}

HttpProvider::Description HttpProvider::describe(StorageIRI const& location, Question question,
                                                 web::Deadline const& deadline) const try {
    web::Url const url = urlOf(location);
    std::optional<Description> known = known_.find(url.text());
    if (known && (known->isKindKnown || question == Question::OfFile)) {
        return *std::move(known);
    }
    auto const asked = known_.now();
    bool const isDav =
        question == Question::OfKind ? speaksDav(location, deadline) : isKnownToSpeakDav(location);
    std::optional<Description> told = isDav ? describeByDav(location, deadline) : std::move(known);
    if (told && !told->isThere() && !told->isMissing()) {
        // Some let us read what they do not let us ask of by the methods of WebDAV.
        web::Failure const refusal = web::failureOfStatus(told->status);
        try {
            told = ask(url, deadline);
        } catch (web::Failure const&) {
            throw refusal;
        }
    }
    Description answer = told ? *std::move(told) : ask(url, deadline);
    answer.isKindKnown = isDav || question == Question::OfKind;
    if (answer.isThere()) {
        known_.keep(url.text(), answer, asked);
    }
    return answer;
} catch (web::Failure const& failure) {
    throw Exception(failure.code(), location, failure.what());
}

HttpProvider::Description HttpProvider::ask(web::Url const& url,
                                            web::Deadline const& deadline) const {
    web::Headers fields;
    fields.add("Accept-Encoding", "identity");
    if (!isHeadRefused_) {
        auto const answer = client_->send({"HEAD", url, fields}, deadline);
        web::AnswerHead const& head = answer->head(deadline);
        if (web::isSuccess(head.status) || web::isAbsence(head.status)) {
            return {head.status, head.contentLength(), toldOf(head.headers)};
        }
        // Some servers refuse HEAD altogether, others where a key in the query is for GET alone.
        if (head.status == 405 || head.status == 501) {
            isHeadRefused_ = true;
        } else if (head.status != 400 && head.status != 403) {
            throw web::failureOf(head.status, head.headers);
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
            throw web::failureOf(head.status, head.headers);
        }
        result.status = 200;
        result.size = range ? range->size : std::nullopt;
    } else if (web::isSuccess(head.status)) {
        result.size = head.contentLength();
    } else if (!web::isAbsence(head.status)) {
        throw web::failureOf(head.status, head.headers);
    }
    answer->finish();
    return result;
}

HttpProvider::Description HttpProvider::existing(StorageIRI const& location, Question question,
                                                 web::Deadline const& deadline) const {
    Description result = describe(location, question, deadline);
    if (result.isMissing()) {
        throw Exception(ErrorCode::ResourceNotFound, location);
    }
    return result;
}

ExistsResult HttpProvider::exists(StorageIRI const& location) const {
    web::Deadline const deadline = client_->deadline();
    Description const description = describe(location, Question::OfKind, deadline);
    if (description.isMissing()) {
        return ExistsResult::Nothing;
    }
    return description.isFolder ? ExistsResult::Folder : ExistsResult::File;
}

FileAttributes HttpProvider::getFileAttributes(StorageIRI const& location) const {
    web::Deadline const deadline = client_->deadline();
    Description const description = existing(location, Question::OfFile, deadline);
    if (description.isFolder) {
        throw Exception(ErrorCode::InvalidLocation, location);
    }
    return FileAttributes(valuesOf(description));
}

FolderAttributes HttpProvider::getFolderAttributes(StorageIRI const& location) const try {
    web::Deadline const deadline = client_->deadline();
    requireDav(location, deadline, ErrorCode::UnsupportedOperation);
    Description const description = existing(location, Question::OfKind, deadline);
    if (!description.isFolder) {
        throw Exception(ErrorCode::ResourceNotFound, location);
    }
    return FolderAttributes(valuesOf(description));
} catch (web::Failure const& failure) {
    throw Exception(failure.code(), location, failure.what());
}

ExtendedAttributes HttpProvider::getExtendedAttributes(StorageIRI const& location) const {
    web::Deadline const deadline = client_->deadline();
    Description const description = existing(location, Question::OfFile, deadline);
    ExtendedAttributes result;
    for (auto const& [key, name] : toldFields) {
        if (auto const value = description.headers.find(name)) {
            result.emplace(key, *value);
        }
    }
    return result;
}

std::unique_ptr<ByteStream> HttpProvider::openReadOnlyStream(StorageIRI const& location) const {
    return openFile(location, First::Start);
}

std::unique_ptr<ByteStream> HttpProvider::openEndFirst(StorageIRI const& location) const {
    return openFile(location, First::End);
}

std::unique_ptr<ByteStream> HttpProvider::openFile(StorageIRI const& location, First first) const
    try {
    web::Deadline const deadline = client_->deadline();
    web::Url const url = urlOf(location);
    if (!isKnownToSpeakDav(location)) {
        return openForReading(client_, url, location, options_, first,
                              [](detail::RangeReader const&) {});
    }
    // Where there are folders, what a server shows of one is no file.
    auto const refuseFolder = [&] {
        auto const there = describeByDav(location, deadline);
        if (there && there->isFolder) {
            throw Exception(ErrorCode::InvalidLocation, location);
        }
        if (there && there->isMissing()) {
            throw Exception(ErrorCode::ResourceNotFound, location);
        }
        if (there && !there->isThere()) {
            throw web::failureOfStatus(there->status);
        }
    };
    // Whatever else it is, it can be read.
    auto const refusePageOfFolder = [&] {
        auto const there = describeByDav(location, deadline);
        if (there && there->isThere() && there->isFolder) {
            throw Exception(ErrorCode::InvalidLocation, location);
        }
    };
    try {
        return openForReading(client_, itemUrl(location), location, options_, first,
                              [&](detail::RangeReader const& reader) {
                                  auto const path = detail::DavPath::of(reader.place());
                                  if (path && path->endsInSlash) {
                                      refuseFolder();
                                  } else if (reader.isUnmarkedPage()) {
                                      refusePageOfFolder();
                                  }
                              });
    } catch (Exception const& failure) {
        if (failure.getErrorCode() == ErrorCode::IOError ||
            failure.getErrorCode() == ErrorCode::PermissionDenied ||
            failure.getErrorCode() == ErrorCode::UnsupportedOperation) {
            refuseFolder();
        }
        throw;
    }
} catch (web::Failure const& failure) {
    throw Exception(failure.code(), location, failure.what());
}

} // namespace foundation::storage::provider::http
