#pragma once

#include <foundation/storage/provider/container/entry_kind.hpp>
#include <foundation/storage/provider/error_code.hpp>

#include <cstddef>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

namespace foundation::storage::provider::container {

enum class LastLink { Itself, Followed };

/// Where a path leads in an archive. `Tree` is what the archive holds: the index of one that is
/// read, or the tree of one that is changed.
template<class Tree>
struct ArchivePlace {
    typename Tree::Handle entry = Tree::none;
    /// The folder of the last name, where that is there.
    typename Tree::Handle folder = Tree::none;
    std::string name = {};               ///< the last one, where `entry` is missing
    std::optional<ErrorCode> error = {}; ///< why there is none

    bool isFree() const noexcept { return error == ErrorCode::ResourceNotFound && !name.empty(); }
};

/// As many as the kernel follows in one path.
constexpr int mostLinks = 40;

/// Goes a path of names from `start`. A link on the way, and a last one that is to be followed,
/// leads from its own folder, and never out of the archive: above the root is the root.
/// `targetOf` reads a link, and may throw.
template<class Tree, class TargetOf>
ArchivePlace<Tree> walk(Tree const& tree, typename Tree::Handle start, std::string_view path,
                        LastLink last, TargetOf const& targetOf) {
    using Place = ArchivePlace<Tree>;
    std::string led; // what is left to go where a link was met
    std::string_view rest = path;
    typename Tree::Handle here = start;
    for (int links = 0;;) {
        while (rest.starts_with('/')) {
            rest.remove_prefix(1);
        }
        if (rest.empty()) {
            return Place{here, tree.parentOf(here)};
        }
        if (!tree.isFolder(here)) {
            return Place{.error = ErrorCode::ResourceNotFound};
        }
        std::size_t const slash = rest.find('/');
        std::string_view const name = rest.substr(0, slash);
        rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash);
        if (name == ".") {
            continue;
        }
        if (name == "..") {
            here = tree.parentOf(here) == Tree::none ? here : tree.parentOf(here);
            continue;
        }
        typename Tree::Handle const next = tree.child(here, name);
        bool const isLast = rest.find_first_not_of('/') == std::string_view::npos;
        if (next == Tree::none) {
            return isLast ? Place{next, here, std::string(name), ErrorCode::ResourceNotFound}
                          : Place{.error = ErrorCode::ResourceNotFound};
        }
        if (tree.kindOf(next) != EntryKind::Link || (isLast && last == LastLink::Itself)) {
            here = next;
            continue;
        }
        if (++links > mostLinks) {
            return Place{.error = ErrorCode::InvalidLocation};
        }
        std::string target = targetOf(next);
        if (target.empty() || target.find('\0') != std::string::npos) {
            return Place{.error = ErrorCode::ResourceNotFound};
        }
        if (target.ends_with('/')) {
            target += '.'; // it leads to a folder, or nowhere
        }
        if (target.starts_with('/')) {
            here = tree.rootHandle();
        }
        target += rest;
        led = std::move(target);
        rest = led;
    }
}

} // namespace foundation::storage::provider::container
