#pragma once

#include <fl/i18n/ustring.hpp>
#include <foundation/export.hpp>

#include <exception>

namespace foundation::storage::vfs {

using fl::i18n::ustring;

/// A text that names no location. Mostly thrown wrapped in
/// foundation::core::except::detail::AnonymousInternalException, with the cause as
/// boost::errinfo_nested_exception; a handler for this class catches every form.
class FOUNDATION_EXPORT InvalidIRIException : public std::exception {
  public:
    explicit InvalidIRIException(ustring const& text);
    InvalidIRIException(InvalidIRIException const&) = default;
    InvalidIRIException& operator=(InvalidIRIException const&) = default;
    ~InvalidIRIException() override;

    /// The name of this class; the text is not part of it.
    char const* what() const noexcept override;
    ustring getInvalidIRIString() const;

  private:
    ustring text_;
};

} // namespace foundation::storage::vfs
