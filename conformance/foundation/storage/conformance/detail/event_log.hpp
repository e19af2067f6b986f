#pragma once

#include <foundation/storage/events/kind.hpp>
#include <foundation/storage/provider/change_events.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

#include <chrono>
#include <functional>
#include <memory>
#include <string>
#include <vector>

namespace foundation::storage::conformance::detail {

/// What a callback was told.
struct ChangeReport {
    events::Kind kind;
    provider::StorageIRI watched;
    provider::StorageIRI entry;
    events::EntryType type;
    std::string movedTo;   ///< UTF-8, as are all texts of extended data
    std::string movedFrom; ///< empty where there is none
};

/// Writes down what a publication tells, on whatever threads, and waits for it. Copies share one
/// list. A callback may outlive the log.
class EventLog {
  public:
    explicit EventLog(std::chrono::milliseconds patience);

    /// `also` is called with each report, behind its being written down.
    provider::ChangeCallback callback(std::function<void(ChangeReport const&)> also = {}) const;

    using Condition = std::function<bool(ChangeReport const&)>;
    /// Whether a report came, within the patience, for which this holds. An Overflow counts for
    /// all: what it stands for is not told.
    bool waitFor(Condition const& condition) const;
    /// What came so far.
    std::vector<ChangeReport> reports() const;
    bool contains(Condition const& condition) const;
    /// Whether reports were lost, so that nothing can be said about what is missing.
    bool hasOverflow() const;

  private:
    struct State;
    std::shared_ptr<State> state_;
    std::chrono::milliseconds patience_;
};

/// A report of this kind about this item.
EventLog::Condition isAbout(events::Kind kind, provider::StorageIRI const& entry);

std::string textOf(ChangeReport const& report);

} // namespace foundation::storage::conformance::detail
