#pragma once

#include <foundation/storage/provider/s3/detail/bucket.hpp>

#include <span>
#include <string>
#include <string_view>

/// The documents that go to a store.
namespace foundation::storage::provider::s3::detail {

/// Delete; only failures are to be told.
std::string removalOf(std::span<std::string const> keys);
/// Whether a document can hold the key: UTF-8, and no control characters.
bool canBeWritten(std::string_view key) noexcept;
/// CompleteMultipartUpload.
std::string completionOf(std::span<UploadedPart const> parts);

} // namespace foundation::storage::provider::s3::detail
