#pragma once

#include <fl/i18n/ustring.hpp>
#include <foundation/export.hpp>
#include <foundation/storage/provider/fwd.hpp>

#include <cstdint>
#include <span>

namespace foundation::storage::provider::extensions {

/// A file of a folder, and what became of its copy.
struct SmallFileCopy {
    fl::i18n::ustring const* name = nullptr; ///< in both folders; the caller's
    bool isCopied = false;
    std::uint64_t size = 0; ///< in bytes, of what was copied
};

/// Second base of a provider that copies many small files of a folder in less time than it takes to
/// copy each by itself; found by a dynamic cast.
class FOUNDATION_EXPORT ISmallFileCopies {
  public:
    virtual ~ISmallFileCopies();
    /// Copies files from one folder into another, each as copyFile() does under FailIfExists and
    /// with CopiedWithTimes. Leaves what is no file, and what cannot be copied, and does not say
    /// why: that is for copyFile() to tell. Throws std::bad_alloc alone.
    ///
    /// REQUIRES: they were listed with bytes in them. A device or a pipe has none, so that a
    /// provider may open what it is to copy, and find out then whether it is a file.
    virtual void copySmallFiles(StorageIRI const& from, StorageIRI const& to,
                                std::span<SmallFileCopy> files) = 0;
};

} // namespace foundation::storage::provider::extensions
