#pragma once

#include <foundation/storage/vfs/resources/folder.hpp>

#include <filesystem>
#include <span>
#include <string>

namespace bench {

/// Where works are done: a folder that is empty at first, a handle on it, whose system has an event
/// manager, the command of this build, and how often to do what is not done in rounds.
struct Workplace {
    std::filesystem::path path;
    foundation::storage::vfs::Folder folder;
    std::filesystem::path command;
    int runs;
};

/// A work of a program, by the name that its command line knows.
struct Work {
    char const* name;
    void (*hold)(Workplace const&);
};

/// The main function of a program: PROGRAM [--runs N] [FOLDER [WORK]]. The folder says which file
/// system is used, the working directory's without one; without a work all of them are done, in
/// their order. There are 3 runs where none are given.
int runWorks(std::string const& program, int argc, char** argv, std::span<Work const> works);

} // namespace bench
