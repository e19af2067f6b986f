#include <foundation/storage/vfs/resources/folder_removal_policy.hpp>

#include <ostream>

namespace foundation::storage::vfs {

std::ostream& operator<<(std::ostream& out, FolderRemovalPolicy policy) {
    switch (policy) {
    case FolderRemovalPolicy::NonRecursive:
        return out << "FolderRemovalPolicy::NonRecursive";
    case FolderRemovalPolicy::Recursive:
        return out << "FolderRemovalPolicy::Recursive";
    }
    return out;
}

} // namespace foundation::storage::vfs
