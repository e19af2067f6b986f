#pragma once

#include <foundation/storage/provider/s3/detail/bucket.hpp>

#include <optional>
#include <string>
#include <string_view>
#include <vector>

/// The documents that come from a store. They are held to the question; whatever does not fit
/// throws web::Failure, code IOError. None may have a document type, so that no text is longer than
/// it was sent.
namespace foundation::storage::provider::s3::detail {

/// What a store answers at most: twice as much as a page of a thousand of the longest names.
constexpr std::size_t largestDocument = std::size_t{16} * 1024 * 1024;

struct StoreError {
    std::string word;   ///< such as NoSuchKey
    std::string region; ///< where it tells one
};

/// Nothing where it is not the document of an error.
std::optional<StoreError> errorIn(std::string_view document);

/// ListBucketResult.
ListPage listPageIn(std::string document, ListQuery const& query);
struct RefusedRemoval {
    std::string key;
    std::string word; ///< as in StoreError
};
/// DeleteResult; what was missing already is no failure.
std::vector<RefusedRemoval> refusedRemovalsIn(std::string document);
/// ListMultipartUploadsResult.
std::vector<ListedUpload> uploadsIn(std::string document);
/// InitiateMultipartUploadResult.
std::string uploadIn(std::string document);
/// CopyObjectResult, CopyPartResult, CompleteMultipartUploadResult: the tag in the element.
std::string tagIn(std::string document, char const* element);

} // namespace foundation::storage::provider::s3::detail
