#pragma once

#include <foundation/storage/provider/tar/detail/archive_reader.hpp>
#include <foundation/storage/provider/tar/detail/tar_index.hpp>

#include <memory>
#include <string>

namespace foundation::storage::provider::tar::detail {

/// What the headers of an archive tell.
struct Headers {
    std::shared_ptr<TarIndex const> index;
    Charset charset = Charset::Bytes; ///< for readers of members
    std::string format;               ///< as people know it
};

/// Goes through all of them. Throws provider::Exception naming the item.
Headers readHeaders(ArchiveSource& source, TarOptions const& options);

} // namespace foundation::storage::provider::tar::detail
