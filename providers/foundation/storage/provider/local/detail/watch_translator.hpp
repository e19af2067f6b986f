#pragma once

#include <foundation/storage/provider/local/detail/watch_batch.hpp>
#include <foundation/storage/provider/local/detail/watch_place.hpp>

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <utility>
#include <vector>

namespace foundation::storage::provider::local::detail {

/// Turns the kernel's events into reports, and keeps the watches in step with the disk.
///
/// An event tells of the past: by the time that it is read, the folder that it is about may have
/// been moved, or have given its name to another one. So whatever is opened by a name is held
/// against the watch that it should have; what is not there is looked for again when the events
/// behind it have been read, and where it is not to be found even then, the publication is brought
/// up to date as after an overflow. For one thread at a time.
class WatchTranslator {
  public:
    using Event = WatchBatch::Event;

    WatchTranslator(WatchTable& table, WatchReports& reports) noexcept
        : table_(table),
          reports_(reports),
          survey_(table, reports),
          place_(table, reports, survey_) {}

    WatchPlace& place() noexcept { return place_; }

    /// False where the queue has overflowed: then events are missing.
    bool translate(WatchBatch& batch);
    /// The queue was empty: what is not in its place now will not be put there by an event.
    void settleAll();
    /// As far as it can be done where the queue is never empty.
    void settleBehindMany();
    /// When something that could not be done is to be tried again, if there is such; taken once.
    std::optional<std::chrono::steady_clock::time_point> takeRetry() noexcept {
        return std::exchange(retryAt_, std::nullopt);
    }
    /// Whether settleAll() has something to do.
    bool hasOpenEnds() const noexcept { return !concerned_.empty() || reports_.remembersFound(); }

    /// Whether that is better done a little later.
    bool isWaiting() const noexcept { return isWaiting_; }

    /// Looks at a publication at the next occasion. REQUIRES: there is room, by expect().
    void concern(WatchPublication& publication) noexcept;
    void expect(std::size_t publications);
    /// Forgets what was begun: an exception has ended it.
    void abandon() noexcept;
    /// The publication ends, and nothing may be done for it any more.
    void forget(WatchPublication const& publication) noexcept;

  private:
    using Kind = events::Kind;
    using Type = events::EntryType;
    using Reported = WatchPublication::Reported;
    /// Whether what the tree and the disk tell of a folder may differ for want of an event.
    enum class Attempt { First, Last };
    enum class Queue { Empty, Busy };
    /// In place of an error number: the folder above is in another place than the tree tells.
    static constexpr int notNow = -1;

    void take(Event const& event);
    void takeEnd(Event const& event);
    void takeAbove(WatchPublication& publication, Event const& event);
    void takeAnchor(WatchPublication& publication, Event const& event);
    void takeFile(WatchPublication& publication, Event const& event);
    void takeSelf(WatchNode& node, Event const& event);
    void takeEntry(WatchNode& node, Event const& event);
    void create(WatchNode& node, Event const& event);
    void remove(WatchNode& node, Event const& event);
    void change(WatchNode& node, Event const& event);
    void depart(WatchNode& node, Event const& event);
    void arrive(WatchNode& node, Event const& event);

    /// The folder of a publication that has a watch, null where there is none.
    WatchNode* folderOf(int watch, WatchPublication const& publication) const;
    void enter(WatchNode& node, std::string_view name);
    int openEntry(WatchNode const& node, std::string_view name, FileDescriptor& folder);
    bool enter(WatchNode& node, std::string_view name, FileDescriptor folder, Reported isReported,
               Attempt attempt);
    void limit(WatchPublication& publication) noexcept;
    bool isWatched(WatchNode const& node, std::string_view name) const noexcept;
    void moveSubtree(WatchNode& node, std::string_view name, WatchNode& to,
                     std::string_view newName);
    void settle(Queue queue);
    void lookForMissed(WatchPublication& publication, Queue queue);
    bool look(WatchNode& node, std::string_view name, Reported isReported, Attempt attempt);
    void finish(WatchPublication& publication);
    WatchBatch::Answer isThere(int watch, std::string_view name);
    int openParent(WatchNode const& node);
    void closeParent() noexcept;

    WatchTable& table_;
    WatchReports& reports_;
    WatchSurvey survey_;
    WatchPlace place_;
    WatchBatch const* batch_ = nullptr;
    std::uint64_t batches_ = 0; ///< translated so far
    bool isWaiting_ = false;
    std::optional<std::chrono::steady_clock::time_point> retryAt_; ///< the first of all
    bool isComplete_ = true;
    std::vector<WatchPublication*> concerned_;
    std::vector<WatchPublication*> settling_;
    /// Where what has arrived within the batch comes from.
    std::map<std::pair<std::uint32_t, WatchPublication const*>, StorageIRI> departures_;
    /// The folder that was opened last: many events in a row are about one.
    FileDescriptor parent_;
    int parentWatch_ = WatchNode::unwatched;
};

} // namespace foundation::storage::provider::local::detail
