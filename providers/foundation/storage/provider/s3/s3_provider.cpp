#include <foundation/storage/provider/s3/s3_provider.hpp>

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/s3/detail/object_time.hpp>
#include <foundation/storage/provider/s3/detail/request_fields.hpp>
#include <foundation/storage/provider/s3/detail/translation.hpp>
#include <foundation/storage/provider/s3/s3_stream.hpp>
#include <foundation/storage/provider/web/encoding.hpp>

#include <algorithm>
#include <array>
#include <stdexcept>
#include <utility>

namespace foundation::storage::provider::s3 {

using detail::translated;

namespace {

/// Enough for several streams that all go ahead.
constexpr unsigned leastThreads = 64;

/// Keys that begin as one does and stand before what is in a folder of its name are few.
constexpr unsigned keysToLookAt = 10;

/// The bucket that an authority names; hosts come in small letters, and so do buckets' names.
std::string bucketNameOf(StorageIRI const& location) {
    if (location.hasInnerIRI()) {
        throw Exception(ErrorCode::InvalidLocation, location);
    }
    std::u16string_view const authority = location.getAuthorityView();
    bool const isName = authority.size() >= 3 && authority.size() <= 63 &&
                        std::all_of(authority.begin(), authority.end(), [](char16_t unit) {
                            return (unit >= u'a' && unit <= u'z') ||
                                   (unit >= u'0' && unit <= u'9') || unit == u'-' || unit == u'.' ||
                                   unit == u'_';
                        });
    if (!isName) {
        throw Exception(ErrorCode::InvalidLocation, location);
    }
    return {authority.begin(), authority.end()};
}

void check(S3Options const& options) {
    constexpr std::uint64_t mebibyte = std::uint64_t{1024} * 1024;
    auto const isWithin = [](auto value, auto least, auto most) {
        return value >= least && value <= most;
    };
    // The protocol's bounds, but for the requests.
    if (!isWithin(options.partSize, 5 * mebibyte, 5 * 1024 * mebibyte) ||
        !isWithin(options.largestCopy, 5 * mebibyte, 5 * 1024 * mebibyte) ||
        !isWithin(options.pageSize, 1U, 1000U) || !isWithin(options.concurrency, 1U, 1000U)) {
        throw std::invalid_argument("an option of an object store is out of its bounds");
    }
    // They become fields of requests; what is wrong with a secret is told without it.
    for (auto const& [name, value] :
         {std::pair{"access key", &options.credentials.accessKey},
          std::pair{"secret key", &options.credentials.secretKey},
          std::pair{"session token", &options.credentials.sessionToken},
          std::pair{"region", &options.region}, std::pair{"endpoint", &options.endpoint}}) {
        if (std::any_of(value->begin(), value->end(),
                        [](char c) { return static_cast<unsigned char>(c) < ' ' || c == 0x7f; })) {
            throw std::invalid_argument(std::string("the ") + name +
                                        " of an object store has a control character");
        }
    }
}

std::shared_ptr<detail::Bucket const> bucketOf(StorageIRI const& location, std::string const& name,
                                               S3Options const& options) {
    check(options);
    try {
        return std::make_shared<detail::Bucket const>(name, options);
    } catch (web::Failure const& failure) {
        throw Exception(failure.code(), location, failure.what());
    }
}

/// The fields of an object's head that are told as extended attributes; metadata beside them.
constexpr std::array toldFields{std::pair{"s3.cache-control", "Cache-Control"},
                                std::pair{"s3.content-disposition", "Content-Disposition"},
                                std::pair{"s3.content-encoding", "Content-Encoding"},
                                std::pair{"s3.content-language", "Content-Language"},
                                std::pair{"s3.content-type", "Content-Type"},
                                std::pair{"s3.etag", "ETag"},
                                std::pair{"s3.last-modified", "Last-Modified"},
                                std::pair{"s3.storage-class", "x-amz-storage-class"},
                                std::pair{"s3.version-id", "x-amz-version-id"}};

ExtendedAttributes toldOf(web::Headers const& headers) {
    ExtendedAttributes result;
    for (auto const& [key, name] : toldFields) {
        if (auto const value = headers.find(name)) {
            result.emplace(key, *value);
        }
    }
    for (auto const& [name, value] : headers.fields()) {
        std::string_view const metadata = detail::metadataNameOf(name);
        if (!metadata.empty()) {
            result.emplace("s3.meta." + web::inSmallLetters(metadata), value);
        }
    }
    return result;
}

} // namespace

S3Provider::S3Provider(StorageIRI const& location, S3Options const& options)
    : home_(location),
      name_(bucketNameOf(location)),
      bucket_(bucketOf(location, name_, options)),
      threads_(std::make_shared<detail::RequestThreads>(
          std::max(leastThreads, 4 * options.concurrency))),
      space_(std::make_shared<spool::Space>(options.maximumPendingMemory, options.temporaryFolder)),
      heads_(options.attributeLifetime) {}

S3Provider::~S3Provider() = default;

detail::ItemKey S3Provider::keyOf(StorageIRI const& location) const {
    if (!isOwn(location)) {
        throw Exception(ErrorCode::InvalidLocation, location);
    }
    return detail::itemKey(location);
}

bool S3Provider::isOwn(StorageIRI const& location) const {
    return location.getSchemeView() == home_.getSchemeView() &&
           location.getAuthorityView() == home_.getAuthorityView();
}

/// Asks for what begins like the key: the file comes first, and the folder soon behind it.
S3Provider::Standing S3Provider::lookUp(ItemKey const& key, Deadline const& deadline) const {
    if (key.isRoot()) {
        return {std::nullopt, bucket_->exists(deadline)};
    }
    std::string const folder = key.folder();
    detail::ListPage const page = bucket_->list({.prefix = key.file,
                                                 .isDelimited = true,
                                                 .startAfter = {},
                                                 .continuation = {},
                                                 .mostKeys = keysToLookAt},
                                                deadline);
    Standing result;
    bool isBehind = page.continuation.empty();
    for (detail::ListedObject const& object : page.objects) {
        if (object.key == key.file) {
            result.file = object;
        }
        isBehind = isBehind || object.key > folder;
    }
    for (std::string const& prefix : page.prefixes) {
        isBehind = isBehind || prefix >= folder;
        result.isFolder = result.isFolder || prefix == folder;
    }
    if (!isBehind) {
        result.isFolder = isFolder(key, deadline);
    }
    return result;
}

bool S3Provider::isFolder(ItemKey const& key, Deadline const& deadline) const {
    if (key.isRoot()) {
        return bucket_->exists(deadline);
    }
    return key.canBeFolder() && !detail::firstKeys(*bucket_, key.folder(), 1, deadline).empty();
}

ExistsResult S3Provider::exists(StorageIRI const& location) const {
    ItemKey const key = keyOf(location);
    if (!key.isRoot() && heads_.find(key.file)) {
        return ExistsResult::File;
    }
    return translated(location, [&] {
        Deadline const deadline = bucket_->deadline();
        Standing standing;
        try {
            standing = lookUp(key, deadline);
        } catch (web::Failure const& failure) {
            // Whoever may not list may read all the same.
            if (failure.code() != ErrorCode::PermissionDenied || key.isRoot() ||
                !bucket_->head(key.file, deadline)) {
                throw;
            }
            return ExistsResult::File;
        }
        return standing.file       ? ExistsResult::File
               : standing.isFolder ? ExistsResult::Folder
                                   : ExistsResult::Nothing;
    });
}

bool S3Provider::fileExists(StorageIRI const& location) const {
    ItemKey const key = keyOf(location);
    return !key.isRoot() && translated(location, [&] {
        return knownHead(key.file, bucket_->deadline()).has_value();
    });
}

bool S3Provider::folderExists(StorageIRI const& location) const {
    ItemKey const key = keyOf(location);
    return translated(location, [&] { return isFolder(key, bucket_->deadline()); });
}

StorageIRI S3Provider::getCanonicalLocation(StorageIRI const& location) const {
    ItemKey const key = keyOf(location);
    translated(location, [&] {
        if (!key.isRoot() && !isFolder(key.parent(), bucket_->deadline())) {
            throw Exception(ErrorCode::ResourceNotFound, location);
        }
    });
    return location.withResolvedPath();
}

void S3Provider::failWithoutFile(ItemKey const& key, StorageIRI const& location,
                                 Deadline const& deadline) const {
    throw Exception(key.isRoot() || isFolder(key, deadline) ? ErrorCode::InvalidLocation
                                                            : ErrorCode::ResourceNotFound,
                    location);
}

std::optional<detail::ObjectHead> S3Provider::knownHead(std::string const& key,
                                                        Deadline const& deadline) const {
    if (auto known = heads_.find(key)) {
        return known;
    }
    auto const asked = heads_.now();
    auto head = bucket_->head(key, deadline);
    if (head) { // that something is missing is not remembered
        heads_.keep(key, *head, asked);
    }
    return head;
}

detail::ObjectHead S3Provider::headOf(ItemKey const& key, StorageIRI const& location,
                                      Deadline const& deadline) const {
    std::optional<detail::ObjectHead> head;
    if (!key.isRoot()) {
        head = bucket_->head(key.file, deadline);
    }
    if (!head) {
        failWithoutFile(key, location, deadline);
    }
    return *std::move(head);
}

FileAttributes S3Provider::getFileAttributes(StorageIRI const& location) const {
    ItemKey const key = keyOf(location);
    AttributeValues values;
    values.writable = true;
    translated(location, [&] {
        Deadline const deadline = bucket_->deadline();
        auto const head = key.isRoot() ? std::nullopt : knownHead(key.file, deadline);
        if (!head) {
            failWithoutFile(key, location, deadline);
        }
        values.size = head->size;
        values.lastModified = timeOf(*head);
    });
    return FileAttributes(values);
}

FolderAttributes S3Provider::getFolderAttributes(StorageIRI const& location) const {
    ItemKey const key = keyOf(location);
    AttributeValues values;
    values.writable = true;
    translated(location, [&] {
        Deadline const deadline = bucket_->deadline();
        std::optional<detail::ObjectHead> marker;
        if (!key.isRoot() && key.canBeFolder()) {
            marker = bucket_->head(key.folder(), deadline);
        }
        if (marker) {
            values.lastModified = timeOf(*marker);
        } else if (!isFolder(key, deadline)) {
            throw Exception(ErrorCode::ResourceNotFound, location);
        }
    });
    return FolderAttributes(values);
}

ExtendedAttributes S3Provider::getExtendedAttributes(StorageIRI const& location) const {
    ItemKey const key = keyOf(location);
    return translated(location, [&]() -> ExtendedAttributes {
        Deadline const deadline = bucket_->deadline();
        if (!key.isRoot()) {
            for (std::string const& object : {key.file, key.folder()}) {
                auto const head = object.size() <= detail::longestKey ? knownHead(object, deadline)
                                                                      : std::nullopt;
                if (head) {
                    return toldOf(head->headers);
                }
            }
        }
        if (!isFolder(key, deadline)) {
            throw Exception(ErrorCode::ResourceNotFound, location);
        }
        return {};
    });
}

std::unique_ptr<ByteStream> S3Provider::openReadOnlyStream(StorageIRI const& location) const {
    return openWith(&detail::ObjectReader::open, location);
}

std::unique_ptr<ByteStream> S3Provider::openEndFirst(StorageIRI const& location) const {
    return openWith(&detail::ObjectReader::openFromEnd, location);
}

std::unique_ptr<ByteStream>
S3Provider::openWith(detail::ObjectHead (detail::ObjectReader::*open)(Deadline const&),
                     StorageIRI const& location) const {
    ItemKey const key = keyOf(location);
    return translated(location, [&] {
        Deadline const deadline = bucket_->deadline();
        if (key.isRoot()) {
            failWithoutFile(key, location, deadline);
        }
        auto reader = std::make_unique<detail::ObjectReader>(bucket_, threads_, key.file);
        auto const asked = heads_.now();
        try {
            heads_.keep(key.file, (reader.get()->*open)(deadline), asked);
        } catch (web::Failure const& failure) {
            if (failure.code() == ErrorCode::ResourceNotFound) {
                failWithoutFile(key, location, deadline);
            }
            throw;
        }
        return std::make_unique<S3ReadStream>(std::move(reader));
    });
}

} // namespace foundation::storage::provider::s3
