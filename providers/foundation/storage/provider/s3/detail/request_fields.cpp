#include <foundation/storage/provider/s3/detail/request_fields.hpp>

#include <foundation/storage/provider/s3/detail/encoding.hpp>
#include <foundation/storage/provider/s3/detail/store.hpp>

#include <algorithm>

namespace foundation::storage::provider::s3::detail {

bool canBeName(std::string_view name) noexcept {
    return !name.empty() && std::all_of(name.begin(), name.end(), [](char c) {
        return c > ' ' && c <= '~' && c != ':' && c != ';';
    });
}

bool canBeValue(std::string_view value) noexcept {
    return std::all_of(value.begin(), value.end(), [](char c) { return c >= ' ' && c <= '~'; });
}

std::string_view metadataNameOf(std::string_view field) noexcept {
    return web::areEqualNames(field.substr(0, metadataPrefix.size()), metadataPrefix)
               ? field.substr(metadataPrefix.size())
               : std::string_view();
}

void addMetadata(web::Headers& headers, PutConditions const& conditions) {
    for (auto const& [name, value] : conditions.contentFields) {
        headers.add(name, value);
    }
    for (auto const& [name, value] : conditions.metadata) {
        if (!canBeName(name) || !canBeValue(value)) {
            throw web::Failure(ErrorCode::InternalError, "metadata cannot be sent as it is");
        }
        headers.add(std::string(metadataPrefix) + name, value);
    }
}

void addSource(web::Headers& headers, std::string_view source, std::string_view sourceTag) {
    headers.add("x-amz-copy-source", encoded(source, Slash::Kept));
    if (!sourceTag.empty()) {
        headers.add("x-amz-copy-source-if-match", std::string(sourceTag));
    }
}

std::int64_t timeOf(web::Headers const& headers, std::int64_t otherwise) {
    auto const date = headers.find("Date");
    return date ? web::parseHttpDate(*date).value_or(otherwise) : otherwise;
}

bool isRecent(ObjectHead const& head, Doubt const& doubt, std::int64_t now) {
    constexpr std::int64_t rounding = 2; // times of answers are whole seconds
    return head.lastModified / nanosecondsInASecond + doubt.secondsSince() + rounding >=
           timeOf(head.headers, now);
}

web::Failure existsAlready() {
    return {ErrorCode::ResourceAlreadyExists, "there is such an object already"};
}

SourceFailure sourceHasChanged() {
    return {ErrorCode::IOError, "the object has changed while it was copied"};
}

void failCopy(StoreFailure const& failure) {
    if (failure.status() == 412) {
        throw sourceHasChanged();
    }
    if (failure.word() == "NoSuchKey") {
        throw SourceFailure(failure.code(), failure.what());
    }
    throw StoreFailure(failure);
}

} // namespace foundation::storage::provider::s3::detail
