#include "contest.hpp"
#include "events.hpp"
#include "listing_peers.hpp"
#include "listing_trees.hpp"

#include <foundation/storage/vfs/events/change_watcher.hpp>

#include <cstdio>
#include <dirent.h>
#include <fcntl.h>
#include <malloc.h>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <sys/inotify.h>
#include <unistd.h>
#include <vector>

namespace bench {

namespace {

namespace vfs = foundation::storage::vfs;

constexpr std::size_t foldersInTree = 10'000 + 100 + 1;
constexpr double goal = 400; // bytes a folder

/// One inotify(7) descriptor with a watch for every folder, added by its path while the tree is
/// walked.
class WatchedByPath {
  public:
    explicit WatchedByPath(std::string path) : inotify_(::inotify_init1(IN_CLOEXEC)) {
        if (inotify_ < 0) {
            fail("inotify_init1");
        }
        add(AT_FDCWD, path.c_str(), path);
    }
    WatchedByPath(WatchedByPath const&) = delete;
    WatchedByPath& operator=(WatchedByPath const&) = delete;
    ~WatchedByPath() { ::close(inotify_); }

    std::size_t folders() const { return folders_; }

  private:
    void add(int parent, char const* name, std::string& path) {
        constexpr unsigned events =
            IN_CREATE | IN_DELETE | IN_MOVED_FROM | IN_MOVED_TO | IN_MODIFY | IN_ATTRIB;
        if (::inotify_add_watch(inotify_, path.c_str(), events) < 0) {
            fail(path);
        }
        ++folders_;
        int const folder = ::openat(parent, name, O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC);
        if (folder < 0) {
            fail(path);
        }
        std::vector<std::string> below;
        for (ssize_t got = 0; (got = ::getdents64(folder, buffer_, sizeof buffer_)) > 0;) {
            for (ssize_t at = 0; at < got;) {
                auto const* const entry = reinterpret_cast<dirent64 const*>(buffer_ + at);
                at += entry->d_reclen;
                std::string_view const text = entry->d_name;
                if (entry->d_type == DT_DIR && text != "." && text != "..") {
                    below.emplace_back(text);
                }
            }
        }
        std::size_t const length = path.size();
        for (std::string const& child : below) {
            path.append("/").append(child);
            add(folder, child.c_str(), path);
            path.resize(length);
        }
        ::close(folder);
    }

    int inotify_;
    std::size_t folders_ = 0;
    alignas(dirent64) char buffer_[32U << 10];
};

class TreeWatch {
  public:
    explicit TreeWatch(vfs::Folder folder) : folder_(std::move(folder)) {}

    void begin() {
        connection_.assign(nullptr);
        connection_ = watcher_.watch(folder_, {vfs::Kind::Created, vfs::Kind::Removed},
                                     vfs::WithRecursiveChangeEvents::Yes, [](vfs::Event const&) {});
    }
    void end() { connection_.disconnect(); }

  private:
    vfs::Folder folder_;
    vfs::ChangeWatcher watcher_;
    foundation::msg_svc::eventmgr::ScopedConnection connection_;
};

std::size_t allocated() {
    return ::mallinfo2().uordblks;
}

void showMemory(TreeWatch& watch) {
    std::size_t const before = allocated();
    watch.begin();
    double const bytes =
        static_cast<double>(allocated() - before) / static_cast<double>(foldersInTree);
    watch.end();
    std::printf("\nMemory of a watched folder, of %zu, beside the kernel's: %.0f bytes, "
                "at most %.0f: %s\n",
                foldersInTree, bytes, goal, bytes <= goal ? "met" : "missed");
}

} // namespace

void holdTreeWatch(Workplace const& place) {
    ListedTree const tree = makeWideTree(place.path / "tree");
    TreeWatch ours(vfs::Folder(place.folder, u"tree"));
    showMemory(ours);

    std::optional<WatchedByPath> byPath;
    hold({"A tree of 200,000 files in 10,000 folders watched",
          "us a folder",
          1e-6 * static_cast<double>(foldersInTree),
          21,
          {
              {"walked by system calls",
               [&] { tree.require(countByCalls(tree.path(), Reach::Tree, Facts::Names)); }},
              {"inotify_add_watch by path",
               [&] { byPath.emplace(tree.path()); },
               {},
               nullptr,
               [&] {
                   if (byPath->folders() != foldersInTree) {
                       throw std::runtime_error("watched " + std::to_string(byPath->folders()));
                   }
                   byPath.reset();
               }},
              {"ChangeWatcher",
               [&] { ours.begin(); },
               {{1.6, "walked by system calls"}},
               nullptr,
               [&] { ours.end(); }},
          }});
}

} // namespace bench
