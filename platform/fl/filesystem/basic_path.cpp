#include <fl/filesystem/basic_path.hpp>

#include <cerrno>
#include <cstdlib>
#include <memory>
#include <system_error>

#include <unistd.h>

namespace fl::filesystem {

path current_path() {
    // The kernel's own call has a limit that a deep working directory exceeds; the library's has
    // not.
    struct Free {
        void operator()(char* text) const { std::free(text); }
    };
    std::unique_ptr<char, Free> const text(::getcwd(nullptr, 0));
    if (!text) {
        throw std::system_error(errno, std::generic_category(), "the working directory is unknown");
    }
    // Outside the root of this process the kernel gives "(unreachable)/...".
    if (*text != '/') {
        throw std::system_error(ENOENT, std::generic_category(),
                                "the working directory is out of reach");
    }
    return path(text.get());
}

} // namespace fl::filesystem
