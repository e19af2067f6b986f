#pragma once

#include "location.hpp"

#include <foundation/storage/provider/error_code.hpp>
#include <foundation/storage/vfs/errors/error_code.hpp>
#include <foundation/storage/vfs/storage_system/storage_system_reference.hpp>

#include <optional>
#include <span>
#include <stdexcept>
#include <string>

namespace cli {

/// The command itself refuses; `what()` says why, in the words for the person.
class Refusal : public std::runtime_error {
  public:
    using std::runtime_error::runtime_error;
};

char const* wordsFor(foundation::storage::vfs::ErrorCode code) noexcept;
char const* wordsFor(foundation::storage::provider::ErrorCode code) noexcept;

/// A failure for people: what it is about, as it was typed where possible, and what is wrong. Both
/// are on one line and without secrets.
struct FailureText {
    std::string subject;
    std::string reason;

    bool operator==(FailureText const&) const = default;
};

/// Words for the exception that is being handled. `operands` are the locations that the operation
/// was given, what it reads first and what it changes last; where the failure names none of them,
/// it is about the first for a failed read and about the last otherwise. Asks the storage what is
/// there where that makes the reason plainer.
/// REQUIRES: an exception is being handled, and there is an operand.
FailureText describeCurrentFailure(foundation::storage::vfs::StorageSystemReference const& system,
                                   std::span<Location const> operands);

/// The code of the exception that is being handled; empty for one that carries none.
std::optional<foundation::storage::vfs::ErrorCode> codeOfCurrentFailure();

/// The location that the exception that is being handled names; empty where it names none.
std::optional<foundation::storage::vfs::AbsoluteIRI> locationOfCurrentFailure();

/// The reason alone, for a failure that comes before there is a location.
std::string reasonOfCurrentFailure();

} // namespace cli
