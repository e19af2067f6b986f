#include "events.hpp"
#include "events_changes.hpp"
#include "events_picture.hpp"

#include <foundation/storage/vfs/events/change_watcher.hpp>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <exception>
#include <fstream>
#include <functional>
#include <stdexcept>
#include <string>
#include <thread>

namespace bench {

namespace {

namespace vfs = foundation::storage::vfs;
using Clock = std::chrono::steady_clock;

constexpr std::size_t changes = 1'000'000;
/// Between bursts of so many changes, at most so long a rest: in some of them the queue gets empty,
/// so that what comes behind an overflow comes while the next burst goes on.
constexpr std::size_t burst = 100'000;
constexpr std::chrono::milliseconds longestRest{1'500};
/// One call of the handler in so many takes that long: in all several times what a change takes.
constexpr unsigned slowOneIn = 8;
constexpr std::chrono::microseconds slowFor{60};
constexpr std::chrono::seconds tooLong{60};

struct Result {
    std::size_t told;
    std::size_t overflows;
    std::size_t items;
    bool isEqual;
    double changing; ///< seconds
    double settling; ///< from then until picture and disk were equal
};

bool comesTrue(std::function<bool()> const& condition, std::chrono::seconds within) {
    auto const end = Clock::now() + within;
    while (!condition()) {
        if (Clock::now() > end) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return true;
}

double secondsSince(Clock::time_point begin) {
    return std::chrono::duration<double>(Clock::now() - begin).count();
}

/// Returns when everything that was done before has been told, or an overflow for it.
void settle(std::filesystem::path const& root, Picture const& picture) {
    for (int number = 0; number < 2; ++number) {
        // What was told behind an overflow of the last one may still go on.
        std::this_thread::sleep_for(std::chrono::milliseconds(20));
        std::string const name = "marker-" + std::to_string(number);
        std::size_t const overflows = picture.overflows();
        std::ofstream(root / name).flush();
        if (!comesTrue([&] { return picture.knows(name, overflows); }, tooLong)) {
            throw std::runtime_error("the last change was not told, nor an overflow");
        }
    }
}

void showDifference(Items const& known, Items const& there) {
    auto const show = [](char const* what, Items const& some, Items const& others) {
        int left = 10;
        for (auto const& [path, kind] : some) {
            auto const other = others.find(path);
            if ((other == others.end() || other->second != kind) && left-- > 0) {
                std::printf("    %s: %s %s\n", what, kind == ItemKind::File ? "file" : "folder",
                            path.c_str());
            }
        }
    };
    show("only known", known, there);
    show("only there", there, known);
}

Result run(Workplace const& place, unsigned seed) {
    std::filesystem::path const root = place.path / "burst";
    std::filesystem::path const outside = place.path / "burst-outside";
    std::filesystem::create_directory(root);
    std::filesystem::create_directory(outside);
    vfs::Folder const folder(place.folder, u"burst");
    Picture picture(folder);
    std::atomic<std::size_t> told = 0;
    std::exception_ptr failure; // of the handler; read when it is not called any more
    vfs::ChangeWatcher watcher;
    auto connection =
        watcher.watch(folder, {vfs::Kind::Created, vfs::Kind::Removed},
                      vfs::WithRecursiveChangeEvents::Yes, [&](vfs::Event const& event) {
                          try {
                              picture.take(event);
                          } catch (...) {
                              failure = std::current_exception();
                          }
                          if (++told % slowOneIn == 0) {
                              std::this_thread::sleep_for(slowFor);
                          }
                      });
    picture.look();

    Result result{};
    RandomChanges random(root, outside, seed);
    auto const begin = Clock::now();
    std::size_t rest = burst;
    for (std::size_t done = 0; done < changes;) {
        done += random.tryOne();
        if (done >= rest && done < changes) {
            std::this_thread::sleep_for(random.anyTimeBelow(longestRest));
            rest = done + burst;
        }
    }
    result.changing = secondsSince(begin);
    auto const changed = Clock::now();
    settle(root, picture);
    Items const there = itemsOnDisk(root);
    result.isEqual = comesTrue([&] { return picture.items() == there; }, std::chrono::seconds(10));
    result.settling = secondsSince(changed);
    connection.disconnect();
    if (failure) {
        std::rethrow_exception(failure);
    }
    if (!result.isEqual) {
        showDifference(picture.items(), there);
    }
    result.told = told;
    result.overflows = picture.overflows();
    result.items = there.size();
    std::filesystem::remove_all(root);
    std::filesystem::remove_all(outside);
    return result;
}

} // namespace

void holdBurst(Workplace const& place) {
    std::printf(
        "\n%zu changes at random in a tree, in bursts that the handler does not keep up with\n"
        "%5s %12s %12s %12s %12s %12s\n",
        changes, "seed", "changing, s", "settling, s", "told", "overflows", "items");
    int equal = 0;
    int overflowed = 0;
    for (int number = 1; number <= place.runs; ++number) {
        Result const result = run(place, static_cast<unsigned>(number));
        equal += result.isEqual ? 1 : 0;
        overflowed += result.overflows > 0 ? 1 : 0;
        std::printf("%5d %12.1f %12.1f %12zu %12zu %12zu%s\n", number, result.changing,
                    result.settling, result.told, result.overflows, result.items,
                    result.isEqual ? "" : "   DIFFERENT");
        std::fflush(stdout);
    }
    std::printf("Overflows in %d of %d. What is known of the tree and the disk: equal in %d of "
                "%d\n",
                overflowed, place.runs, equal, place.runs);
    std::fflush(stdout);
    if (equal != place.runs) {
        throw std::runtime_error("changes were lost, and nobody was told");
    }
}

} // namespace bench
