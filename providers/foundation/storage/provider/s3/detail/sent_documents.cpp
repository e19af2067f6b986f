#include <foundation/storage/provider/s3/detail/sent_documents.hpp>

namespace foundation::storage::provider::s3::detail {

namespace {

/// Text of an element; control characters as what they must be written, or else be lost.
void append(std::string& document, std::string_view text) {
    for (char const c : text) {
        switch (c) {
        case '&':
            document += "&amp;";
            break;
        case '<':
            document += "&lt;";
            break;
        case '>':
            document += "&gt;";
            break;
        case '"':
            document += "&quot;";
            break;
        case '\t':
            document += "&#9;";
            break;
        case '\n':
            document += "&#10;";
            break;
        case '\r':
            document += "&#13;";
            break;
        default:
            document += c;
        }
    }
}

} // namespace

std::string removalOf(std::span<std::string const> keys) {
    std::string document = R"(<?xml version="1.0" encoding="UTF-8"?>)"
                           R"(<Delete xmlns="http://s3.amazonaws.com/doc/2006-03-01/">)"
                           "<Quiet>true</Quiet>";
    for (std::string const& key : keys) {
        document += "<Object><Key>";
        append(document, key);
        document += "</Key></Object>";
    }
    return document + "</Delete>";
}

std::string completionOf(std::span<UploadedPart const> parts) {
    std::string document =
        R"(<?xml version="1.0" encoding="UTF-8"?>)"
        R"(<CompleteMultipartUpload xmlns="http://s3.amazonaws.com/doc/2006-03-01/">)";
    for (UploadedPart const& part : parts) {
        document += "<Part><PartNumber>" + std::to_string(part.number) + "</PartNumber><ETag>";
        append(document, part.eTag);
        document += "</ETag></Part>";
    }
    return document + "</CompleteMultipartUpload>";
}

bool canBeWritten(std::string_view key) noexcept {
    for (std::size_t i = 0; i < key.size();) {
        auto const first = static_cast<unsigned char>(key[i]);
        std::size_t const more = first < 0x80   ? 0
                                 : first < 0xc2 ? 4
                                 : first < 0xe0 ? 1
                                 : first < 0xf0 ? 2
                                 : first < 0xf5 ? 3
                                                : 4;
        if (more == 4 || key.size() - i <= more) {
            return false;
        }
        char32_t code = more == 0 ? first : first & (0x3fU >> more);
        for (std::size_t k = 1; k <= more; ++k) {
            auto const next = static_cast<unsigned char>(key[i + k]);
            if ((next & 0xc0) != 0x80) {
                return false;
            }
            code = code << 6 | (next & 0x3f);
        }
        constexpr char32_t least[] = {0, 0x80, 0x800, 0x10000};
        if (code < least[more] || code > 0x10ffff || (code >= 0xd800 && code < 0xe000) ||
            code == 0xfffe || code == 0xffff ||
            (code < 0x20 && code != '\t' && code != '\n' && code != '\r')) {
            return false;
        }
        i += more + 1;
    }
    return true;
}

} // namespace foundation::storage::provider::s3::detail
