#pragma once

#include <foundation/core/except/exception.hpp>
#include <foundation/export.hpp>
#include <foundation/storage/vfs/errors/error_code.hpp>
#include <foundation/storage/vfs/iri/absolute_iri.hpp>

#include <string>

namespace foundation::storage::vfs {

/// Error infos of the exceptions below: boost::error_info<TagErrorCode, ErrorCode> and
/// boost::error_info<TagAbsoluteIRI, AbsoluteIRI>.
struct FOUNDATION_EXPORT TagErrorCode {};
struct FOUNDATION_EXPORT TagAbsoluteIRI {};
/// And boost::error_info<TagReason, std::string>, where the storage told a reason.
struct FOUNDATION_EXPORT TagReason {};

/// An operation on an item failed. `what()` is the name of the class; what happened, and where, is
/// in the accessors. Copies share their error infos, so one object must not be copied on two
/// threads at once.
class FOUNDATION_EXPORT Exception
    : public foundation::core::except::Exception<foundation::core::except::IInternalException,
                                                 std::exception, void> {
  public:
    Exception(ErrorCode const& code, AbsoluteIRI const& location);
    Exception(Exception const&) = default;
    ~Exception() noexcept override;

    ErrorCode getErrorCode() const;
    /// The item that the failure is about, as the provider named it.
    AbsoluteIRI getLocation() const;
    /// What the code leaves open, as the provider told it, for people, in UTF-8; empty where it
    /// told no more.
    std::string getReason() const;

    char const* what() const noexcept override;
    ustring ToUstringImpl() const override;
    Exception const* clone() const override;
    [[noreturn]] void rethrow() const override;
};

/// The item's storage reports no changes. The provider's exception is nested
/// (boost::errinfo_nested_exception).
class FOUNDATION_EXPORT ChangeEventsNotSupportedException
    : public foundation::core::except::Exception<foundation::core::except::IInternalException,
                                                 std::exception, void> {
  public:
    explicit ChangeEventsNotSupportedException(AbsoluteIRI const& location);
    ChangeEventsNotSupportedException(ChangeEventsNotSupportedException const&) = default;
    ~ChangeEventsNotSupportedException() noexcept override;

    AbsoluteIRI getLocation() const;

    char const* what() const noexcept override;
    ustring ToUstringImpl() const override;
    ChangeEventsNotSupportedException const* clone() const override;
    [[noreturn]] void rethrow() const override;
};

/// The item's storage reports changes, and could not start to for this item. The provider's
/// exception is nested.
class FOUNDATION_EXPORT ChangeEventsSubscriptionException
    : public foundation::core::except::Exception<foundation::core::except::IInternalException,
                                                 std::exception, void> {
  public:
    explicit ChangeEventsSubscriptionException(AbsoluteIRI const& location);
    ChangeEventsSubscriptionException(ChangeEventsSubscriptionException const&) = default;
    ~ChangeEventsSubscriptionException() noexcept override;

    AbsoluteIRI getLocation() const;

    char const* what() const noexcept override;
    ustring ToUstringImpl() const override;
    ChangeEventsSubscriptionException const* clone() const override;
    [[noreturn]] void rethrow() const override;
};

} // namespace foundation::storage::vfs
