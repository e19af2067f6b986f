#include "failure.hpp"

#include "display.hpp"

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/malformed_iri_exception.hpp>
#include <foundation/storage/vfs/errors/exception.hpp>
#include <foundation/storage/vfs/storage_system/exists.hpp>
#include <foundation/storage/vfs/storage_system/pluggable_storage_system.hpp>
#include <foundation/storage/vfs/streams/io_exception.hpp>

#include <boost/exception/errinfo_nested_exception.hpp>
#include <boost/exception/get_error_info.hpp>
#include <boost/exception_ptr.hpp>

#include <cerrno>
#include <exception>
#include <new>
#include <optional>
#include <system_error>

namespace cli {

namespace provider = foundation::storage::provider;
namespace vfs = foundation::storage::vfs;

namespace {

// A failure before it is put into words.
struct Facts {
    std::optional<vfs::ErrorCode> code;
    std::optional<vfs::AbsoluteIRI> location; // where the failure names one
    bool reading = false;
    std::string reason; // the words so far
};

bool isVague(vfs::ErrorCode code) noexcept {
    return code == vfs::ErrorCode::IOError || code == vfs::ErrorCode::InternalError ||
           code == vfs::ErrorCode::Unknown;
}

// Streams say what happened in a text of the storage's own; it helps where the code says little.
std::string withDetail(vfs::ErrorCode code, std::string detail) {
    // What the standard library appends to the text of a stream's failure.
    std::string_view const suffix = ": iostream error";
    if (detail.ends_with(suffix)) {
        detail.resize(detail.size() - suffix.size());
    }
    std::string const words = wordsFor(code);
    return isVague(code) && !detail.empty() ? words + " (" + onOneLine(detail) + ")" : words;
}

// Some storages give a reason with a code, which helps also where more than one may be meant.
std::string withReason(vfs::ErrorCode code, std::string const& reason) {
    bool const isOneOfMany = isVague(code) || code == vfs::ErrorCode::InvalidLocation ||
                             code == vfs::ErrorCode::PermissionDenied ||
                             code == vfs::ErrorCode::UnsupportedOperation;
    std::string const words = wordsFor(code);
    return isOneOfMany && !reason.empty() ? words + " (" + onOneLine(reason) + ")" : words;
}

vfs::ErrorCode systemCode(provider::ErrorCode code) {
    switch (code) {
    case provider::ErrorCode::FolderNotEmpty:
        return vfs::ErrorCode::FolderNotEmpty;
    case provider::ErrorCode::InvalidLocation:
        return vfs::ErrorCode::InvalidLocation;
    case provider::ErrorCode::PermissionDenied:
        return vfs::ErrorCode::PermissionDenied;
    case provider::ErrorCode::ResourceAlreadyExists:
        return vfs::ErrorCode::ResourceAlreadyExists;
    case provider::ErrorCode::ResourceNotFound:
        return vfs::ErrorCode::ResourceNotFound;
    case provider::ErrorCode::FileTooLarge:
        return vfs::ErrorCode::FileTooLarge;
    case provider::ErrorCode::ResourceInUse:
        return vfs::ErrorCode::ResourceInUse;
    case provider::ErrorCode::ReadOnlyProvider:
        return vfs::ErrorCode::ReadOnlyProvider;
    case provider::ErrorCode::NoSpaceLeft:
        return vfs::ErrorCode::NoSpaceLeft;
    case provider::ErrorCode::IOError:
        return vfs::ErrorCode::IOError;
    case provider::ErrorCode::InternalError:
        return vfs::ErrorCode::InternalError;
    case provider::ErrorCode::UnsupportedOperation:
        return vfs::ErrorCode::UnsupportedOperation;
    case provider::ErrorCode::Unknown:
        break;
    }
    return vfs::ErrorCode::Unknown;
}

// Why a watch could not be started, as far as that was said: what lacks stands at the bottom of the
// nested exceptions.
std::string causeOf(boost::exception const& failure) {
    auto const* const cause = boost::get_error_info<boost::errinfo_nested_exception>(failure);
    if (cause == nullptr) {
        return {};
    }
    try {
        boost::rethrow_exception(*cause);
    } catch (std::system_error const& error) {
        switch (error.code().value()) {
        case ENOSPC:
            return ": no more watches are allowed (fs.inotify.max_user_watches)";
        case EMFILE:
            return ": too many watchers or open files (fs.inotify.max_user_instances, ulimit -n)";
        default:
            return ": " + onOneLine(error.code().message());
        }
    } catch (boost::exception const& deeper) {
        return causeOf(deeper);
    } catch (std::exception const& other) {
        return ": " + onOneLine(other.what());
    }
}

Facts factsOfCurrentFailure() {
    try {
        throw;
    } catch (Refusal const& refusal) {
        return {{}, {}, false, refusal.what()};
    } catch (vfs::Exception const& failure) {
        vfs::ErrorCode const code = failure.getErrorCode();
        return {code, failure.getLocation(), false, withReason(code, failure.getReason())};
    } catch (vfs::IOException const& failure) {
        vfs::ErrorCode const code = failure.getErrorCode();
        bool const reading = dynamic_cast<vfs::IOReadException const*>(&failure) != nullptr;
        return {code, {}, reading, withDetail(code, failure.what())};
    } catch (provider::Exception const& failure) {
        vfs::ErrorCode const code = systemCode(failure.getErrorCode());
        return {code, vfs::AbsoluteIRI(failure.getStorageIRI(), false), false,
                withReason(code, failure.getReason())};
    } catch (provider::ByteStreamFailure const& failure) {
        vfs::ErrorCode const code = systemCode(failure.getErrorCode());
        bool const reading =
            dynamic_cast<provider::ByteStreamReadFailure const*>(&failure) != nullptr;
        return {code, {}, reading, withDetail(code, failure.what())};
    } catch (provider::MalformedIRIException const& malformed) {
        return {{}, {}, false, "not a valid location: " + onOneLine(malformed.what())};
    } catch (vfs::UnsupportedIRISchemeException const& unknown) {
        std::string const scheme = onOneLine(fl::i18n::toDisplayString(unknown.getScheme()));
        return {{}, {}, false, "no provider for the scheme '" + scheme + "'"};
    } catch (vfs::InvalidIRIException const&) {
        return {{}, {}, false, "not a valid location"};
    } catch (vfs::ChangeEventsNotSupportedException const& refused) {
        return {{}, refused.getLocation(), false, "the storage does not tell of changes"};
    } catch (vfs::ChangeEventsSubscriptionException const& failure) {
        return {{}, failure.getLocation(), false, "cannot be watched" + causeOf(failure)};
    } catch (std::bad_alloc const&) {
        return {{}, {}, false, "out of memory"};
    } catch (std::exception const& other) {
        return {{}, {}, false, onOneLine(other.what())};
    }
}

// What the code leaves open, the storage can often tell.
std::string plainer(vfs::StorageSystemReference const& system, vfs::AbsoluteIRI const& at,
                    vfs::ErrorCode code) {
    bool const lookedFor = code == vfs::ErrorCode::ResourceNotFound;
    bool const wrongKind =
        code == vfs::ErrorCode::InvalidLocation || code == vfs::ErrorCode::UnsupportedOperation;
    if (!lookedFor && !wrongKind) {
        return {};
    }
    try {
        switch (existsExtended(at, system)) {
        case provider::ExtendedExistsResult::DanglingLink:
            return "is a link that leads nowhere";
        case provider::ExtendedExistsResult::Folder:
        case provider::ExtendedExistsResult::LinkToFolder:
            return lookedFor ? "" : "is a folder";
        case provider::ExtendedExistsResult::Other:
            return lookedFor ? "" : "is not a regular file";
        default:
            return {};
        }
    } catch (std::exception const&) {
        return {}; // the first failure is the one to tell of
    }
}

std::string textOf(vfs::AbsoluteIRI const& iri) {
    return shownLocation(fl::i18n::toDisplayString(fromAbsoluteIRI(iri)));
}

} // namespace

char const* wordsFor(vfs::ErrorCode code) noexcept {
    switch (code) {
    case vfs::ErrorCode::FolderNotEmpty:
        return "folder not empty";
    case vfs::ErrorCode::InvalidLocation:
        return "the storage cannot use this name or kind of item here";
    case vfs::ErrorCode::PermissionDenied:
        return "permission denied";
    case vfs::ErrorCode::ResourceAlreadyExists:
        return "already exists";
    case vfs::ErrorCode::ResourceNotFound:
        return "no such file or folder";
    case vfs::ErrorCode::ReadOnlyProvider:
        return "the storage is read-only";
    case vfs::ErrorCode::FileTooLarge:
        return "file too large";
    case vfs::ErrorCode::ResourceInUse:
        return "in use";
    case vfs::ErrorCode::NoSpaceLeft:
        return "no space left";
    case vfs::ErrorCode::IOError:
        return "input or output failed";
    case vfs::ErrorCode::InternalError:
        return "internal error of the storage";
    case vfs::ErrorCode::UnsupportedOperation:
        return "not supported by this storage";
    case vfs::ErrorCode::Unknown:
        break;
    }
    return "failed for a reason that the storage does not tell";
}

char const* wordsFor(provider::ErrorCode code) noexcept {
    return wordsFor(systemCode(code));
}

FailureText describeCurrentFailure(vfs::StorageSystemReference const& system,
                                   std::span<Location const> operands) {
    Facts const facts = factsOfCurrentFailure();
    Location const& reads = operands.front();
    Location const& changes = operands.back();
    if (!facts.location) {
        return {(facts.reading ? reads : changes).shown(), facts.reason};
    }
    std::string const more = facts.code ? plainer(system, *facts.location, *facts.code) : "";
    std::string const reason = more.empty() ? facts.reason : more;
    for (Location const& operand : operands) {
        if (operand.iri == *facts.location) {
            return {operand.shown(), reason};
        }
    }
    return {textOf(*facts.location), reason};
}

std::optional<vfs::ErrorCode> codeOfCurrentFailure() {
    return factsOfCurrentFailure().code;
}

std::optional<vfs::AbsoluteIRI> locationOfCurrentFailure() {
    return factsOfCurrentFailure().location;
}

std::string reasonOfCurrentFailure() {
    return factsOfCurrentFailure().reason;
}

} // namespace cli
