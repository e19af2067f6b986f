#pragma once

#include <foundation/storage/provider/container/archive_walk.hpp>

namespace foundation::storage::provider::zip::detail {

using container::ArchivePlace;
using container::LastLink;
using container::walk;

} // namespace foundation::storage::provider::zip::detail
