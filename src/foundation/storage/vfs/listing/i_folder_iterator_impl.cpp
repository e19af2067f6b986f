#include <foundation/storage/vfs/listing/detail/i_folder_iterator_impl.hpp>

#include <foundation/storage/vfs/listing/file_or_folder_entry.hpp>
#include <foundation/storage/vfs/listing/list_entry.hpp>

namespace foundation::storage::vfs::detail {

template<class T>
IFolderIteratorImpl<T>::~IFolderIteratorImpl() = default;

template class IFolderIteratorImpl<File>;
template class IFolderIteratorImpl<Folder>;
template class IFolderIteratorImpl<FileOrFolder>;
template class IFolderIteratorImpl<FileEntry>;
template class IFolderIteratorImpl<FolderEntry>;
template class IFolderIteratorImpl<FileOrFolderEntry>;
template class IFolderIteratorImpl<ListEntry>;

} // namespace foundation::storage::vfs::detail
