#pragma once

#include <foundation/core/except/exception.hpp>
#include <foundation/export.hpp>
#include <foundation/storage/vfs/errors/error_code.hpp>

#include <ios>
#include <string>

namespace foundation::storage::vfs {

/// An operation on an open byte stream failed. Carries a code and no location. A handler for
/// std::ios_base::failure catches these, and one for vfs::Exception does not.
class FOUNDATION_EXPORT IOException : public foundation::core::except::IInternalException,
                                      public std::ios_base::failure {
  public:
    IOException(std::string const& message, ErrorCode code);
    IOException(IOException const&) = default;

    IOException const* clone() const override = 0;
    void rethrow() const override = 0;
    ~IOException() noexcept override;
    /// The message, with what the standard library appends to it.
    char const* what() const noexcept override;
    virtual ErrorCode getErrorCode() const;

  private:
    ErrorCode code_;
};

/// Reading failed.
class FOUNDATION_EXPORT IOReadException : public IOException {
  public:
    using IOException::IOException;
    explicit IOReadException(ErrorCode code);
    IOReadException const* clone() const override;
    [[noreturn]] void rethrow() const override;
};

/// Writing failed.
class FOUNDATION_EXPORT IOWriteException : public IOException {
  public:
    using IOException::IOException;
    explicit IOWriteException(ErrorCode code);
    IOWriteException const* clone() const override;
    [[noreturn]] void rethrow() const override;
};

/// Seeking or telling failed.
class FOUNDATION_EXPORT IOSeekException : public IOException {
  public:
    using IOException::IOException;
    explicit IOSeekException(ErrorCode code);
    IOSeekException const* clone() const override;
    [[noreturn]] void rethrow() const override;
};

/// Closing failed; what was written last may be lost.
class FOUNDATION_EXPORT IOCloseException : public IOException {
  public:
    using IOException::IOException;
    explicit IOCloseException(ErrorCode code);
    IOCloseException const* clone() const override;
    [[noreturn]] void rethrow() const override;
};

} // namespace foundation::storage::vfs
