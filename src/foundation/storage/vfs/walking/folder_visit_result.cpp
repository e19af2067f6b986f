#include <foundation/storage/vfs/walking/folder_visit_result.hpp>

#include <ostream>

namespace foundation::storage::vfs {

std::ostream& operator<<(std::ostream& out, FolderVisitResult const& result) {
    switch (result) {
    case FolderVisitResult::Continue:
        return out << "FolderVisitResult::Continue";
    case FolderVisitResult::Skip:
        return out << "FolderVisitResult::Skip";
    case FolderVisitResult::Stop:
        return out << "FolderVisitResult::Stop";
    }
    return out << "Unhandled FolderVisitResult";
}

} // namespace foundation::storage::vfs
