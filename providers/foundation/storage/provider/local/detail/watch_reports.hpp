#pragma once

#include <foundation/storage/provider/local/detail/watch_publication.hpp>

#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <unordered_set>
#include <vector>

namespace foundation::storage::provider::local::detail {

/// A call of a callback that is to be made, behind the lock.
struct WatchReport {
    WatchPublication* publication;
    events::Kind kind;
    events::EntryType type;
    StorageIRI watched;
    std::string name;                   ///< of the item in `watched`; empty for `watched` itself
    std::optional<StorageIRI> otherEnd; ///< of a move

    /// Calls the callback, unless the publication was stopped. False where the memory for it was
    /// missing, and the report is lost; what the callback throws is dropped.
    bool deliver() const noexcept;
};

/// The reports that come out of a batch of events, in their order. For one thread at a time.
class WatchReports {
  public:
    using Kind = events::Kind;
    using Type = events::EntryType;

    /// About the item `name` of a watched folder; for an empty name about the folder itself.
    void add(WatchPublication& publication, Kind kind, WatchNode const& folder,
             std::string_view name, Type type, std::optional<StorageIRI> otherEnd = {});
    /// About the published item itself.
    void addSelf(WatchPublication& publication, Kind kind);

    std::vector<WatchReport>& queue() noexcept { return queue_; }

    /// An item that was found by listing is reported at once. That the kernel may have its creation
    /// in the queue as well is remembered until the queue was empty.
    void addFound(WatchPublication& publication, WatchNode const& folder, std::string_view name,
                  Type type);
    /// Whether it was found; from then on it counts as not found.
    bool wasFound(WatchPublication const& publication, int watch, std::string_view name);
    bool remembersFound() const noexcept { return !found_.empty() || !foundBefore_.empty(); }
    void forgetFound() noexcept {
        found_.clear();
        foundBefore_.clear();
    }
    /// What was found before the last time of this: its creation has been read if it was to come.
    void forgetFoundLongAgo() noexcept {
        foundBefore_.swap(found_);
        found_.clear();
    }

  private:
    static std::string keyOf(WatchPublication const& publication, int watch, std::string_view name);

    std::vector<WatchReport> queue_;
    std::unordered_set<std::string> found_;
    std::unordered_set<std::string> foundBefore_;
};

} // namespace foundation::storage::provider::local::detail
