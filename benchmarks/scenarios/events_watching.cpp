#include "events_watching.hpp"

#include "contest.hpp"

#include <array>
#include <cerrno>
#include <poll.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <thread>
#include <unistd.h>
#include <utility>
#include <vector>

namespace bench {

namespace {

namespace vfs = foundation::storage::vfs;

class CallWatching final : public Watching {
  public:
    CallWatching(std::string const& folder, Change change, Told told, std::size_t bytesAtATime)
        : told_(std::move(told)),
          wanted_(change == Change::Created ? IN_CREATE : IN_MODIFY),
          buffer_(bytesAtATime),
          inotify_(::inotify_init1(IN_CLOEXEC | IN_NONBLOCK)),
          end_(::eventfd(0, EFD_CLOEXEC)) {
        if (inotify_ < 0 || end_ < 0 ||
            ::inotify_add_watch(inotify_, folder.c_str(), wanted_) < 0) {
            fail(folder);
        }
        thread_ = std::thread([this] { run(); });
    }
    CallWatching(CallWatching const&) = delete;
    CallWatching& operator=(CallWatching const&) = delete;
    ~CallWatching() override {
        ::eventfd_write(end_, 1);
        thread_.join();
        ::close(inotify_);
        ::close(end_);
    }

  private:
    void run() {
        std::array<pollfd, 2> sources{{{inotify_, POLLIN, 0}, {end_, POLLIN, 0}}};
        while (::poll(sources.data(), sources.size(), -1) > 0 && sources[1].revents == 0) {
            ssize_t const got = ::read(inotify_, buffer_.data(), buffer_.size());
            for (ssize_t at = 0; at < got;) {
                auto const& event = *reinterpret_cast<inotify_event const*>(buffer_.data() + at);
                at += static_cast<ssize_t>(sizeof event + event.len);
                if ((event.mask & wanted_) != 0) {
                    told_();
                }
            }
        }
    }

    Told told_;
    std::uint32_t wanted_;
    std::vector<char> buffer_;
    int inotify_;
    int end_;
    std::thread thread_;
};

class OurWatching final : public Watching {
  public:
    explicit OurWatching(foundation::msg_svc::eventmgr::ScopedConnection connection)
        : connection_(std::move(connection)) {}

  private:
    foundation::msg_svc::eventmgr::ScopedConnection connection_;
};

} // namespace

std::unique_ptr<Watching> watchByCalls(std::string const& folder, Change change, Told told,
                                       std::size_t bytesAtATime) {
    return std::make_unique<CallWatching>(folder, change, std::move(told), bytesAtATime);
}

std::unique_ptr<Watching> watchByUs(vfs::ChangeWatcher& watcher, vfs::Folder const& folder,
                                    Change change, Told told) {
    vfs::Kind const kind = change == Change::Created ? vfs::Kind::Created : vfs::Kind::Modified;
    return std::make_unique<OurWatching>(
        watcher.watch(folder, {kind}, vfs::WithRecursiveChangeEvents::No,
                      [kind, told = std::move(told)](vfs::Event const& event) {
                          if (event.getEventData().getKind() == kind) {
                              told();
                          }
                      }));
}

} // namespace bench
