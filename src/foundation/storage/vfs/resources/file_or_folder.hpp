#pragma once

#include <foundation/export.hpp>
#include <foundation/storage/vfs/fwd.hpp>
#include <foundation/storage/vfs/resources/file.hpp>
#include <foundation/storage/vfs/resources/folder.hpp>

#include <boost/variant/get.hpp>
#include <boost/variant/variant.hpp>

namespace foundation::storage::vfs {

/// The operations that files and folders have in common, for an item of either kind. Each calls the
/// member function of the same name and throws what that throws; nothing is cached. getName,
/// hasParent and getParent do not translate provider exceptions.
FOUNDATION_EXPORT AbsoluteIRI getLocation(FileOrFolder const& item);
FOUNDATION_EXPORT CanonicalAbsoluteIRI getCanonicalLocation(FileOrFolder const& item);
FOUNDATION_EXPORT ustring getName(FileOrFolder const& item);
/// fileExists() or folderExists().
FOUNDATION_EXPORT bool exists(FileOrFolder const& item);
/// True of every file, without asking the provider.
FOUNDATION_EXPORT bool hasParent(FileOrFolder const& item);
FOUNDATION_EXPORT Folder getParent(FileOrFolder const& item);
/// These two fetch all attributes.
FOUNDATION_EXPORT boost::posix_time::ptime getLastModified(FileOrFolder const& item);
FOUNDATION_EXPORT bool isWritable(FileOrFolder const& item);
FOUNDATION_EXPORT StorageSystemReference getStorageSystem(FileOrFolder const& item);

} // namespace foundation::storage::vfs
