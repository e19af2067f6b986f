#include "trees_peers.hpp"

#include "contest.hpp"

#include <array>
#include <cerrno>
#include <dirent.h>
#include <fcntl.h>
#include <string_view>
#include <sys/stat.h>
#include <unistd.h>
#include <utility>

namespace bench {

namespace {

class Descriptor {
  public:
    Descriptor(int number, char const* name) : number_(number) {
        if (number_ < 0) {
            fail(name);
        }
    }
    Descriptor(Descriptor const&) = delete;
    Descriptor& operator=(Descriptor const&) = delete;
    ~Descriptor() { ::close(number_); }
    int get() const { return number_; }

  private:
    int number_;
};

void require(bool done, char const* name) {
    if (!done) {
        fail(name);
    }
}

int openFolder(int parent, char const* name) {
    return ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
}

/// Calls `each` with the name of every entry, and whether it is a folder.
template<class Each>
void forEntries(Descriptor const& folder, char const* name, Each const& each) {
    alignas(dirent64) std::array<char, 32U << 10> buffer;
    for (;;) {
        ssize_t const got = ::getdents64(folder.get(), buffer.data(), buffer.size());
        require(got >= 0, name);
        if (got == 0) {
            return;
        }
        for (ssize_t at = 0; at < got;) {
            auto const* const entry = reinterpret_cast<dirent64 const*>(buffer.data() + at);
            at += entry->d_reclen;
            std::string_view const text = entry->d_name;
            if (text != "." && text != "..") {
                each(entry->d_name, entry->d_type == DT_DIR);
            }
        }
    }
}

void copyFile(int source, int destination, char const* name, Naming naming) {
    Descriptor const from(::openat(source, name, O_RDONLY | O_NOFOLLOW | O_CLOEXEC), name);
    struct stat item {};
    require(::fstat(from.get(), &item) == 0, name);
    Descriptor const to(
        naming == Naming::First
            ? ::openat(destination, name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC,
                       item.st_mode & 0777)
            : ::openat(destination, ".", O_WRONLY | O_TMPFILE | O_CLOEXEC, item.st_mode & 0777),
        name);
    for (off_t left = item.st_size; left > 0;) {
        ssize_t const copied = ::copy_file_range(from.get(), nullptr, to.get(), nullptr,
                                                 static_cast<std::size_t>(left), 0);
        require(copied > 0, name);
        left -= copied;
    }
    struct timespec const times[] = {item.st_atim, item.st_mtim};
    require(::futimens(to.get(), times) == 0, name);
    if (naming == Naming::WhenDone) {
        require(::linkat(to.get(), "", destination, name, AT_EMPTY_PATH) == 0, name);
    }
}

void copyFolder(int source, char const* name, int destination, char const* newName, Naming naming) {
    Descriptor const from(openFolder(source, name), name);
    require(::mkdirat(destination, newName, 0755) == 0, newName);
    Descriptor const to(openFolder(destination, newName), newName);
    forEntries(from, name, [&](char const* child, bool isFolder) {
        if (isFolder) {
            copyFolder(from.get(), child, to.get(), child, naming);
        } else {
            copyFile(from.get(), to.get(), child, naming);
        }
    });
    struct stat item {};
    require(::fstat(from.get(), &item) == 0, name);
    struct timespec const times[] = {item.st_atim, item.st_mtim};
    require(::futimens(to.get(), times) == 0, newName);
}

void removeFolder(int parent, char const* name) {
    {
        Descriptor const folder(openFolder(parent, name), name);
        forEntries(folder, name, [&](char const* child, bool isFolder) {
            if (isFolder) {
                removeFolder(folder.get(), child);
            } else {
                require(::unlinkat(folder.get(), child, 0) == 0, child);
            }
        });
    }
    require(::unlinkat(parent, name, AT_REMOVEDIR) == 0, name);
}

} // namespace

void copyByCalls(std::string const& from, std::string const& to, Naming naming) {
    copyFolder(AT_FDCWD, from.c_str(), AT_FDCWD, to.c_str(), naming);
}

void removeByCalls(std::string const& path) {
    removeFolder(AT_FDCWD, path.c_str());
}

} // namespace bench
