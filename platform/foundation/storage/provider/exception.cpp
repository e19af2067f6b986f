#include <foundation/storage/provider/exception.hpp>

#include <fl/i18n/conversion.hpp>

#include <sstream>
#include <utility>

namespace foundation::storage::provider {

namespace {

ustring withLocation(char const* name, StorageIRI const& location, std::string const& more = {}) {
    ustring text = fl::i18n::to_ustring(name);
    text += u"{Location=\"";
    text += location.toString();
    text += u'"';
    text += fl::i18n::to_ustring(more);
    text += u'}';
    return text;
}

} // namespace

Exception::Exception(ErrorCode code, StorageIRI location, std::string reason)
    : code_(code),
      location_(std::move(location)),
      reason_(std::move(reason)) {}

char const* Exception::what() const noexcept {
    return "foundation::storage::provider::Exception";
}

ustring Exception::ToUstringImpl() const {
    std::ostringstream code;
    code << ", ErrorCode=\"" << code_ << '"';
    if (!reason_.empty()) {
        code << ", Reason=\"" << reason_ << '"';
    }
    return withLocation(what(), location_, code.str());
}

Exception const* Exception::clone() const {
    return new Exception(*this);
}
void Exception::rethrow() const {
    throw Exception(*this);
}

ChangeEventsNotSupportedException::ChangeEventsNotSupportedException(StorageIRI location)
    : location_(std::move(location)) {}

char const* ChangeEventsNotSupportedException::what() const noexcept {
    return "foundation::storage::provider::ChangeEventsNotSupportedException";
}

ustring ChangeEventsNotSupportedException::ToUstringImpl() const {
    return withLocation(what(), location_);
}

ChangeEventsNotSupportedException const* ChangeEventsNotSupportedException::clone() const {
    return new ChangeEventsNotSupportedException(*this);
}

void ChangeEventsNotSupportedException::rethrow() const {
    throw ChangeEventsNotSupportedException(*this);
}

ChangeEventsSubscriptionException::ChangeEventsSubscriptionException(StorageIRI location)
    : location_(std::move(location)) {}

char const* ChangeEventsSubscriptionException::what() const noexcept {
    return "foundation::storage::provider::ChangeEventsSubscriptionException";
}

ustring ChangeEventsSubscriptionException::ToUstringImpl() const {
    return withLocation(what(), location_);
}

ChangeEventsSubscriptionException const* ChangeEventsSubscriptionException::clone() const {
    return new ChangeEventsSubscriptionException(*this);
}

void ChangeEventsSubscriptionException::rethrow() const {
    throw ChangeEventsSubscriptionException(*this);
}

} // namespace foundation::storage::provider
