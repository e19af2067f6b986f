#pragma once

#include <foundation/storage/vfs/resources/folder.hpp>

#include <filesystem>
#include <string>

namespace bench {

/// Where the works on bytes are done: a folder that is empty at first, a handle on it, and the
/// command of this build.
struct Workplace {
    std::filesystem::path path;
    foundation::storage::vfs::Folder folder;
    std::filesystem::path command;
};

/// How much memory the command holds while it writes a file of 2 GiB to nowhere. To be asked before
/// this program itself has become large: what a child was before it became the command counts.
void showMemoryOfCat(Workplace const& place);

void holdSequentialRead(Workplace const& place);
void holdManyFiles(Workplace const& place);
void holdSmallReads(Workplace const& place);
void holdSequentialWrite(Workplace const& place);

/// A file of that many bytes, none of them a hole.
void makeFile(std::filesystem::path const& path, std::size_t size);

} // namespace bench
