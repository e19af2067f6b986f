#pragma once

#include <foundation/core/except/exception.hpp>
#include <foundation/export.hpp>

#include <stdexcept>
#include <string>

namespace foundation::storage::provider {

/// A text that is no location. `what()` says what is wrong with it; the text itself is not
/// repeated, since it may hold a password.
class FOUNDATION_EXPORT MalformedIRIException final
    : public foundation::core::except::Exception<foundation::core::except::IInternalException,
                                                 std::invalid_argument, void> {
  public:
    explicit MalformedIRIException(std::string const& reason);

    MalformedIRIException const* clone() const override;
    [[noreturn]] void rethrow() const override;
};

} // namespace foundation::storage::provider
