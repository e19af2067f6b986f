#include <foundation/storage/provider/memory/detail/publications.hpp>

#include <fl/i18n/conversion.hpp>

#include <boost/property_tree/ptree.hpp>

#include <new>
#include <utility>
#include <vector>

namespace foundation::storage::provider::memory::detail {

namespace {

EntryType typeOf(Node const& node) noexcept {
    return node.isFolder() ? EntryType::Folder : EntryType::File;
}

std::size_t weightOf(Report const& report) noexcept {
    return sizeof(Report) + (report.path.size() + report.other.size()) * sizeof(char16_t);
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

/// False where memory did not suffice to begin with; what the callback throws counts for nothing.
bool call(Report const& report) noexcept {
    Publication const& publication = *report.publication;
    std::optional<StorageIRI> watched;
    std::optional<StorageIRI> entry;
    std::optional<boost::property_tree::ptree> extended;
    try {
        watched = publication.location;
        entry = publication.location;
        if (!report.path.empty()) {
            std::size_t const slash = report.path.rfind(u'/');
            if (slash != ustring::npos) {
                watched = StorageIRI(publication.location, report.path.substr(0, slash));
            }
            entry = StorageIRI(*watched, report.path.substr(slash + 1)); // npos + 1 is 0
        }
        extended.emplace();
        if (report.otherEnd != OtherEnd::None) {
            extended->put(report.otherEnd == OtherEnd::To ? "movedTo" : "movedFrom",
                          fl::i18n::toDisplayString(
                              StorageIRI(publication.location, report.other).toString()));
        }
    } catch (...) {
        return false;
    }
    try {
        publication.callback(report.kind, *watched, *entry, report.type, std::move(*extended));
    } catch (...) {
        // Not this store's to handle, and no other publication's trouble.
    }
    return true;
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

bool Publications::add(PublicationPtr const& publication, ustring const& key) {
    std::lock_guard const lock(mutex_);
    if (closed_) {
        return false;
    }
    table_.add(publication, key);
    ++count_;
    watched_.store(true, std::memory_order_relaxed);
    return true;
}

void Publications::stopOldest(EntryType type, ustring const& key) {
    PublicationPtr stopped; // destroyed behind the lock, as its callback may own anything
    std::lock_guard const lock(mutex_);
    stopped = table_.takeOldest(type, key);
    if (stopped) {
        stopped->stopped = true;
        watched_.store(--count_ != 0, std::memory_order_relaxed);
    }
}

void Publications::clear() noexcept {
    PublicationTable stopped; // as above
    std::lock_guard const lock(mutex_);
    std::swap(stopped, table_);
    stopped.forEach([](PublicationPtr const& publication) { publication->stopped = true; });
    count_ = 0;
    watched_.store(false, std::memory_order_relaxed);
}

void Publications::close() noexcept {
    {
        std::lock_guard const lock(mutex_);
        closed_ = true;
    }
    clear();
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

void Publications::lose(Publication& publication) noexcept {
    publication.lost = true;
    overflowDue_ = overflowDue_ || publication.pending == 0;
}

void Publications::append(Report report) {
    Publication& publication = *report.publication;
    if (publication.lost || !publication.wants(report.kind)) {
        return;
    }
    if (report.kind == Kind::Modified && publication.last &&
        publication.last->kind == Kind::Modified && publication.last->path == report.path) {
        return; // who is told of the one has yet to look
    }
    std::size_t const weight = weightOf(report);
    if (weight > longestBacklog - publication.pending) {
        lose(publication);
        return;
    }
    publication.last = &due_.emplace_back(std::move(report));
    publication.pending += weight;
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

std::optional<Report> Publications::takeOverflow() noexcept {
    if (!overflowDue_) {
        return std::nullopt;
    }
    std::optional<Report> overflow;
    table_.forEach([&](PublicationPtr const& publication) {
        if (!overflow && publication->lost && publication->pending == 0) {
            publication->lost = false; // what happens from now on is reported again
            overflow = Report{publication,
                              Kind::Overflow,
                              publication->isOfFolder() ? EntryType::Folder : EntryType::File,
                              {}};
        }
    });
    overflowDue_ = overflow.has_value();
    return overflow;
}

std::optional<Report> Publications::takeNext() noexcept {
    if (std::optional<Report> overflow = takeOverflow(); overflow || due_.empty()) {
        return overflow;
    }
    Report& first = due_.front();
    Publication& publication = *first.publication;
    publication.pending -= weightOf(first);
    if (publication.last == &first) {
        publication.last = nullptr;
    }
    overflowDue_ = overflowDue_ || (publication.lost && publication.pending == 0);
    std::optional<Report> report(std::move(first));
    due_.pop_front();
    return report;
}

void Publications::deliver() noexcept {
    std::unique_lock lock(mutex_);
    if (delivering_) {
        return;
    }
    delivering_ = true;
    bool goesOn = true;
    while (goesOn) {
        std::optional<Report> report = takeNext();
        if (!report) {
            break;
        }
        bool const isStopped = report->publication->stopped;
        lock.unlock();
        bool const isTold = isStopped || call(*report);
        if (isTold) {
            report.reset(); // perhaps the last to hold the callback
        }
        lock.lock();
        if (!isTold) {
            lose(*report->publication);
            goesOn = report->kind != Kind::Overflow; // there is no memory: later then
        }
    }
    delivering_ = false;
}

} // namespace foundation::storage::provider::memory::detail
