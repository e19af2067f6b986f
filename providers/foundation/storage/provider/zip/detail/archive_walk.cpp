#include <foundation/storage/provider/zip/detail/archive_walk.hpp>

#include <utility>

namespace foundation::storage::provider::zip::detail {

namespace {

/// As many as the kernel follows in one path.
constexpr int mostLinks = 40;

} // namespace

ArchivePlace walk(ArchiveIndex const& index, std::string_view path, LastLink last,
                  std::function<std::string(ArchiveIndex::Number)> const& targetOf) {
    std::string led; // what is left to go where a link was met
    std::string_view rest = path;
    ArchiveIndex::Number here = ArchiveIndex::root;
    for (int links = 0;;) {
        while (rest.starts_with('/')) {
            rest.remove_prefix(1);
        }
        if (rest.empty()) {
            return {here, index.parentOf(here), {}, {}};
        }
        if (!index.isFolder(here)) {
            return {ArchiveIndex::none, ArchiveIndex::none, {}, ErrorCode::ResourceNotFound};
        }
        std::size_t const slash = rest.find('/');
        std::string_view const name = rest.substr(0, slash);
        rest = slash == std::string_view::npos ? std::string_view() : rest.substr(slash);
        if (name == ".") {
            continue;
        }
        if (name == "..") {
            here = here == ArchiveIndex::root ? here : index.parentOf(here);
            continue;
        }
        ArchiveIndex::Number const next = index.child(here, name);
        bool const isLast = rest.find_first_not_of('/') == std::string_view::npos;
        if (next == ArchiveIndex::none) {
            return {next, isLast ? here : ArchiveIndex::none, std::string(name),
                    ErrorCode::ResourceNotFound};
        }
        if (index.kindOf(next) != EntryKind::Link || (isLast && last == LastLink::Itself)) {
            here = next;
            continue;
        }
        if (++links > mostLinks) {
            return {ArchiveIndex::none, ArchiveIndex::none, {}, ErrorCode::InvalidLocation};
        }
        std::string target = targetOf(next);
        if (target.empty() || target.find('\0') != std::string::npos) {
            return {ArchiveIndex::none, ArchiveIndex::none, {}, ErrorCode::ResourceNotFound};
        }
        if (target.ends_with('/')) {
            target += '.'; // it leads to a folder, or nowhere
        }
        here = target.starts_with('/') ? ArchiveIndex::root : here;
        target += rest;
        led = std::move(target);
        rest = led;
    }
}

} // namespace foundation::storage::provider::zip::detail
