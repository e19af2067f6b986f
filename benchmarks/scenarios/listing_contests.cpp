#include "contest.hpp"
#include "listing.hpp"
#include "listing_peers.hpp"
#include "listing_trees.hpp"

#include <foundation/storage/vfs/listing/file_or_folder_entry.hpp>
#include <foundation/storage/vfs/listing/folder_listing.hpp>
#include <foundation/storage/vfs/listing/list_entry.hpp>

#include <boost/variant/apply_visitor.hpp>

#include <cstdint>
#include <sys/resource.h>
#include <utility>

namespace bench {

namespace {

namespace vfs = foundation::storage::vfs;

std::int64_t volatile seen;

void look(vfs::ListEntry const& entry) {
    seen = static_cast<std::int64_t>(entry.getName().size());
}

void look(vfs::FileOrFolderEntry const& entry) {
    boost::apply_visitor(
        [](auto const& held) {
            seen = static_cast<std::int64_t>(held.getName().size());
            seen = held.getAttributes().values().lastModified.seconds;
        },
        entry);
}

template<class Listing>
std::size_t countIn(Listing const& listing) {
    std::size_t entries = 0;
    auto const end = listing.end();
    for (auto at = listing.begin(); at != end; ++at) {
        look(*at);
        ++entries;
    }
    return entries;
}

/// The contest that all works of this file are, with our own contender and its goals.
void holdOver(ListedTree const& tree, std::string const& title, Reach reach, Facts facts,
              Contender ours) {
    auto const counted = [&](auto count) { return [&tree, count] { tree.require(count()); }; };
    std::vector<Contender> contenders = {
        {"system calls",
         counted([&, reach, facts] { return countByCalls(tree.path(), reach, facts); })},
        {"std::filesystem",
         counted([&, reach, facts] { return countByStd(tree.path(), reach, facts); })},
        {"fts", counted([&, facts] { return countByFts(tree.path(), facts); })},
        {"find", [&, facts] { runFind(tree.path(), facts); }},
    };
    contenders.push_back(std::move(ours));
    hold({title, "ns an entry", 1e-9 * static_cast<double>(tree.entries()), 21,
          std::move(contenders)});
}

Goal ofCalls(double ratio) {
    return {ratio, "system calls"};
}

template<class T>
std::function<void()> counting(ListedTree const& tree, vfs::Folder const& folder,
                               vfs::FolderListing<T> (vfs::Folder::*list)(vfs::ustring) const) {
    return [&tree, folder, list] { tree.require(countIn((folder.*list)({}))); };
}

} // namespace

void holdNames(Workplace const& place) {
    {
        ListedTree const flat = makeFlatTree(place.path / "flat", 100'000);
        holdOver(flat, "Names in one folder of 100,000 files", Reach::Folder, Facts::Names,
                 {"listAll",
                  counting(flat, vfs::Folder(place.folder, u"flat"), &vfs::Folder::listAll),
                  {ofCalls(1.25), {1 / 1.35, "std::filesystem"}}});
    }
    ListedTree const wide = makeWideTree(place.path / "wide");
    holdOver(wide, "Names in a tree of 200,000 files in 10,000 folders", Reach::Tree, Facts::Names,
             {"listAllRecursive",
              counting(wide, vfs::Folder(place.folder, u"wide"), &vfs::Folder::listAllRecursive),
              {ofCalls(1.20)}});
}

void holdEntries(Workplace const& place) {
    {
        ListedTree const flat = makeFlatTree(place.path / "flat", 100'000);
        holdOver(flat, "Entries with times in one folder of 100,000 files", Reach::Folder,
                 Facts::Attributes,
                 {"listAllEntries", counting(flat, vfs::Folder(place.folder, u"flat"),
                                             &vfs::Folder::listAllEntries)});
    }
    ListedTree const wide = makeWideTree(place.path / "wide");
    holdOver(
        wide, "Entries with times in a tree of 200,000 files in 10,000 folders", Reach::Tree,
        Facts::Attributes,
        {"listAllEntriesRecursive",
         counting(wide, vfs::Folder(place.folder, u"wide"), &vfs::Folder::listAllEntriesRecursive),
         {ofCalls(1.15)}});
}

void holdDeepNames(Workplace const& place) {
    // Others hold a descriptor at each level.
    struct rlimit limit {};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0) {
        fail("getrlimit");
    }
    limit.rlim_cur = limit.rlim_max;
    if (::setrlimit(RLIMIT_NOFILE, &limit) != 0) {
        fail("setrlimit");
    }
    ListedTree const deep = makeDeepTree(place.path / "deep");
    holdOver(deep, "Names in a chain of 2,000 folders", Reach::Tree, Facts::Names,
             {"listAllRecursive",
              counting(deep, vfs::Folder(place.folder, u"deep"), &vfs::Folder::listAllRecursive),
              {ofCalls(1.6)}});
}

} // namespace bench
