#include <foundation/storage/provider/s3/detail/likeness.hpp>

#include <foundation/storage/provider/s3/detail/object_time.hpp>
#include <foundation/storage/provider/s3/detail/request_fields.hpp>

#include <algorithm>
#include <array>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace foundation::storage::provider::s3::detail {

namespace {

/// Those that a copy has from its source; see CopyObject.
constexpr std::array<std::string_view, 6> contentFields{"Cache-Control",    "Content-Disposition",
                                                        "Content-Encoding", "Content-Language",
                                                        "Content-Type",     "Expires"};

/// How much metadata there is that the store cannot tell.
constexpr std::string_view untoldMetadata = "x-amz-missing-meta";

bool isTime(std::string_view name) noexcept {
    return web::areEqualNames(name, timeField);
}

using Fields = std::vector<std::pair<std::string, std::string>>;

/// Several values of one name are one (RFC 9110, section 5.3); what an answer repeats is no more
/// than it was.
void add(Fields& fields, std::string name, std::string const& value) {
    auto const known = std::find_if(fields.begin(), fields.end(), [&](auto const& field) {
        return web::areEqualNames(field.first, name);
    });
    if (known == fields.end()) {
        fields.emplace_back(std::move(name), value);
    } else if (known->second != value) {
        known->second += ", " + value;
    }
}

} // namespace

Likeness likenessOf(ObjectHead const& head) {
    Likeness likeness;
    for (auto const& [name, value] : head.headers.fields()) {
        bool const isField =
            std::any_of(contentFields.begin(), contentFields.end(),
                        [&](std::string_view field) { return web::areEqualNames(name, field); });
        std::string_view const metadata = metadataNameOf(name);
        if (web::areEqualNames(name, untoldMetadata) && value != "0") {
            likeness.isComplete = false;
        }
        if (!isField && metadata.empty()) {
            continue;
        }
        if (!canBeName(name) || !canBeValue(value)) {
            likeness.isComplete = false;
            continue;
        }
        if (isField) {
            add(likeness.conditions.contentFields, name, value);
        } else if (!isTime(metadata)) {
            add(likeness.conditions.metadata, std::string(metadata), value);
        }
    }
    return likeness;
}

void setTime(PutConditions& conditions, Timestamp time) {
    std::erase_if(conditions.metadata, [](auto const& field) { return isTime(field.first); });
    conditions.metadata.emplace_back(timeField, timeText(time));
}

} // namespace foundation::storage::provider::s3::detail
