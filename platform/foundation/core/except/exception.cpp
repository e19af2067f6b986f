#include <foundation/core/except/exception.hpp>

#include <fl/i18n/conversion.hpp>

namespace foundation::core::except {

IException::~IException() noexcept = default;
IInternalException::~IInternalException() noexcept = default;

char const* IException::what() const noexcept {
    return "foundation::core::except::IException";
}

ustring IException::convert_str(ustring const& text) const {
    return text;
}

ustring IException::convert_str(std::string const& text) const {
    return fl::i18n::storageNameToUstring(text);
}

ustring IException::ToUstringImpl() const {
    return convert_str(std::string(what()));
}

template class Exception<IInternalException, std::exception, void>;

} // namespace foundation::core::except
