#include <foundation/storage/provider/s3/detail/likeness.hpp>

#include <foundation/storage/provider/s3/detail/object_time.hpp>
#include <foundation/storage/provider/s3/detail/request_fields.hpp>

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <utility>

namespace foundation::storage::provider::s3::detail {

namespace {

/// Those that a copy has from its source; see CopyObject.
constexpr std::array<std::string_view, 6> contentFields{"Cache-Control",    "Content-Disposition",
                                                        "Content-Encoding", "Content-Language",
                                                        "Content-Type",     "Expires"};
constexpr std::string_view metadataPrefix = "x-amz-meta-";

/// How much metadata there is that the store cannot tell.
constexpr std::string_view untoldMetadata = "x-amz-missing-meta";

bool isTime(std::string_view name) noexcept {
    return web::areEqualNames(name, timeField);
}

} // namespace

Likeness likenessOf(ObjectHead const& head) {
    Likeness likeness;
    for (auto const& [name, value] : head.headers.fields()) {
        bool const isField =
            std::any_of(contentFields.begin(), contentFields.end(),
                        [&](std::string_view field) { return web::areEqualNames(name, field); });
        bool const isMetadata =
            name.size() > metadataPrefix.size() &&
            web::areEqualNames(std::string_view(name).substr(0, metadataPrefix.size()),
                               metadataPrefix);
        if (web::areEqualNames(name, untoldMetadata) && value != "0") {
            likeness.isComplete = false;
        }
        if (!isField && !isMetadata) {
            continue;
        }
        if (!canBeName(name) || !canBeValue(value)) {
            likeness.isComplete = false;
            continue;
        }
        if (isField) {
            likeness.conditions.contentFields.emplace_back(name, value);
        } else if (std::string key = name.substr(metadataPrefix.size()); !isTime(key)) {
            likeness.conditions.metadata.emplace_back(std::move(key), value);
        }
    }
    return likeness;
}

void setTime(PutConditions& conditions, Timestamp time) {
    std::erase_if(conditions.metadata, [](auto const& field) { return isTime(field.first); });
    conditions.metadata.emplace_back(timeField, timeText(time));
}

} // namespace foundation::storage::provider::s3::detail
