#pragma once

#include <foundation/storage/vfs/events/change_watcher.hpp>
#include <foundation/storage/vfs/resources/folder.hpp>

#include <cstddef>
#include <functional>
#include <memory>
#include <string>

/// Ways to be told of changes to the files of a folder.
namespace bench {

/// Goes on until it is destroyed; behind that, nothing is told any more.
class Watching {
  public:
    Watching() = default;
    Watching(Watching const&) = delete;
    Watching& operator=(Watching const&) = delete;
    virtual ~Watching() = default;
};

enum class Change { Created, Modified };
/// Called on a thread of the one who watches.
using Told = std::function<void()>;

constexpr std::size_t manyEvents = 64U << 10;
/// Room for one event about a file with a name of at most 15 characters.
constexpr std::size_t oneEvent = 32;

/// inotify(7) with a thread that polls and reads, as many bytes at a time: what cannot be done
/// without.
std::unique_ptr<Watching> watchByCalls(std::string const& folder, Change change, Told told,
                                       std::size_t bytesAtATime = manyEvents);
#ifdef WITH_GIO
/// A GFileMonitor without a limit of its rate, and a thread with a main loop.
std::unique_ptr<Watching> watchByGio(std::string const& folder, Change change, Told told);
#endif
/// The watcher has to live longer.
std::unique_ptr<Watching> watchByUs(foundation::storage::vfs::ChangeWatcher& watcher,
                                    foundation::storage::vfs::Folder const& folder, Change change,
                                    Told told);

} // namespace bench
