#include <foundation/storage/vfs/errors/detail/rethrow_as_vfs_exception.hpp>

#include <foundation/core/except/nested.hpp>
#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/vfs/errors/exception.hpp>
#include <foundation/storage/vfs/streams/io_exception.hpp>

#include <boost/exception/diagnostic_information.hpp>
#include <boost/exception/errinfo_nested_exception.hpp>
#include <boost/exception/info.hpp>

#include <array>
#include <cstddef>
#include <sstream>

namespace foundation::storage::vfs {

namespace {

/// By position: the provider's code. The two enumerations differ at 5, 6 and 7.
constexpr std::array codeTable{
    ErrorCode::FolderNotEmpty,   ErrorCode::InvalidLocation,
    ErrorCode::PermissionDenied, ErrorCode::ResourceAlreadyExists,
    ErrorCode::ResourceNotFound, ErrorCode::FileTooLarge,
    ErrorCode::ResourceInUse,    ErrorCode::ReadOnlyProvider,
    ErrorCode::NoSpaceLeft,      ErrorCode::IOError,
    ErrorCode::InternalError,    ErrorCode::UnsupportedOperation,
};

ErrorCode mapCode(provider::ErrorCode code) {
    auto const index = static_cast<std::uint32_t>(code);
    return index < codeTable.size() ? codeTable[index] : ErrorCode::Unknown;
}

[[noreturn]] void rethrowByteStreamFailure() {
    try {
        throw;
    } catch (provider::ByteStreamReadFailure const& e) {
        throw IOReadException(e.what(), mapCode(e.getErrorCode()));
    } catch (provider::ByteStreamWriteFailure const& e) {
        throw IOWriteException(e.what(), mapCode(e.getErrorCode()));
    } catch (provider::ByteStreamSeekFailure const& e) {
        throw IOSeekException(e.what(), mapCode(e.getErrorCode()));
    } catch (provider::ByteStreamCloseFailure const& e) {
        throw IOCloseException(e.what(), mapCode(e.getErrorCode()));
    }
}

/// The text of a failure that the provider could not explain. It goes nowhere yet, so that nothing
/// is lost where it cannot be made.
void composeDiagnostics(provider::Exception const& e, AbsoluteIRI const& location) noexcept {
    try {
        // Asking for the diagnostics writes into the container of the error infos, which copies
        // share, and one stored exception may be translated on several threads at once: ask a copy
        // with a container of its own.
        provider::Exception own(e.getErrorCode(), e.getStorageIRI(), e.getReason());
        boost::exception_detail::copy_boost_exception(&own, &e);
        std::ostringstream text;
        text << "Internal or Unknown error while operating on " << location << '\n'
             << e.what() << '\n'
             << boost::diagnostic_information(own, true);
    } catch (...) {
    }
}

template<class Translated, class E>
[[noreturn]] void throwWithCause(E const& e) {
    Translated translated(AbsoluteIRI(e.getStorageIRI(), true));
    translated << boost::errinfo_nested_exception(foundation::core::except::copy_exception(e));
    throw translated;
}

} // namespace

void rethrowAsVfsException() {
    try {
        throw;
    } catch (provider::Exception const& e) {
        AbsoluteIRI const location(e.getStorageIRI(), true);
        if (e.getErrorCode() == provider::ErrorCode::InternalError ||
            e.getErrorCode() == provider::ErrorCode::Unknown) {
            composeDiagnostics(e, location);
        }
        Exception translated(mapCode(e.getErrorCode()), location);
        if (!e.getReason().empty()) {
            translated << boost::error_info<TagReason, std::string>(e.getReason());
        }
        throw translated;
    } catch (provider::ChangeEventsNotSupportedException const& e) {
        throwWithCause<ChangeEventsNotSupportedException>(e);
    } catch (provider::ChangeEventsSubscriptionException const& e) {
        throwWithCause<ChangeEventsSubscriptionException>(e);
    } catch (provider::ByteStreamFailure const&) {
        rethrowByteStreamFailure();
    }
}

} // namespace foundation::storage::vfs
