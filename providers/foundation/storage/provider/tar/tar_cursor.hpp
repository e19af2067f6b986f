#pragma once

#include <foundation/storage/provider/container/listing_cursor.hpp>
#include <foundation/storage/provider/tar/detail/tar_index.hpp>

namespace foundation::storage::provider::tar {

using TarCursor = container::ListingCursor<detail::TarIndex>;

} // namespace foundation::storage::provider::tar
