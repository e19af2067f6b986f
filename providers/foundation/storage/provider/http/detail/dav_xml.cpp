#include <foundation/storage/provider/http/detail/dav_xml.hpp>

#include <foundation/storage/provider/web/failure.hpp>
#include <foundation/storage/provider/web/headers.hpp>

#include <algorithm>
#include <cstdio>
#include <ctime>
#include <pugixml.hpp>
#include <string_view>
#include <utility>

namespace foundation::storage::provider::http::detail {

namespace {

/// Each look at a name goes through the attributes around it; no server has reason for more.
constexpr unsigned mostAttributes = 64;

/// The namespace that a prefix stands for at a node.
std::string_view namespaceOf(pugi::xml_node node, std::string_view prefix) {
    for (; node; node = node.parent()) {
        unsigned count = 0;
        for (pugi::xml_attribute const attribute : node.attributes()) {
            if (++count > mostAttributes) {
                throw web::unusableAnswer("an XML tag with too many attributes");
            }
            std::string_view name = attribute.name();
            if (!name.starts_with("xmlns")) {
                continue;
            }
            name.remove_prefix(5);
            if (prefix.empty() ? name.empty() : name.starts_with(':') && name.substr(1) == prefix) {
                return attribute.value();
            }
        }
    }
    return {};
}

/// Prefixes are the server's choice: only the namespace that they stand for counts.
bool isDav(pugi::xml_node node, std::string_view localName) {
    std::string_view const name = node.name();
    std::size_t const colon = name.find(':');
    bool const hasPrefix = colon != std::string_view::npos;
    return (hasPrefix ? name.substr(colon + 1) : name) == localName &&
           namespaceOf(node, hasPrefix ? name.substr(0, colon) : std::string_view()) == "DAV:";
}

template<class Call>
void eachDav(pugi::xml_node parent, std::string_view localName, Call const& call) {
    for (pugi::xml_node const child : parent.children()) {
        if (isDav(child, localName)) {
            call(child);
        }
    }
}

/// The text of a node, in however many pieces, without the blanks around it.
std::string textOf(pugi::xml_node node) {
    std::string text;
    for (pugi::xml_node const piece : node.children()) {
        if (piece.type() == pugi::node_pcdata || piece.type() == pugi::node_cdata) {
            text += piece.value();
        }
    }
    return std::string(web::trimmed(text));
}

/// "HTTP/1.1 200 OK"; 0 for anything else.
int parseStatus(std::string const& line) {
    if (!line.starts_with("HTTP/")) {
        return 0;
    }
    std::size_t const blank = line.find(' ');
    if (blank == std::string::npos) {
        return 0;
    }
    auto const number = web::parseNumber(std::string_view(line).substr(blank + 1, 3));
    return number && *number >= 100 && *number <= 599 ? static_cast<int>(*number) : 0;
}

/// A date and time by RFC 3339, of which the fraction of a second is dropped.
std::optional<std::int64_t> parseTime(std::string const& text) {
    std::tm time{};
    int length = 0;
    if (std::sscanf(text.c_str(), "%4d-%2d-%2dT%2d:%2d:%2d%n", &time.tm_year, &time.tm_mon,
                    &time.tm_mday, &time.tm_hour, &time.tm_min, &time.tm_sec, &length) != 6) {
        return std::nullopt;
    }
    std::string_view rest = std::string_view(text).substr(static_cast<std::size_t>(length));
    if (rest.starts_with('.')) {
        rest.remove_prefix(std::min(rest.find_first_not_of("0123456789", 1), rest.size()));
    }
    std::int64_t offset = 0;
    if (rest != "Z" && rest != "z") {
        int hours = 0;
        int minutes = 0;
        if ((!rest.starts_with('+') && !rest.starts_with('-')) ||
            std::sscanf(rest.data() + 1, "%2d:%2d", &hours, &minutes) != 2) {
            return std::nullopt;
        }
        offset = (hours * 60 + minutes) * (rest.front() == '-' ? -60 : 60);
    }
    time.tm_year -= 1900;
    time.tm_mon -= 1;
    return static_cast<std::int64_t>(::timegm(&time)) - offset;
}

void take(pugi::xml_node found, DavProperties& properties) {
    for (pugi::xml_node const property : found.children()) {
        if (isDav(property, "resourcetype")) {
            bool isFolder = false;
            eachDav(property, "collection", [&](pugi::xml_node) { isFolder = true; });
            properties.isFolder = isFolder;
        } else if (isDav(property, "getcontentlength")) {
            properties.size = web::parseNumber(textOf(property));
        } else if (isDav(property, "creationdate")) {
            properties.created = parseTime(textOf(property));
        } else if (isDav(property, "getlastmodified")) {
            properties.lastModified = textOf(property);
        } else if (isDav(property, "getetag")) {
            properties.etag = textOf(property);
        } else if (isDav(property, "getcontenttype")) {
            properties.contentType = textOf(property);
        }
    }
}

int statusOf(pugi::xml_node part) {
    int status = 0;
    eachDav(part, "status", [&](pugi::xml_node node) {
        if (status != 0) {
            throw web::unusableAnswer("two states of one item");
        }
        status = parseStatus(textOf(node));
        if (status == 0) {
            throw web::unusableAnswer("a state that is none");
        }
    });
    return status;
}

void takeProperties(pugi::xml_node part, DavResponse& response) {
    int const status = statusOf(part);
    if (status == 0) {
        throw web::unusableAnswer("properties without a state");
    }
    if (web::isSuccess(status)) {
        eachDav(part, "prop", [&](pugi::xml_node found) { take(found, response.properties); });
    } else if (!web::isAbsence(status) && response.refusal == 0) {
        response.refusal = status;
    }
}

} // namespace

void parseMultistatus(std::string text, std::vector<DavResponse>& responses) {
    pugi::xml_document document;
    auto const parsed = document.load_buffer_inplace(text.data(), text.size(),
                                                     pugi::parse_default | pugi::parse_doctype);
    if (!parsed) {
        throw web::unusableAnswer("no well-formed XML");
    }
    // Nothing that a document type could say has a meaning here.
    for (pugi::xml_node const node : document.children()) {
        if (node.type() == pugi::node_doctype) {
            throw web::unusableAnswer("a document type");
        }
    }
    pugi::xml_node const root = document.document_element();
    if (!isDav(root, "multistatus")) {
        throw web::unusableAnswer("XML that is no multistatus");
    }
    eachDav(root, "response", [&](pugi::xml_node part) {
        DavResponse response;
        response.status = statusOf(part);
        bool hasProperties = false;
        eachDav(part, "propstat", [&](pugi::xml_node properties) {
            hasProperties = true;
            takeProperties(properties, response);
        });
        // One state may be that of several items; each has a part of its own from here on.
        std::size_t items = 0;
        eachDav(part, "href", [&](pugi::xml_node) { ++items; });
        if (items == 0) {
            throw web::unusableAnswer("a part that names no item");
        }
        if (items > 1 && hasProperties) { // which may be many, and long
            throw web::unusableAnswer("properties of several items at once");
        }
        eachDav(part, "href", [&](pugi::xml_node href) {
            response.href = textOf(href);
            responses.push_back(response);
        });
    });
}

} // namespace foundation::storage::provider::http::detail
