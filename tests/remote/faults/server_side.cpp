#include "server_side.hpp"

namespace remote_faults {

void ServerSide::restore(std::string const& folder, Files const& wanted) {
    Files there = files(folder);
    // What held nothing but what is removed is an empty folder then.
    for (bool isClean = false; !isClean;) {
        isClean = true;
        for (auto const& [path, content] : there) {
            if (!wanted.contains(path)) {
                remove(path);
                isClean = false;
            }
        }
        if (!isClean) {
            there = files(folder);
        }
    }
    for (auto const& [path, content] : wanted) {
        auto const found = there.find(path);
        if (found == there.end() || found->second != content) {
            put(path, content);
        }
    }
}

} // namespace remote_faults
