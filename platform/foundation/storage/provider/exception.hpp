#pragma once

#include <foundation/core/except/exception.hpp>
#include <foundation/storage/provider/error_code.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

#include <string>

namespace foundation::storage::provider {

/// What a provider throws where an operation on an item fails. The members are plain: one stored
/// exception may be rethrown on many threads, and reading it changes nothing.
class FOUNDATION_EXPORT Exception
    : public foundation::core::except::Exception<foundation::core::except::IInternalException,
                                                 std::exception, void> {
  public:
    /// `location` is the item that the failure is about, which need not be the one that was asked.
    /// `reason` says what the code leaves open, for people, in UTF-8; it holds no secret.
    Exception(ErrorCode code, StorageIRI location, std::string reason = {});

    ErrorCode getErrorCode() const noexcept { return code_; }
    StorageIRI getStorageIRI() const noexcept { return location_; }
    /// Empty where there is no more to say.
    std::string const& getReason() const noexcept { return reason_; }

    char const* what() const noexcept override;
    ustring ToUstringImpl() const override;
    Exception const* clone() const override;
    [[noreturn]] void rethrow() const override;

  private:
    ErrorCode code_;
    StorageIRI location_;
    std::string reason_;
};

/// The provider reports no changes of this item.
class FOUNDATION_EXPORT ChangeEventsNotSupportedException final
    : public foundation::core::except::Exception<foundation::core::except::IInternalException,
                                                 std::exception, void> {
  public:
    explicit ChangeEventsNotSupportedException(StorageIRI location);

    StorageIRI getStorageIRI() const noexcept { return location_; }

    char const* what() const noexcept override;
    ustring ToUstringImpl() const override;
    ChangeEventsNotSupportedException const* clone() const override;
    [[noreturn]] void rethrow() const override;

  private:
    StorageIRI location_;
};

/// The provider reports changes, and could not start to for this item.
class FOUNDATION_EXPORT ChangeEventsSubscriptionException final
    : public foundation::core::except::Exception<foundation::core::except::IInternalException,
                                                 std::exception, void> {
  public:
    explicit ChangeEventsSubscriptionException(StorageIRI location);

    StorageIRI getStorageIRI() const noexcept { return location_; }

    char const* what() const noexcept override;
    ustring ToUstringImpl() const override;
    ChangeEventsSubscriptionException const* clone() const override;
    [[noreturn]] void rethrow() const override;

  private:
    StorageIRI location_;
};

} // namespace foundation::storage::provider
