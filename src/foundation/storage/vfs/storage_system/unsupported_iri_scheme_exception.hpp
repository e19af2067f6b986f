#pragma once

#include <fl/i18n/ustring.hpp>
#include <foundation/export.hpp>

#include <exception>

namespace foundation::storage::vfs {

using fl::i18n::ustring;

/// No provider is registered for a scheme. Thrown wrapped in
/// foundation::core::except::detail::AnonymousInternalException; a handler for this class catches
/// it.
class FOUNDATION_EXPORT UnsupportedIRISchemeException : public std::exception {
  public:
    explicit UnsupportedIRISchemeException(ustring const& scheme);
    UnsupportedIRISchemeException(UnsupportedIRISchemeException const&) = default;
    UnsupportedIRISchemeException& operator=(UnsupportedIRISchemeException const&) = default;
    ~UnsupportedIRISchemeException() override;

    /// The name of this class; the scheme is not part of it.
    char const* what() const noexcept override;
    ustring getScheme() const;

  private:
    ustring scheme_;
};

} // namespace foundation::storage::vfs
