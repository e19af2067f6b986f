#include "sweep.hpp"

#include "tree_picture.hpp"

#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/standard/standard_storage_system.hpp>
#include <foundation/storage/vfs/streams/io_exception.hpp>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstring>
#include <exception>
#include <filesystem>
#include <optional>
#include <sstream>
#include <sys/mman.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <system_error>
#include <unistd.h>
#include <utility>

namespace fault_sweep {

namespace fs = std::filesystem;

namespace {

using Kind = CallFault::Kind;
using Span = CallFault::Span;

constexpr CallFault faultsInFull[] = {
    {Kind::Error, EIO, Span::Once, "EIO"},
    {Kind::Error, ENOSPC, Span::Once, "ENOSPC"},
    {Kind::Error, EDQUOT, Span::Once, "EDQUOT"},
    {Kind::Error, EINTR, Span::Once, "EINTR"},
    {Kind::Error, EMFILE, Span::Once, "EMFILE"},
    {Kind::Error, ENOMEM, Span::Once, "ENOMEM"},
    {Kind::ShortCount, 0, Span::Once, "a short count"},
    {Kind::Error, EIO, Span::Lasting, "EIO from there on"},
    {Kind::Error, ENOSPC, Span::Lasting, "ENOSPC from there on"},
    {Kind::Error, EMFILE, Span::Lasting, "EMFILE from there on"},
    {Kind::ShortCount, 0, Span::Lasting, "short counts from there on"},
};
constexpr CallFault faultsInBrief[] = {
    {Kind::Error, EIO, Span::Once, "EIO"},
    {Kind::ShortCount, 0, Span::Lasting, "short counts from there on"},
};

/// No operation makes nearly so many calls; one that does never ends.
constexpr std::size_t pointsAtMost = 5000;
constexpr std::size_t findingsAtMost = 40;
constexpr int sweepFailed = 77;

/// What the process that sweeps tells the one that waits, also where it dies.
struct Report {
    std::size_t points;
    bool isFinished;
    char at[256];
    std::size_t size;
    char findings[64 * 1024];

    void say(std::string const& text) noexcept {
        std::size_t const room = sizeof findings - size;
        std::size_t const taken = std::min(room, text.size() + 1);
        std::memcpy(findings + size, text.c_str(), taken);
        size += taken;
    }
};

/// How a run ended.
struct Outcome {
    std::optional<Told> told; ///< nothing where it threw
    std::string failure;      ///< the type and the text of what was thrown
    bool isTyped = true;

    bool isDone() const noexcept { return told && *told != Told::Failed; }
};

template<class Failure>
std::string describe(char const* type, Failure const& failure) {
    std::ostringstream text;
    text << type << " with " << failure.getErrorCode();
    return text.str();
}

Outcome outcomeOf(Scenario const& scenario, Place const& place) {
    Outcome outcome;
    try {
        outcome.told = scenario.run(place);
    } catch (vfs::Exception const& e) {
        outcome.failure = describe("vfs::Exception", e);
    } catch (provider::Exception const& e) {
        outcome.failure = describe("provider::Exception", e);
    } catch (vfs::IOException const& e) {
        outcome.failure = describe("IOException", e);
    } catch (provider::ByteStreamFailure const& e) {
        outcome.failure = describe("ByteStreamFailure", e);
    } catch (std::exception const& e) {
        outcome.failure = std::string("something else: ") + e.what();
        outcome.isTyped = false;
    } catch (...) {
        outcome.failure = "something else";
        outcome.isTyped = false;
    }
    return outcome;
}

/// One scenario in the process that sweeps.
class Sweeping {
  public:
    Sweeping(Scenario const& scenario, SweepOptions const& options, Report& report)
        : scenario_(scenario),
          options_(options),
          report_(report),
          storage_(provider::standard::makeStandardStorageSystem()),
          place_(options.folder + "/here", options.other + "/there",
                 vfs::StorageSystemReference(storage_)) {}

    void run() {
        note("without a fault");
        prepare();
        Outcome const outcome = outcomeOf(scenario_, place_);
        done_ = pictures();
        if (!outcome.isDone()) {
            find("fails without a fault: " + outcome.failure);
            return;
        }
        trapCalls();
        for (CallFault const& fault : options_.faults) {
            for (std::size_t at = 1; tryFault(fault, at); ++at) {
                if (at > pointsAtMost) {
                    find("does not end");
                    return;
                }
            }
        }
    }

  private:
    void note(std::string const& at) {
        std::strncpy(report_.at, at.c_str(), sizeof report_.at - 1);
    }

    void find(std::string const& what) {
        if (++findings_ <= findingsAtMost) {
            report_.say(std::string(report_.at) + ": " + what);
        }
    }

    TreePicture pictures() const {
        TreePicture all;
        for (auto const& [name, root] :
             {std::pair("here", place_.here()), std::pair("there", place_.there())}) {
            for (auto& [path, item] : pictureOf(root)) {
                all.emplace(std::string(name) + "/" + path, item);
            }
        }
        return all;
    }

    void prepare() {
        for (std::string const& root : {place_.here(), place_.there()}) {
            fs::remove_all(root);
            fs::create_directory(root);
        }
        scenario_.prepare(place_);
        before_ = pictures();
    }

    /// False when the operation made no such call.
    bool tryFault(CallFault const& fault, std::size_t at) {
        prepare();
        note(std::string(fault.name) + " at call " + std::to_string(at));
        std::size_t const descriptors = countOpenDescriptors();
        ::alarm(options_.secondsAtMost);
        setMissingCalls(scenario_.missing);
        armFault(fault, at);
        Outcome const outcome = outcomeOf(scenario_, place_);
        CallCount const count = disarmFault();
        setMissingCalls({});
        ::alarm(0);
        if (count.isInjected) {
            ++report_.points;
            note(std::string(fault.name) + " at call " + std::to_string(at) + ", " +
                 nameOfCall(count.injectedCall));
        }
        judge(outcome, count, fault);
        if (std::size_t const now = countOpenDescriptors(); now != descriptors) {
            find(std::to_string(now) + " descriptors open, " + std::to_string(descriptors) +
                 " before");
        }
        return count.isInjected;
    }

    /// Then what was made to stand for a moment only has to stay.
    static bool nothingCanBeTakenAway(CallCount const& count, CallFault const& fault) {
        return fault.span == Span::Lasting && nameOfCall(count.injectedCall) == "unlinkat";
    }

    void judge(Outcome const& outcome, CallCount const& count, CallFault const& fault) {
        if (!outcome.isTyped) {
            find("throws " + outcome.failure);
        }
        if (!count.isInjected && !outcome.isDone()) {
            find("fails without a fault: " + outcome.failure);
        }
        if (std::string const lie = scenario_.lies ? scenario_.lies(place_) : "";
            !lie.empty() && !nothingCanBeTakenAway(count, fault)) {
            find(lie);
        }
        TreePicture const after = pictures();
        if (outcome.isDone()) {
            judgeDone(after, *outcome.told == Told::DoneWithTimes);
        } else {
            judgeFailed(after, outcome, count, fault);
        }
    }

    void judgeDone(TreePicture const& after, bool withTimes) {
        for (auto const& [path, wanted] : done_) {
            auto const found = after.find(path);
            if (found == after.end()) {
                find("says it is done, and " + path + " is not there");
            } else if (!found->second.isSameAs(wanted)) {
                find("says it is done, and " + path + " is not complete");
            } else if (found->second.mode != wanted.mode) {
                find("says it is done, and " + path + " has another mode");
            } else if (withTimes && wanted.time == Place::timeLongPast &&
                       found->second.time != wanted.time) {
                find("says it is done with times, and " + path + " has another");
            }
        }
        for (auto const& [path, item] : after) {
            if (!done_.contains(path)) {
                find("says it is done, and leaves " + path);
            }
        }
    }

    void judgeFailed(TreePicture const& after, Outcome const& outcome, CallCount const& count,
                     CallFault const& fault) {
        for (auto const& [path, item] : after) {
            if (scenario_.inPlace.contains(path)) {
                continue;
            }
            auto const old = before_.find(path);
            auto const wanted = done_.find(path);
            bool const isOld = old != before_.end() && item.isSameAs(old->second);
            bool const isNew = wanted != done_.end() && item.isSameAs(wanted->second);
            if (old == before_.end() && wanted == done_.end()) {
                if (!nothingCanBeTakenAway(count, fault)) {
                    find("fails with " + outcome.failure + ", and leaves " + path);
                }
            } else if (!isOld && !isNew) {
                find("fails with " + outcome.failure + ", and " + path +
                     " is neither the old nor the new one");
            }
        }
        for (auto const& [path, item] : before_) {
            if (!after.contains(path) && done_.contains(path) &&
                !scenario_.madeAnew.contains(path)) {
                find("fails with " + outcome.failure + ", and " + path + " is gone");
            }
        }
        for (auto const& [from, to] : scenario_.moved) {
            judgeMoved(after, from, to);
        }
    }

    void judgeMoved(TreePicture const& after, std::string const& from, std::string const& to) {
        for (auto const& [path, item] : before_) {
            bool const isMoved = path == from || path.starts_with(from + "/");
            if (!isMoved || !item.isFile()) {
                continue;
            }
            auto const isThere = [&, &wanted = item](std::string const& name) {
                auto const found = after.find(name);
                return found != after.end() && found->second.isSameAs(wanted);
            };
            if (!isThere(path) && !isThere(to + path.substr(from.size()))) {
                find("loses " + path);
            }
        }
    }

    Scenario const& scenario_;
    SweepOptions const& options_;
    Report& report_;
    std::shared_ptr<vfs::PluggableStorageSystem> storage_;
    Place place_;
    TreePicture before_;
    TreePicture done_;
    std::size_t findings_ = 0;
};

Report* sharedReport() {
    void* const space =
        ::mmap(nullptr, sizeof(Report), PROT_READ | PROT_WRITE, MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (space == MAP_FAILED) {
        throw std::system_error(errno, std::generic_category(), "mmap");
    }
    return static_cast<Report*>(space); // zero, which is an empty one
}

[[noreturn]] void sweepAndExit(Scenario const& scenario, SweepOptions const& options,
                               Report& report) {
    ::signal(SIGALRM, SIG_DFL);
    try {
        fs::create_directories(options.folder);
        fs::create_directories(options.other);
        Sweeping(scenario, options, report).run();
        report.isFinished = true;
    } catch (std::exception const& e) {
        report.say(std::string(report.at) + ": the sweep itself failed: " + e.what());
        ::_exit(sweepFailed);
    }
    ::_exit(0);
}

} // namespace

std::span<CallFault const> allFaults() noexcept {
    return faultsInFull;
}
std::span<CallFault const> fewFaults() noexcept {
    return faultsInBrief;
}

SweepResult sweep(Scenario const& scenario, SweepOptions const& options) {
    Report* const report = sharedReport();
    pid_t const child = ::fork();
    if (child < 0) {
        throw std::system_error(errno, std::generic_category(), "fork");
    }
    if (child == 0) {
        sweepAndExit(scenario, options, *report);
    }
    int status = 0;
    if (::waitpid(child, &status, 0) != child) {
        throw std::system_error(errno, std::generic_category(), "waitpid");
    }
    SweepResult result;
    result.points = report->points;
    for (std::size_t at = 0; at < report->size;) {
        std::string const text(report->findings + at,
                               ::strnlen(report->findings + at, report->size - at));
        at += text.size() + 1;
        result.findings.push_back(text);
    }
    if (WIFSIGNALED(status)) {
        int const signal = WTERMSIG(status);
        result.findings.push_back(
            std::string(report->at) + ": " +
            (signal == SIGALRM ? "hangs" : "dies of signal " + std::to_string(signal)));
    } else if (!report->isFinished && WEXITSTATUS(status) != sweepFailed) {
        result.findings.push_back(std::string(report->at) + ": ends the process");
    }
    ::munmap(report, sizeof(Report));
    fs::remove_all(options.folder);
    fs::remove_all(options.other);
    return result;
}

} // namespace fault_sweep
