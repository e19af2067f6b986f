#pragma once

#include <fl/i18n/ustring.hpp>
#include <foundation/export.hpp>
#include <foundation/storage/provider/path_comparison.hpp>

namespace foundation::storage::vfs {

using fl::i18n::ustring;

/// Answers as a storage does whether two names mean the same item.
class FOUNDATION_EXPORT PathComparator {
  public:
    explicit PathComparator(provider::PathComparatorFunction function);

    /// Throws vfs::Exception where the provider fails, and std::bad_function_call where the
    /// function is empty.
    bool operator()(ustring const& a, ustring const& b, provider::CaseModifier modifier) const;

  private:
    provider::PathComparatorFunction function_;
};

} // namespace foundation::storage::vfs
