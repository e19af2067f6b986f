#include <foundation/storage/provider/container/member_path.hpp>

namespace foundation::storage::provider::container {

bool isMemberName(std::string_view name) noexcept {
    return !name.empty() && name != "." && name != ".." && name.size() <= 0xFFFF &&
           name.find('\0') == std::string_view::npos;
}

bool isMemberPath(std::string_view path, std::uint32_t maximumDepth) noexcept {
    for (std::uint32_t depth = 1; depth <= maximumDepth; ++depth) {
        std::size_t const slash = path.find('/');
        if (!isMemberName(path.substr(0, slash))) {
            return false;
        }
        if (slash == std::string_view::npos) {
            return true;
        }
        path.remove_prefix(slash + 1);
    }
    return false;
}

std::string_view withoutDots(std::string_view path, std::string& buffer) {
    if (!path.starts_with("./") && path != "." && !path.ends_with("/.") &&
        path.find("/./") == std::string_view::npos && path.find("//") == std::string_view::npos) {
        return path;
    }
    buffer.clear();
    bool isFirst = true;
    for (std::size_t slash = 0; slash != std::string_view::npos;) {
        slash = path.find('/');
        std::size_t const size = slash == std::string_view::npos ? path.size() : slash + 1;
        bool const isEmpty = slash == 0 && !isFirst;
        if (path.substr(0, slash) != "." && !isEmpty) {
            buffer += path.substr(0, size);
        }
        isFirst = false;
        path.remove_prefix(size);
    }
    return buffer;
}

} // namespace foundation::storage::provider::container
