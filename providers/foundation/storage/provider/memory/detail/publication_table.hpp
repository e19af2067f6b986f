#pragma once

#include <foundation/storage/events/kind.hpp>
#include <foundation/storage/provider/change_events.hpp>
#include <foundation/storage/provider/memory/detail/nodes.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <string_view>
#include <utility>
#include <vector>

namespace foundation::storage::provider::memory::detail {

using foundation::storage::events::EntryType;
using foundation::storage::events::Kind;

struct Report;

/// What a publication reports about.
enum class Scope : std::uint8_t { File, Folder, Tree };

/// One wish to be told of changes.
struct Publication {
    StorageIRI location; ///< as it was given
    ustring path;        ///< that is watched, whatever is there; empty for the root
    Scope scope;
    std::uint32_t kinds; ///< a bit for each; Overflow comes unasked
    ChangeCallback callback;
    // guarded by the mutex of Publications:
    bool stopped = false;
    bool lost = false;            ///< reports of it were lost, and nobody was told yet
    bool isOverflowDue = false;   ///< and is to be, when nothing waits any more
    std::size_t pending = 0;      ///< bytes of reports that wait
    Report const* last = nullptr; ///< of those

    bool wants(Kind kind) const noexcept {
        return kind == Kind::Overflow || (kinds >> static_cast<unsigned>(kind) & 1U) != 0;
    }
    bool isOfFolder() const noexcept { return scope != Scope::File; }
    bool watchesItself(std::u16string_view item) const noexcept { return item == path; }
    /// Whether it reports on an item because of the folder that holds it.
    bool covers(std::u16string_view item) const noexcept;
};

using PublicationPtr = std::shared_ptr<Publication>;

/// The publications of a store, by what they watch and by the location under which they are
/// stopped. For one thread at a time.
class PublicationTable {
  public:
    /// Adds or throws, and changes nothing then.
    void add(PublicationPtr const& publication, ustring const& key);
    /// Takes out the oldest one; null where there is none.
    PublicationPtr takeOldest(EntryType type, ustring const& key);

    /// All that watch an item, or a folder or tree that it is in.
    template<class Visit>
    void forEachAround(std::u16string_view item, Visit const& visit) const;
    /// All that watch something in a folder.
    template<class Visit>
    void forEachWithin(std::u16string_view folder, Visit const& visit) const;
    template<class Visit>
    void forEach(Visit const& visit) const;

  private:
    using Paths = std::map<ustring, std::vector<PublicationPtr>, std::less<>>;

    Paths byPath_;
    std::map<std::pair<EntryType, ustring>, std::deque<PublicationPtr>> byKey_;
};

/// The folder that holds an item, as paths: everything up to the last slash.
inline std::u16string_view folderOf(std::u16string_view item) noexcept {
    return item.substr(0, item.rfind(u'/'));
}

template<class Visit>
void PublicationTable::forEachAround(std::u16string_view item, Visit const& visit) const {
    // The last path up to a probe is either the probe or an ancestor of it; or it tells how much of
    // the probe any ancestor among the paths can have. So the steps are as many as the branches
    // among the watched paths, however deep the item is.
    std::u16string_view probe = item;
    for (;;) {
        auto found = byPath_.upper_bound(probe);
        if (found == byPath_.begin()) {
            return;
        }
        std::u16string_view const path = (--found)->first;
        auto const differing = std::mismatch(probe.begin(), probe.end(), path.begin(), path.end());
        auto common = static_cast<std::size_t>(differing.first - probe.begin());
        while (common < probe.size() && probe[common] != u'/') {
            --common; // ends at the first character, which is a slash
        }
        if (common == path.size()) {
            for (PublicationPtr const& publication : found->second) {
                visit(publication);
            }
            if (common == 0) {
                return;
            }
            common = folderOf(path).size();
        }
        probe = probe.substr(0, common);
    }
}

template<class Visit>
void PublicationTable::forEachWithin(std::u16string_view folder, Visit const& visit) const {
    ustring const prefix = ustring(folder) + u'/';
    for (auto at = byPath_.lower_bound(prefix);
         at != byPath_.end() && at->first.starts_with(prefix); ++at) {
        for (PublicationPtr const& publication : at->second) {
            visit(publication);
        }
    }
}

template<class Visit>
void PublicationTable::forEach(Visit const& visit) const {
    for (auto const& [path, publications] : byPath_) {
        for (PublicationPtr const& publication : publications) {
            visit(publication);
        }
    }
}

} // namespace foundation::storage::provider::memory::detail
