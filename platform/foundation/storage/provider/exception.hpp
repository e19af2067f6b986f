#pragma once

#include <foundation/core/except/exception.hpp>
#include <foundation/storage/provider/error_code.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

namespace foundation::storage::provider {

/// What a provider throws where an operation on an item fails. The members are plain: one stored
/// exception may be rethrown on many threads, and reading it changes nothing.
class FOUNDATION_EXPORT Exception
    : public foundation::core::except::Exception<foundation::core::except::IInternalException,
                                                 std::exception, void> {
  public:
    /// `location` is the item that the failure is about, which need not be the one that was asked.
    Exception(ErrorCode code, StorageIRI location);

    ErrorCode getErrorCode() const noexcept { return code_; }
    StorageIRI getStorageIRI() const noexcept { return location_; }

    char const* what() const noexcept override;
    ustring ToUstringImpl() const override;
    Exception const* clone() const override;
    [[noreturn]] void rethrow() const override;

  private:
    ErrorCode code_;
    StorageIRI location_;
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
