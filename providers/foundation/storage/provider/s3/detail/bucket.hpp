#pragma once

#include <foundation/storage/provider/s3/s3_options.hpp>
#include <foundation/storage/provider/web/client.hpp>

#include <chrono>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <stop_token>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace foundation::storage::provider::s3::detail {

struct Doubt;
class Store;
class UploadLedger;

inline constexpr std::int32_t nanosecondsInASecond = 1'000'000'000;
/// Times are nanoseconds since 1970, which go to the year 2262; what is beyond that is at its end.
std::int64_t nanosecondsOf(std::int64_t seconds) noexcept;

/// What cleaning up may take, though the time of the operation is over.
std::chrono::milliseconds cleaningTime(web::WebOptions const& options) noexcept;

/// As a listing tells it.
struct ListedObject {
    std::string key;
    std::uint64_t size = 0;
    std::int64_t lastModified = 0; ///< nanoseconds since 1970
    std::string eTag;              ///< with its quotes
};

struct ListQuery {
    std::string prefix = {};
    bool isDelimited = false;      ///< keys with a further slash behind the prefix become prefixes
    std::string startAfter = {};   ///< for the first page
    std::string continuation = {}; ///< of the page before; empty for the first
    unsigned mostKeys = 1000;
};

struct ListPage {
    std::vector<ListedObject> objects;
    std::vector<std::string> prefixes; ///< each ends in a slash
    std::string continuation;          ///< empty: this is the last page
};

/// As the object itself tells it.
struct ObjectHead {
    std::uint64_t size = 0;
    std::int64_t lastModified = 0; ///< nanoseconds since 1970
    std::string eTag;
    web::Headers headers; ///< the whole head of the answer

    /// Whether a request can be made for this version alone.
    bool hasStrongTag() const noexcept { return !eTag.empty() && !eTag.starts_with("W/"); }
};

/// Whether two heads are of one version of an object; without a tag, as far as size and time tell.
bool isSameVersion(ObjectHead const& one, ObjectHead const& other) noexcept;

struct PutConditions {
    bool onlyIfMissing = false; ///< else code ResourceAlreadyExists where there is one
    std::vector<std::pair<std::string, std::string>> metadata = {}; ///< names without x-amz-meta-
    /// Content-Type and others that say how the bytes are to be taken.
    std::vector<std::pair<std::string, std::string>> contentFields = {};
};

struct UploadedPart {
    unsigned number = 0; ///< from 1
    std::string eTag;
    std::uint64_t size = 0;
};

/// One that is neither completed nor aborted.
struct ListedUpload {
    std::string key;
    std::string upload;
    std::int64_t begun = 0; ///< nanoseconds since 1970
};

/// A copy that fails by what is copied, which is gone or has changed.
class SourceFailure : public web::Failure {
  public:
    using web::Failure::Failure;
};

struct KeyFailure {
    std::string key;
    ErrorCode code;
    std::string text;
};

/// The requests to one bucket: signed, sent, sent again where that does no harm, their answers
/// checked. Keys are UTF-8 without a first slash. Safe on any thread; immutable but for its
/// connections. All throw web::Failure, with the code of the store's own error.
///
/// Amazon Simple Storage Service API Reference, 2006-03-01.
class Bucket {
  public:
    using Deadline = web::Deadline;

    /// Throws where the endpoint or the name make no address. Asks nothing yet.
    Bucket(std::string const& name, S3Options options);
    Bucket(Bucket const&) = delete;
    Bucket& operator=(Bucket const&) = delete;
    ~Bucket();

    S3Options const& options() const noexcept;
    /// For the time that an operation may take as a whole; a stop ends it at once.
    Deadline deadline(std::stop_token stop = {}) const;

    /// ListObjectsV2.
    ListPage list(ListQuery const& query, Deadline const& deadline) const;
    /// HeadBucket: whether it is there.
    bool exists(Deadline const& deadline) const;
    /// HeadObject; none where it is missing.
    std::optional<ObjectHead> head(std::string_view key, Deadline const& deadline) const;

    /// GetObject: the bytes from `offset` on, into the buffer, as many as there is room for or as
    /// the object has. Fails where the tag is not `eTag`, where one is given, and where the answer
    /// is another range. A body that breaks off is asked for again from there.
    ObjectHead read(std::string_view key, std::uint64_t offset, std::span<char> buffer,
                    std::string_view eTag, Deadline const& deadline) const;
    /// GetObject: the last bytes into the start of the buffer, as many as there is room for or as
    /// the object has. Nothing where the store does not know such ranges; some do not. REQUIRES: a
    /// buffer with room.
    std::optional<ObjectHead> readEnd(std::string_view key, std::span<char> buffer,
                                      Deadline const& deadline) const;

    /// PutObject; returns the tag. A put only where nothing is, is sent again where its answer is
    /// lost and nothing is there yet; what is there then counts as its own where it has these bytes
    /// and is no older than the call. Some stores do not know the condition: it is looked before.
    /// Whoever asks again tells since when, and finds what was done the first time.
    std::string put(std::string_view key, std::span<char const> content,
                    PutConditions const& conditions, Deadline const& deadline,
                    std::optional<std::chrono::steady_clock::time_point> askedSince = {}) const;
    /// CopyObject within the store. `source` is BUCKET/KEY, not encoded. Returns the tag. Metadata
    /// and fields, where there are some, come in place of those of the source. Stores know no copy
    /// only where nothing is: it is looked before. Throws SourceFailure, too.
    std::string copy(std::string_view source, std::string_view key, PutConditions const& conditions,
                     std::string_view sourceTag, Deadline const& deadline) const;
    /// DeleteObject; a missing one is no failure.
    void remove(std::string_view key, Deadline const& deadline) const;
    /// DeleteObjects, up to 1,000 keys. Returns what could not be removed.
    std::vector<KeyFailure> remove(std::span<std::string const> keys,
                                   Deadline const& deadline) const;

    /// CreateMultipartUpload; returns its id. Where an answer is lost, the uploads of the key that
    /// were begun since and that nobody in this process knows are aborted, as long as there are no
    /// more of them than lost answers, and nobody here begins another one of the same key.
    std::string beginUpload(std::string_view key, PutConditions const& conditions,
                            Deadline const& deadline) const;
    /// UploadPart.
    UploadedPart uploadPart(std::string_view key, std::string_view upload, unsigned number,
                            std::span<char const> content, Deadline const& deadline) const;
    /// UploadPartCopy: bytes [offset, offset + size) of `source`, which still has `sourceTag`. Some
    /// stores do not look at the tag: whoever copies in parts asks for the tag once more before
    /// the upload is completed, or may have a mixture of two versions. Throws SourceFailure, too.
    UploadedPart copyPart(std::string_view key, std::string_view upload, unsigned number,
                          std::string_view source, std::string_view sourceTag, std::uint64_t offset,
                          std::uint64_t size, Deadline const& deadline) const;
    /// CompleteMultipartUpload; also where the answer to it was lost and the object is there. Some
    /// stores do not know the condition for it: it is looked before, too. Whoever asks again tells
    /// since when, and finds what was done the first time.
    std::string
    completeUpload(std::string_view key, std::string_view upload,
                   std::span<UploadedPart const> parts, PutConditions const& conditions,
                   Deadline const& deadline,
                   std::optional<std::chrono::steady_clock::time_point> askedSince = {}) const;
    /// AbortMultipartUpload; one that is gone is no failure.
    void abortUpload(std::string_view key, std::string_view upload, Deadline const& deadline) const;
    /// ListMultipartUploads: the first thousand of keys with this prefix.
    std::vector<ListedUpload> listUploads(std::string_view prefix, Deadline const& deadline) const;

  private:
    std::optional<std::string> ownPut(std::string_view key, std::span<char const> content,
                                      Doubt const& doubt, Deadline const& deadline) const;
    std::optional<std::string> ownUpload(std::string_view key, std::span<UploadedPart const> parts,
                                         Doubt const& doubt, bool isGone,
                                         Deadline const& deadline) const;
    bool isSame(std::string_view key, std::span<char const> content, ObjectHead const& head,
                Deadline const& deadline) const;
    void abortLostUploads(std::string_view key, Doubt const& doubt) const;

    std::unique_ptr<Store const> const store_;
    std::unique_ptr<UploadLedger> const uploads_;
};

} // namespace foundation::storage::provider::s3::detail
