#pragma once

#include <foundation/storage/provider/s3/detail/bucket.hpp>
#include <foundation/storage/provider/web/failure.hpp>

#include <cstdint>
#include <string_view>

/// What several kinds of writing have in common.
namespace foundation::storage::provider::s3::detail {

struct Doubt;
class StoreFailure;

/// Whether a field of a request can have such a name, and such a value.
bool canBeName(std::string_view name) noexcept;
bool canBeValue(std::string_view value) noexcept;

/// What the fields are called in which metadata is sent and told, before its own name.
inline constexpr std::string_view metadataPrefix = "x-amz-meta-";
/// The name of the metadata in a field; empty where that holds something else.
std::string_view metadataNameOf(std::string_view field) noexcept;

/// Throws where a name or a value cannot stand in a request.
void addMetadata(web::Headers& headers, PutConditions const& conditions);
/// What is copied, and of which version, where a tag is given.
void addSource(web::Headers& headers, std::string_view source, std::string_view sourceTag);

/// Seconds since 1970 by the clock of the store, where the answer tells it.
std::int64_t timeOf(web::Headers const& headers, std::int64_t otherwise);

/// Whether it was written since a request was first sent, by the clock of the store. `now` is what
/// counts where the answer does not tell that.
bool isRecent(ObjectHead const& head, Doubt const& doubt, std::int64_t now);

web::Failure existsAlready();
SourceFailure sourceHasChanged();
/// Why a copy is refused.
[[noreturn]] void failCopy(StoreFailure const& failure);

} // namespace foundation::storage::provider::s3::detail
