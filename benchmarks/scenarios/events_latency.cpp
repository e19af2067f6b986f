#include "contest.hpp"
#include "events.hpp"
#include "events_watching.hpp"

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <fcntl.h>
#include <sched.h>
#include <semaphore>
#include <stdexcept>
#include <string>
#include <thread>
#include <unistd.h>
#include <vector>

namespace bench {

namespace {

using Clock = std::chrono::steady_clock;

constexpr int writes = 2'000;
constexpr double goal = 12; // microseconds
/// Between writes, so that each one meets a reader that sleeps, and no burst is seen in them.
constexpr std::chrono::microseconds pause{400};
/// What the writer does meanwhile. Where it sleeps, whatever else runs on the machine leaves its
/// own in the caches, and the processor may sleep as well.
enum class Meanwhile { Busy, Asleep };
constexpr std::chrono::seconds tooLong{10};

/// A file in a folder that is watched, and how soon each write was told.
class Delays {
  public:
    Delays(std::string name, Workplace const& place)
        : name_(std::move(name)),
          folder_(place.path / ("latency-" + name_)) {
        std::filesystem::create_directory(folder_);
        std::string const file = folder_ / "file";
        file_ = ::open(file.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
        if (file_ < 0) {
            fail(file);
        }
    }
    Delays(Delays const&) = delete;
    Delays& operator=(Delays const&) = delete;
    ~Delays() {
        watching = nullptr;
        ::close(file_);
        std::filesystem::remove_all(folder_);
    }

    std::string const& folder() const { return folder_.native(); }
    Told told() {
        return [this] {
            Clock::time_point const now = Clock::now();
            if (awaited_.exchange(false)) {
                arrived_ = now;
                done_.release();
            }
        };
    }

    void write(Meanwhile meanwhile) {
        if (meanwhile == Meanwhile::Asleep) {
            std::this_thread::sleep_for(pause);
        }
        for (auto const end = Clock::now() + pause;
             meanwhile == Meanwhile::Busy && Clock::now() < end;) {
        }
        awaited_ = true;
        Clock::time_point const begin = Clock::now();
        if (::pwrite(file_, "x", 1, 0) != 1) {
            fail(folder_);
        }
        if (!done_.try_acquire_for(tooLong)) {
            throw std::runtime_error(name_ + " was not told of a write");
        }
        microseconds_.push_back(
            std::chrono::duration<double, std::micro>(arrived_ - begin).count());
    }
    void forget() { microseconds_.clear(); }

    double quantile(double part) {
        auto const place =
            microseconds_.begin() +
            static_cast<std::ptrdiff_t>(part * static_cast<double>(microseconds_.size() - 1));
        std::nth_element(microseconds_.begin(), place, microseconds_.end());
        return *place;
    }
    std::string const& name() const { return name_; }

    std::unique_ptr<Watching> watching;

  private:
    std::string const name_;
    std::filesystem::path const folder_;
    int file_ = -1;
    std::atomic<bool> awaited_ = false;
    Clock::time_point arrived_;
    std::binary_semaphore done_{0};
    std::vector<double> microseconds_;
};

void require(bool done, char const* what) {
    if (!done) {
        fail(what);
    }
}

/// All threads of the program, those of libraries too.
void runThreadsOn(cpu_set_t const& processors) {
    for (auto const& task : std::filesystem::directory_iterator("/proc/self/task")) {
        auto const thread = static_cast<pid_t>(std::stol(task.path().filename().string()));
        require(::sched_setaffinity(thread, sizeof processors, &processors) == 0,
                "sched_setaffinity");
    }
}

void takeTurns(std::vector<Delays*> const& all, Meanwhile meanwhile) {
    for (int number = -100; number < writes; ++number) {
        if (number == 0) {
            for (Delays* const delays : all) {
                delays->forget(); // what was the first time
            }
        }
        for (std::size_t turn = 0; turn < all.size(); ++turn) {
            all[(turn + static_cast<std::size_t>(number + 100)) % all.size()]->write(meanwhile);
        }
    }
}

void print(char const* where, std::vector<Delays*> const& all, Delays const* held) {
    std::printf("\nFrom before a write to the handler that is told of it, %s (%d writes, us)\n",
                where, writes);
    std::printf("%-32s %10s %10s %10s %7s   %s\n", "", "median", "10 %", "90 %", "ratio", "goal");
    double const least = all.front()->quantile(0.5);
    for (Delays* const delays : all) {
        double const median = delays->quantile(0.5);
        std::printf("%-32s %10.1f %10.1f %10.1f %7.2f", delays->name().c_str(), median,
                    delays->quantile(0.1), delays->quantile(0.9), median / least);
        if (delays == held) {
            std::printf("   at most %.0f: %s", goal, median <= goal ? "met" : "missed");
        }
        std::printf("\n");
    }
}

} // namespace

void holdChangeLatency(Workplace const& place) {
    namespace vfs = foundation::storage::vfs;
    vfs::ChangeWatcher watcher;
    Delays calls("inotify, poll and read", place);
    calls.watching = watchByCalls(calls.folder(), Change::Modified, calls.told());
#ifdef WITH_GIO
    Delays gio("GFileMonitor", place);
    gio.watching = watchByGio(gio.folder(), Change::Modified, gio.told());
#endif
    Delays ours("ChangeWatcher", place);
    ours.watching = watchByUs(watcher, vfs::Folder(place.folder, u"latency-ChangeWatcher"),
                              Change::Modified, ours.told());

    std::vector<Delays*> const all = {
        &calls,
#ifdef WITH_GIO
        &gio,
#endif
        &ours,
    };
    // To wake another processor that sleeps takes tens of microseconds on a virtual machine, which
    // no reader can do anything about: what the readers take shows on a single one.
    cpu_set_t everywhere;
    require(::sched_getaffinity(0, sizeof everywhere, &everywhere) == 0, "sched_getaffinity");
    cpu_set_t here;
    CPU_ZERO(&here);
    CPU_SET(static_cast<std::size_t>(::sched_getcpu()), &here);
    runThreadsOn(here);
    takeTurns(all, Meanwhile::Busy);
    print("on one processor", all, &ours);
    takeTurns(all, Meanwhile::Asleep);
    print("on one processor that was left in between", all, nullptr);
    runThreadsOn(everywhere);
    takeTurns(all, Meanwhile::Busy);
    print("on all processors", all, nullptr);
#ifndef WITH_GIO
    std::printf("GFileMonitor: left out, this was built without GIO\n");
#endif
    std::fflush(stdout);
}

} // namespace bench
