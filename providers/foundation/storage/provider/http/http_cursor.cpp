#include <foundation/storage/provider/http/http_cursor.hpp>

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/attributes.hpp>
#include <foundation/storage/provider/web/headers.hpp>

#include <stdexcept>

namespace foundation::storage::provider::http {

AttributeValues attributesOf(detail::DavProperties const& properties) {
    AttributeValues values;
    values.size = properties.size;
    values.lastModified.seconds = web::parseHttpDate(properties.lastModified).value_or(0);
    if (properties.created) {
        values.created = Timestamp{*properties.created, 0};
    }
    values.writable = true;
    return values;
}

void HttpCursor::advance() {
    if (!hasNext()) {
        throw std::logic_error("advance() behind the last entry of a listing");
    }
    ++next_;
}

FolderEntry HttpCursor::currentEntry() const {
    if (next_ == 0) {
        throw std::logic_error("currentEntry() before the first entry of a listing");
    }
    detail::DavMember const& member = (*members_)[next_ - 1];
    fl::i18n::ustring name = fl::i18n::storageNameToUstring(member.name);
    if (told_ == HttpSelection::Told::Names || !member.hasProperties) {
        return FolderEntry(std::move(name), !member.isFolder);
    }
    AttributeValues values = attributesOf(member.properties);
    if (member.isFolder) {
        values.size.reset(); // some servers tell one
        return FolderEntry(std::move(name), FolderAttributes(values));
    }
    return FolderEntry(std::move(name), FileAttributes(values));
}

} // namespace foundation::storage::provider::http
