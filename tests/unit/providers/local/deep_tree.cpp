#include "deep_tree.hpp"

#include <foundation/storage/provider/local_path.hpp>

#include <cstdlib>
#include <fcntl.h>
#include <stdexcept>
#include <sys/stat.h>
#include <unistd.h>

namespace foundation::storage::provider::local::test {

std::string placeForMany(std::string const& elsewhere) {
    return ::access("/dev/shm", W_OK) == 0 ? "/dev/shm" : elsewhere;
}

DeepTree::DeepTree(std::string const& elsewhere, unsigned levels, bool pairs)
    : path_(placeForMany(elsewhere) + "/local-provider-XXXXXX") {
    if (::mkdtemp(path_.data()) == nullptr) {
        throw std::runtime_error(path_);
    }
    int folder = ::open(path_.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    for (unsigned level = 0; level < levels; ++level) {
        // Both orders occur on file systems that list by age.
        bool done = !pairs || level % 2 == 0 || ::mkdirat(folder, "b", 0755) == 0;
        done = done && ::mkdirat(folder, "a", 0755) == 0;
        done = done && (!pairs || level % 2 != 0 || ::mkdirat(folder, "b", 0755) == 0);
        int const next = ::openat(folder, "a", O_PATH | O_DIRECTORY | O_CLOEXEC);
        ::close(folder);
        folder = next;
        if (!done || folder < 0) {
            throw std::runtime_error("the tree cannot be made");
        }
    }
    ::close(folder);
}

DeepTree::~DeepTree() {
    int folder = ::open(path_.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC);
    unsigned level = 0;
    for (int next; (next = ::openat(folder, "a", O_PATH | O_DIRECTORY | O_CLOEXEC)) >= 0; ++level) {
        ::close(folder);
        folder = next;
    }
    for (; level != 0; --level) {
        int const above = ::openat(folder, "..", O_PATH | O_DIRECTORY | O_CLOEXEC);
        ::close(folder);
        folder = above;
        ::unlinkat(folder, "a", AT_REMOVEDIR);
        ::unlinkat(folder, "b", AT_REMOVEDIR);
    }
    ::close(folder);
    ::rmdir(path_.c_str());
}

StorageIRI DeepTree::location() const {
    return fromLocalPath(path_);
}

} // namespace foundation::storage::provider::local::test
