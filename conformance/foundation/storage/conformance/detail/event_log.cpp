#include <foundation/storage/conformance/detail/event_log.hpp>

#include <foundation/storage/conformance/detail/text.hpp>

#include <boost/property_tree/ptree.hpp>

#include <algorithm>
#include <array>
#include <condition_variable>
#include <mutex>
#include <utility>

namespace foundation::storage::conformance::detail {

using namespace foundation::storage::provider;
using events::EntryType;
using events::Kind;

struct EventLog::State {
    std::mutex mutex;
    std::condition_variable more;
    std::vector<ChangeReport> reports;
};

EventLog::EventLog(std::chrono::milliseconds patience)
    : state_(std::make_shared<State>()),
      patience_(patience) {}

ChangeCallback EventLog::callback(std::function<void(ChangeReport const&)> also) const {
    return [state = state_, also = std::move(also)](Kind const& kind, StorageIRI const& watched,
                                                    StorageIRI const& entry, EntryType const& type,
                                                    boost::property_tree::ptree const& extended) {
        ChangeReport const report{kind,
                                  watched,
                                  entry,
                                  type,
                                  extended.get("movedTo", std::string()),
                                  extended.get("movedFrom", std::string())};
        {
            std::lock_guard const lock(state->mutex);
            state->reports.push_back(report);
        }
        state->more.notify_all();
        if (also) {
            also(report);
        }
    };
}

bool EventLog::waitFor(Condition const& condition) const {
    auto const holds = [&](ChangeReport const& report) {
        return report.kind == Kind::Overflow || condition(report);
    };
    std::unique_lock lock(state_->mutex);
    return state_->more.wait_for(lock, patience_, [&] {
        return std::any_of(state_->reports.begin(), state_->reports.end(), holds);
    });
}

std::vector<ChangeReport> EventLog::reports() const {
    std::lock_guard const lock(state_->mutex);
    return state_->reports;
}

bool EventLog::contains(Condition const& condition) const {
    std::vector<ChangeReport> const all = reports();
    return std::any_of(all.begin(), all.end(), condition);
}

bool EventLog::hasOverflow() const {
    return contains([](ChangeReport const& report) { return report.kind == Kind::Overflow; });
}

EventLog::Condition isAbout(Kind kind, StorageIRI const& entry) {
    return [kind, entry](ChangeReport const& report) {
        return report.kind == kind && report.entry == entry;
    };
}

std::string textOf(ChangeReport const& report) {
    static constexpr std::array kinds = {"Created", "Modified", "AttributesChanged", "Removed",
                                         "Overflow"};
    auto const kind = static_cast<std::size_t>(report.kind);
    return std::string(kind < kinds.size() ? kinds[kind] : "an unknown kind") + " of the " +
           (report.type == EntryType::File ? "file " : "folder ") + textOf(report.entry) + " in " +
           textOf(report.watched);
}

} // namespace foundation::storage::conformance::detail
