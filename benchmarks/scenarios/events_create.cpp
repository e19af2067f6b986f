#include "contest.hpp"
#include "events.hpp"
#include "events_watching.hpp"

#include <atomic>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <stdexcept>
#include <string>
#include <thread>
#include <unistd.h>
#include <utility>

namespace bench {

namespace {

/// With two events a file, as some ask for, they fit into the kernel's queue.
constexpr std::size_t files = 8'000;
constexpr std::chrono::seconds tooLong{20};

using Watch = std::function<std::unique_ptr<Watching>(std::string const& folder, Told)>;

/// A folder in which files are created while it is watched, new for each round.
class WatchedFolder {
  public:
    WatchedFolder(std::filesystem::path path, Watch watch)
        : path_(std::move(path)),
          watch_(std::move(watch)) {}

    void begin() {
        std::filesystem::create_directory(path_);
        told_ = 0;
        if (watch_) {
            watching_ = watch_(path_, [this] { ++told_; });
        }
    }
    void createFiles() const {
        int const folder = ::open(path_.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC);
        if (folder < 0) {
            fail(path_);
        }
        char name[16];
        for (std::size_t number = 0; number < files; ++number) {
            std::snprintf(name, sizeof name, "file-%zu", number);
            int const file = ::openat(folder, name, O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0644);
            if (file < 0 || ::close(file) != 0) {
                fail(name);
            }
        }
        ::close(folder);
    }
    void end() {
        auto const last = std::chrono::steady_clock::now() + tooLong;
        while (watching_ != nullptr && told_ < files) {
            if (std::chrono::steady_clock::now() > last) {
                throw std::runtime_error(path_.string() + ": told of " + std::to_string(told_) +
                                         " files");
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        watching_ = nullptr;
        std::filesystem::remove_all(path_);
        if (watch_ && told_ != files) {
            throw std::runtime_error(path_.string() + ": told of too many files");
        }
    }

  private:
    std::filesystem::path path_;
    Watch watch_;
    std::unique_ptr<Watching> watching_;
    std::atomic<std::size_t> told_ = 0;
};

Contender contenderOf(std::string name, std::shared_ptr<WatchedFolder> const& folder,
                      std::vector<Goal> goals = {}) {
    return {std::move(name), [folder] { folder->createFiles(); }, std::move(goals),
            [folder] { folder->begin(); }, [folder] { folder->end(); }};
}

} // namespace

void holdCreateUnderWatch(Workplace const& place) {
    namespace vfs = foundation::storage::vfs;
    vfs::ChangeWatcher watcher;
    auto const in = [&](char const* name, Watch watch) {
        return std::make_shared<WatchedFolder>(place.path / name, std::move(watch));
    };
    hold({"Files created in a folder that is watched",
          "us a file",
          1e-6 * static_cast<double>(files),
          31,
          {
              contenderOf("not watched", in("free", nullptr)),
              contenderOf("inotify, what there is", in("calls",
                                                       [](auto const& folder, Told told) {
                                                           return watchByCalls(folder,
                                                                               Change::Created,
                                                                               std::move(told));
                                                       })),
              contenderOf("inotify, an event a read", in("single",
                                                         [](auto const& folder, Told told) {
                                                             return watchByCalls(
                                                                 folder, Change::Created,
                                                                 std::move(told), oneEvent);
                                                         })),
#ifdef WITH_GIO
              contenderOf("GFileMonitor", in("gio",
                                             [](auto const& folder, Told told) {
                                                 return watchByGio(folder, Change::Created,
                                                                   std::move(told));
                                             })),
#endif
              contenderOf("ChangeWatcher",
                          in("ours",
                             [&](auto const&, Told told) {
                                 return watchByUs(watcher, vfs::Folder(place.folder, u"ours"),
                                                  Change::Created, std::move(told));
                             }),
                          {{1.45, "not watched", Time::Elapsed}}),
          },
          Time::Elapsed});
#ifndef WITH_GIO
    std::printf("GFileMonitor: left out, this was built without GIO\n");
#endif
}

} // namespace bench
