#include "fault_run.hpp"

#include "printed_texts.hpp"

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/conformance/call_delayer.hpp>
#include <foundation/storage/conformance/decorate.hpp>
#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/exception.hpp>

#include <algorithm>
#include <future>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace remote_faults {

namespace conformance = foundation::storage::conformance;
using Clock = std::chrono::steady_clock;

namespace {

/// What a busy machine may take on top of a deadline.
constexpr std::chrono::milliseconds slack{2'000};
/// Without an end for people: much more than all calls of an operation take together.
constexpr std::chrono::seconds forEver{120};

constexpr char folder[] = "work/";

/// Finds the call that took the longest.
class CallClock {
  public:
    explicit CallClock(std::string firstCall) : call_(std::move(firstCall)) {}

    void begin(std::string call) {
        end();
        call_ = std::move(call);
        begun_ = Clock::now();
    }
    void end() {
        Clock::duration const took = Clock::now() - begun_;
        if (!call_.empty() && took > longest) {
            longest = took;
            longestCall = call_;
        }
        call_.clear();
    }

    Clock::duration longest{};
    std::string longestCall;

  private:
    std::string call_;
    Clock::time_point begun_ = Clock::now();
};

struct Outcome {
    std::optional<std::string> wrong;
    std::optional<std::string> failure;
    CallClock clock{"the operation"};
};

/// Catches what the operation is promised to throw, and nothing else.
void attempt(Target const& target, Scenario const& scenario, Plan const& plan, Outcome& outcome) {
    auto const note = [&outcome](provider::ErrorCode code, std::string const& what,
                                 fl::i18n::ustring const& text) {
        printedTexts().add(what);
        printedTexts().add(fl::i18n::to_string(text));
        std::ostringstream name;
        name << code;
        outcome.failure = name.str() + ": " + what;
    };
    try {
        auto& clock = outcome.clock;
        auto const timed = [&clock](conformance::Operation operation, provider::StorageIRI const*) {
            std::ostringstream name;
            name << operation;
            clock.begin(name.str());
        };
        Stage const stage{conformance::decorate<conformance::CallDelayer>(
                              target.makeProvider(plan.who, plan.patience), timed),
                          target.root};
        outcome.wrong = scenario.run(stage);
    } catch (provider::Exception const& failure) {
        note(failure.getErrorCode(), failure.what(), failure.ToUstringImpl());
    } catch (provider::ByteStreamFailure const& failure) {
        note(failure.getErrorCode(), failure.what(), failure.ToUstringImpl());
    } catch (std::exception const& failure) {
        printedTexts().add(failure.what());
        outcome.failure = failure.what();
        outcome.wrong = "throws what is not promised: " + *outcome.failure;
    }
    outcome.clock.end();
}

bool isFolderOf(std::string const& path, Files const& files) {
    auto const behind = files.upper_bound(path);
    return path.ends_with('/') && behind != files.end() && behind->first.starts_with(path);
}

std::optional<std::string> wrongAfterSuccess(Scenario const& scenario, Files const& there) {
    for (auto const& [path, content] : scenario.after) {
        auto const found = there.find(path);
        if (found == there.end()) {
            return "says it is done, and " + path + " is missing";
        }
        if (found->second != content) {
            return "says it is done, and " + path + " has other bytes";
        }
    }
    for (auto const& [path, content] : there) {
        bool const isGone = !scenario.gone.empty() && path.starts_with(scenario.gone);
        bool const isOfOthers =
            isFolderOf(path, scenario.before) || isFolderOf(path, scenario.after);
        if (!scenario.after.contains(path) && (isGone || !isOfOthers)) {
            return "says it is done, and " + path + " is there";
        }
    }
    return {};
}

std::optional<std::string> wrongAfterFailure(Scenario const& scenario, Files const& there) {
    auto const isOneOf = [](Files const& files, std::string const& path, std::string const* bytes) {
        auto const found = files.find(path);
        return bytes ? found != files.end() && found->second == *bytes : found == files.end();
    };
    Files all = scenario.before;
    all.insert(scenario.after.begin(), scenario.after.end());
    all.insert(there.begin(), there.end());
    for (auto const& [path, ignored] : all) {
        auto const found = there.find(path);
        std::string const* const bytes = found == there.end() ? nullptr : &found->second;
        if (!isOneOf(scenario.before, path, bytes) && !isOneOf(scenario.after, path, bytes) &&
            !isFolderOf(path, scenario.before) && !isFolderOf(path, scenario.after)) {
            return "fails, and " + path + " is neither the old nor the new one";
        }
    }
    if (scenario.moved) {
        auto const& [from, to] = *scenario.moved;
        std::string const& content = scenario.before.at(from);
        if (!isOneOf(there, from, &content) && !isOneOf(there, to, &content)) {
            return "fails, and what was to be moved is nowhere";
        }
    }
    return {};
}

std::string secondsText(Clock::duration time) {
    return std::to_string(std::chrono::duration_cast<std::chrono::milliseconds>(time).count()) +
           " ms";
}

} // namespace

RunResult runOnce(Target const& target, Scenario const& scenario, Plan const& plan) {
    bool const changes = !scenario.before.empty();
    if (changes) {
        target.side->restore(folder, scenario.before);
    }

    target.line->set(plan.fault);
    Outcome outcome;
    std::promise<void> done;
    std::future<void> const isDone = done.get_future();
    std::thread thread([&] {
        attempt(target, scenario, plan, outcome);
        done.set_value();
    });
    if (isDone.wait_for(forEver) != std::future_status::ready) {
        thread.detach();
        throw std::runtime_error(target.name + ", " + scenario.name + ", " + plan.fault.text() +
                                 ": does not come back");
    }
    thread.join();

    RunResult result;
    result.counts = target.line->clear();
    result.failure = outcome.failure;
    result.wrong = outcome.wrong;
    if (outcome.clock.longest > operationTimeout + scenario.allowance + slack) {
        result.hang = outcome.clock.longestCall + " takes " + secondsText(outcome.clock.longest);
    }
    if (!result.wrong && scenario.isReading && plan.passes() && outcome.failure) {
        result.wrong = "fails although the fault is over: " + *outcome.failure;
    }
    if (!result.wrong && scenario.mustFail && !outcome.failure) {
        result.wrong = "takes what is not to be believed";
    }
    if (!result.wrong && changes) {
        Files const there = target.side->files(folder);
        if (plan.who == Who::Stranger && there != scenario.before) {
            result.wrong = "a stranger changes something";
        } else if (plan.who == Who::Known) {
            result.wrong = outcome.failure ? wrongAfterFailure(scenario, there)
                                           : wrongAfterSuccess(scenario, there);
        }
    }
    if (std::vector<std::string> const uploads = target.side->takeUploads(); !uploads.empty()) {
        result.leak = "leaves an upload of " + uploads.front();
    }
    for (std::string const& text : printedTexts().take()) {
        for (std::string const& secret : target.secrets) {
            if (text.find(secret) != std::string::npos) {
                result.canary = "tells a secret: " + text;
            }
        }
    }
    return result;
}

} // namespace remote_faults
