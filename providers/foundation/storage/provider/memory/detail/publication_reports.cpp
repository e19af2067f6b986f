// Which reports a change makes, for which publications.

#include <foundation/storage/provider/memory/detail/publications.hpp>

#include <algorithm>
#include <new>
#include <vector>

namespace foundation::storage::provider::memory::detail {

namespace {

EntryType typeOf(Node const& node) noexcept {
    return node.isFolder() ? EntryType::Folder : EntryType::File;
}

/// A path from what a publication watches; empty for that itself.
ustring below(Publication const& publication, std::u16string_view path) {
    return ustring(path.substr(std::min(publication.path.size() + 1, path.size())));
}

Node const* findWithin(FolderNode const& folder, std::u16string_view path) {
    Node const* at = &folder;
    while (at && !path.empty()) {
        std::size_t const end = std::min(path.find(u'/'), path.size());
        at = at->isFolder() ? static_cast<FolderNode const*>(at)->find(path.substr(0, end))
                            : nullptr;
        path.remove_prefix(std::min(end + 1, path.size()));
    }
    return at;
}

} // namespace

ustring pathOf(Node const& node) {
    std::size_t length = 0;
    for (Node const* at = &node; at->parent(); at = at->parent()) {
        length += at->name().size() + 1;
    }
    ustring path(length, u'/');
    for (Node const* at = &node; at->parent(); at = at->parent()) {
        length -= at->name().size();
        path.replace(length, at->name().size(), at->name());
        --length;
    }
    return path;
}

template<class PutDown>
void Publications::putDown(PutDown const& putDown) noexcept {
    std::lock_guard const lock(mutex_);
    try {
        putDown();
    } catch (std::bad_alloc const&) {
        table_.forEach([&](PublicationPtr const& publication) { lose(*publication); });
    }
}

void Publications::appendSelf(PublicationPtr const& publication, Kind kind, Node const& node) {
    if (publication->isOfFolder() == node.isFolder()) {
        append({publication, kind, typeOf(node), {}});
    }
}

void Publications::appendContents(PublicationPtr const& publication, FolderNode const& folder) {
    struct Frame {
        FolderNode::Children::const_iterator next;
        FolderNode::Children::const_iterator end;
        std::size_t length; // of the folder's path
    };
    if (!publication->wants(Kind::Created)) {
        return;
    }
    ustring path = below(*publication, pathOf(folder));
    std::vector<Frame> frames{{folder.children().begin(), folder.children().end(), path.size()}};
    while (!frames.empty() && !publication->lost) {
        Frame& frame = frames.back();
        if (frame.next == frame.end) {
            frames.pop_back();
            continue;
        }
        auto const& [name, child] = *frame.next++;
        path.resize(frame.length);
        if (!path.empty()) {
            path += u'/';
        }
        path += name;
        append({publication, Kind::Created, typeOf(*child), path});
        if (child->isFolder() && publication->scope == Scope::Tree) {
            auto const& children = static_cast<FolderNode const&>(*child).children();
            frames.push_back({children.begin(), children.end(), path.size()});
        }
    }
}

void Publications::changed(Kind kind, Node const& node) noexcept {
    putDown([&] {
        ustring const path = pathOf(node);
        table_.forEachAround(path, [&](PublicationPtr const& publication) {
            if (publication->watchesItself(path)) {
                appendSelf(publication, kind, node);
            } else if (publication->covers(path)) {
                append({publication, kind, typeOf(node), below(*publication, path)});
            }
        });
    });
}

void Publications::moved(FolderNode const& oldFolder, std::u16string_view oldName, Node const& node,
                         Node const* replaced) noexcept {
    putDown([&] {
        ustring from = pathOf(oldFolder);
        from += u'/';
        from += oldName;
        ustring const to = pathOf(node);
        appendGone(from, to, node);
        if (replaced && replaced->isFolder()) {
            table_.forEachAround(to, [&](PublicationPtr const& publication) {
                if (publication->watchesItself(to)) {
                    appendSelf(publication, Kind::Removed, *replaced);
                }
            });
        }
        appendArrived(from, to, node);
    });
}

void Publications::appendGone(ustring const& from, ustring const& to, Node const& node) {
    table_.forEachAround(from, [&](PublicationPtr const& publication) {
        if (publication->watchesItself(from)) {
            appendSelf(publication, Kind::Removed, node);
        } else if (publication->covers(from)) {
            bool const isPair = publication->covers(to);
            append({publication, Kind::Removed, typeOf(node), below(*publication, from),
                    isPair ? OtherEnd::To : OtherEnd::None,
                    isPair ? below(*publication, to) : ustring()});
        }
    });
    if (node.isFolder()) {
        table_.forEachWithin(from, [&](PublicationPtr const& publication) {
            if (Node const* const gone =
                    findWithin(static_cast<FolderNode const&>(node),
                               std::u16string_view(publication->path).substr(from.size() + 1))) {
                appendSelf(publication, Kind::Removed, *gone);
            }
        });
    }
}

void Publications::appendArrived(ustring const& from, ustring const& to, Node const& node) {
    FolderNode const* const folder =
        node.isFolder() ? static_cast<FolderNode const*>(&node) : nullptr;
    auto const arriveItself = [&](PublicationPtr const& publication, Node const& arrived) {
        appendSelf(publication, Kind::Created, arrived);
        if (arrived.isFolder() && publication->isOfFolder()) {
            appendContents(publication, static_cast<FolderNode const&>(arrived));
        }
    };
    table_.forEachAround(to, [&](PublicationPtr const& publication) {
        if (publication->watchesItself(to)) {
            arriveItself(publication, node);
        } else if (publication->covers(to)) {
            bool const isPair = publication->covers(from);
            append({publication, Kind::Created, typeOf(node), below(*publication, to),
                    isPair ? OtherEnd::From : OtherEnd::None,
                    isPair ? below(*publication, from) : ustring()});
            if (folder && !isPair && publication->scope == Scope::Tree) {
                appendContents(publication, *folder);
            }
        }
    });
    if (folder) {
        table_.forEachWithin(to, [&](PublicationPtr const& publication) {
            if (Node const* const arrived = findWithin(
                    *folder, std::u16string_view(publication->path).substr(to.size() + 1))) {
                arriveItself(publication, *arrived);
            }
        });
    }
}

} // namespace foundation::storage::provider::memory::detail
