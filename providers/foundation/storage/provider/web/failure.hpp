#pragma once

#include <foundation/storage/provider/error_code.hpp>

#include <stdexcept>
#include <string>

namespace foundation::storage::provider::web {

class Headers;

/// A request that failed. The text names the reason and holds no secret: no user, no password, no
/// query.
class Failure : public std::runtime_error {
  public:
    enum class Repetition {
        IsUseless,
        MayHelp,
        IsHarmless, ///< may help, and the request cannot have come to the server
    };

    Failure(ErrorCode code, std::string const& text, Repetition repetition = Repetition::IsUseless)
        : std::runtime_error(text),
          code_(code),
          repetition_(repetition) {}

    ErrorCode code() const noexcept { return code_; }
    /// Of a request that is not to be sent twice: it is not known whether it was done, unless
    /// cannotHaveCome().
    bool mayPass() const noexcept { return repetition_ != Repetition::IsUseless; }
    bool cannotHaveCome() const noexcept { return repetition_ == Repetition::IsHarmless; }

  private:
    ErrorCode code_;
    Repetition repetition_;
};

constexpr bool isSuccess(int status) noexcept {
    return status >= 200 && status < 300;
}
constexpr bool isAbsence(int status) noexcept {
    return status == 404 || status == 410;
}

/// Of reading one version of a file: by now it has another one.
class VersionFailure : public Failure {
  public:
    explicit VersionFailure(std::string const& text) : Failure(ErrorCode::IOError, text) {}
};

/// The code for the status of an answer (RFC 9110, section 15) that is no success.
ErrorCode errorCodeOfStatus(int status) noexcept;

/// Whether the same request may have success later.
bool mayPass(int status) noexcept;
/// Whether the server says, too, that it has done nothing of it.
bool isUndone(int status) noexcept;

/// "the server answered 404", as a failure.
Failure failureOfStatus(int status);
/// The same; where nobody is let in who cannot do more than we, it says what is wanted.
Failure failureOf(int status, Headers const& headers);

/// Of an answer that is no part of the protocol, or contradicts the question.
Failure unusableAnswer(std::string const& what);

} // namespace foundation::storage::provider::web
