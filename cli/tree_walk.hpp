#pragma once

#include <cstddef>
#include <string>
#include <utility>
#include <vector>

namespace cli {

/// Goes through a tree without recursion, so that no depth ends the process. `enter` is called in
/// each folder, where `path` is, and gives the names of the folders inside that are to be entered;
/// `leave` is called behind the last of them. Remembered are those names alone, of each folder on
/// the way down. What either throws ends the walk.
///
/// `path` is a WalkedPath, or what moves as one does.
template<class Path, class Enter, class Leave>
void walkTree(Path& path, Enter const& enter, Leave const& leave) {
    struct Level {
        std::size_t pathLength;
        std::vector<std::string> names;
        std::size_t next = 0;
    };
    std::vector<Level> open;
    open.push_back({path.length(), enter()});
    while (!open.empty()) {
        Level& level = open.back();
        path.returnTo(level.pathLength);
        if (level.next < level.names.size()) {
            path.enter(level.names[level.next++]);
            open.push_back({path.length(), enter()});
        } else {
            leave();
            open.pop_back();
        }
    }
}

} // namespace cli
