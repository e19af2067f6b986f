#pragma once

#include <foundation/core/except/exception.hpp>
#include <foundation/export.hpp>
#include <foundation/storage/provider/error_code.hpp>

#include <ios>
#include <stdexcept>
#include <string>

namespace foundation::storage::provider {

/// A failure of an open stream. `what()` is the text that was given, naming the reason.
class FOUNDATION_EXPORT ByteStreamFailure : public foundation::core::except::IInternalException,
                                            public std::ios_base::failure {
  public:
    ByteStreamFailure(std::string const& text, ErrorCode code);

    virtual ErrorCode getErrorCode() const noexcept;
    char const* what() const noexcept override;
    fl::i18n::ustring ToUstringImpl() const override;
    ByteStreamFailure const* clone() const override;
    [[noreturn]] void rethrow() const override;

  private:
    std::runtime_error text_; // a text whose copies cannot fail
    ErrorCode code_;
};

class FOUNDATION_EXPORT ByteStreamReadFailure final : public ByteStreamFailure {
  public:
    using ByteStreamFailure::ByteStreamFailure;
    ByteStreamReadFailure const* clone() const override;
    [[noreturn]] void rethrow() const override;
};

class FOUNDATION_EXPORT ByteStreamWriteFailure final : public ByteStreamFailure {
  public:
    using ByteStreamFailure::ByteStreamFailure;
    ByteStreamWriteFailure const* clone() const override;
    [[noreturn]] void rethrow() const override;
};

class FOUNDATION_EXPORT ByteStreamSeekFailure final : public ByteStreamFailure {
  public:
    using ByteStreamFailure::ByteStreamFailure;
    ByteStreamSeekFailure const* clone() const override;
    [[noreturn]] void rethrow() const override;
};

class FOUNDATION_EXPORT ByteStreamCloseFailure final : public ByteStreamFailure {
  public:
    using ByteStreamFailure::ByteStreamFailure;
    ByteStreamCloseFailure const* clone() const override;
    [[noreturn]] void rethrow() const override;
};

} // namespace foundation::storage::provider
