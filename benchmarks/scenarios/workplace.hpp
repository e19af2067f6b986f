#pragma once

#include <foundation/storage/vfs/resources/folder.hpp>

#include <filesystem>
#include <span>
#include <string>

namespace bench {

/// Where works are done: a folder that is empty at first, a handle on it, and the command of this
/// build.
struct Workplace {
    std::filesystem::path path;
    foundation::storage::vfs::Folder folder;
    std::filesystem::path command;
};

/// A work of a program, by the name that its command line knows.
struct Work {
    char const* name;
    void (*hold)(Workplace const&);
};

/// The main function of a program: PROGRAM [FOLDER [WORK]]. The folder says which file system is
/// used, the working directory's without one; without a work all of them are done, in their order.
int runWorks(std::string const& program, int argc, char** argv, std::span<Work const> works);

} // namespace bench
