#include "events_changes.hpp"

#include "contest.hpp"

#include <cerrno>
#include <cstdio>
#include <fcntl.h>
#include <filesystem>
#include <initializer_list>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace bench {

namespace {

constexpr unsigned folderNames = 6;
constexpr unsigned fileNames = 30;
constexpr unsigned deepest = 3;

/// 1 for a change, 0 where something else was there than the change needs.
std::size_t changed(int result, std::string const& path) {
    if (result == 0) {
        return 1;
    }
    for (int const usual :
         {ENOENT, EEXIST, ENOTEMPTY, ENOTDIR, EISDIR, EINVAL, ENAMETOOLONG, EBUSY}) {
        if (errno == usual) {
            return 0;
        }
    }
    fail(path);
}

std::size_t createFile(std::string const& path) {
    int const file = ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
    return changed(file < 0 ? -1 : ::close(file), path);
}

std::size_t writeFile(std::string const& path) {
    int const file = ::open(path.c_str(), O_WRONLY | O_CLOEXEC);
    if (file < 0) {
        return changed(-1, path);
    }
    bool const isWritten = ::write(file, "x", 1) == 1;
    ::close(file);
    return isWritten ? 1 : changed(-1, path);
}

std::size_t removeAll(std::string const& path) {
    std::error_code error;
    auto const count = std::filesystem::remove_all(path, error);
    if (error) {
        throw std::system_error(error, path);
    }
    return count;
}

} // namespace

RandomChanges::RandomChanges(std::string root, std::string outside, unsigned seed)
    : root_(std::move(root)),
      outside_(std::move(outside)),
      random_(seed) {}

unsigned RandomChanges::anyBelow(unsigned end) {
    return std::uniform_int_distribution<unsigned>(0, end - 1)(random_);
}

std::chrono::milliseconds RandomChanges::anyTimeBelow(std::chrono::milliseconds end) {
    return std::chrono::milliseconds(anyBelow(static_cast<unsigned>(end.count())));
}

/// At most so deep; the root for 0.
std::string RandomChanges::anyFolder(unsigned most) {
    std::string path = root_;
    for (unsigned depth = anyBelow(most + 1); depth > 0; --depth) {
        path += "/d" + std::to_string(anyBelow(folderNames));
    }
    return path;
}

std::string RandomChanges::anyFile() {
    return anyFolder(deepest) + "/f" + std::to_string(anyBelow(fileNames));
}

std::string RandomChanges::anyFolderOutside() {
    return outside_ + "/d" + std::to_string(anyBelow(folderNames));
}

std::size_t RandomChanges::tryOne() {
    auto const anyFolderBelowRoot = [&] {
        return anyFolder(deepest - 1) + "/d" + std::to_string(anyBelow(folderNames));
    };
    unsigned const what = anyBelow(1'000);
    if (what < 400) {
        return createFile(anyFile());
    }
    if (what < 600) {
        std::string const path = anyFile();
        return changed(::unlink(path.c_str()), path);
    }
    if (what < 700) {
        return writeFile(anyFile());
    }
    if (what < 800) {
        std::string const path = anyFile();
        return changed(std::rename(path.c_str(), anyFile().c_str()), path);
    }
    if (what < 950) {
        std::string const path = anyFolderBelowRoot();
        return changed(::mkdir(path.c_str(), 0755), path);
    }
    if (what < 980) {
        std::string const path = anyFolderBelowRoot();
        return changed(std::rename(path.c_str(), anyFolderBelowRoot().c_str()), path);
    }
    if (what < 987) {
        std::string const path = anyFolderBelowRoot();
        return changed(std::rename(path.c_str(), anyFolderOutside().c_str()), path);
    }
    if (what < 996) {
        std::string const path = anyFolderOutside();
        return changed(std::rename(path.c_str(), anyFolderBelowRoot().c_str()), path);
    }
    if (what < 997) {
        return removeAll(anyFolderOutside());
    }
    return removeAll(anyFolderBelowRoot());
}

} // namespace bench
