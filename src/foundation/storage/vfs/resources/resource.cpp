#include <foundation/storage/vfs/resources/resource.hpp>

namespace foundation::storage::vfs {

Resource::~Resource() = default;

} // namespace foundation::storage::vfs
