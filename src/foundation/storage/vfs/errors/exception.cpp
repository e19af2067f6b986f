#include <foundation/storage/vfs/errors/exception.hpp>

#include <fl/i18n/conversion.hpp>

#include <boost/exception/get_error_info.hpp>
#include <boost/exception/info.hpp>

namespace foundation::storage::vfs {

namespace {

using CodeInfo = boost::error_info<TagErrorCode, ErrorCode>;
using LocationInfo = boost::error_info<TagAbsoluteIRI, AbsoluteIRI>;
using ReasonInfo = boost::error_info<TagReason, std::string>;

template<class E>
ustring describe(E const& exception, ustring const& more = {}) {
    return fl::i18n::to_ustring(exception.what()) + u"{Location=\"" +
           exception.getLocation().toString() + u'"' + more + u'}';
}

} // namespace

Exception::Exception(ErrorCode const& code, AbsoluteIRI const& location) {
    *this << CodeInfo(code) << LocationInfo(location);
}

Exception::~Exception() noexcept = default;

ErrorCode Exception::getErrorCode() const {
    return *boost::get_error_info<CodeInfo>(*this);
}
AbsoluteIRI Exception::getLocation() const {
    return *boost::get_error_info<LocationInfo>(*this);
}
std::string Exception::getReason() const {
    std::string const* const reason = boost::get_error_info<ReasonInfo>(*this);
    return reason ? *reason : std::string();
}

char const* Exception::what() const noexcept {
    return "foundation::storage::vfs::Exception";
}

ustring Exception::ToUstringImpl() const {
    return describe(*this, u", ErrorCode=\"" + errorCodeUstring(getErrorCode()) + u'"');
}

Exception const* Exception::clone() const {
    return new Exception(*this);
}
void Exception::rethrow() const {
    throw Exception(*this);
}

ChangeEventsNotSupportedException::ChangeEventsNotSupportedException(AbsoluteIRI const& location) {
    *this << LocationInfo(location);
}

ChangeEventsNotSupportedException::~ChangeEventsNotSupportedException() noexcept = default;

AbsoluteIRI ChangeEventsNotSupportedException::getLocation() const {
    return *boost::get_error_info<LocationInfo>(*this);
}

char const* ChangeEventsNotSupportedException::what() const noexcept {
    return "foundation::storage::vfs::ChangeEventsNotSupportedException";
}

ustring ChangeEventsNotSupportedException::ToUstringImpl() const {
    return describe(*this);
}

ChangeEventsNotSupportedException const* ChangeEventsNotSupportedException::clone() const {
    return new ChangeEventsNotSupportedException(*this);
}

void ChangeEventsNotSupportedException::rethrow() const {
    throw ChangeEventsNotSupportedException(*this);
}

ChangeEventsSubscriptionException::ChangeEventsSubscriptionException(AbsoluteIRI const& location) {
    *this << LocationInfo(location);
}

ChangeEventsSubscriptionException::~ChangeEventsSubscriptionException() noexcept = default;

AbsoluteIRI ChangeEventsSubscriptionException::getLocation() const {
    return *boost::get_error_info<LocationInfo>(*this);
}

char const* ChangeEventsSubscriptionException::what() const noexcept {
    return "foundation::storage::vfs::ChangeEventsSubscriptionException";
}

ustring ChangeEventsSubscriptionException::ToUstringImpl() const {
    return describe(*this);
}

ChangeEventsSubscriptionException const* ChangeEventsSubscriptionException::clone() const {
    return new ChangeEventsSubscriptionException(*this);
}

void ChangeEventsSubscriptionException::rethrow() const {
    throw ChangeEventsSubscriptionException(*this);
}

} // namespace foundation::storage::vfs
