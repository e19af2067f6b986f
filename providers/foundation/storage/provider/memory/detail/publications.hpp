#pragma once

#include <foundation/storage/provider/memory/detail/nodes.hpp>
#include <foundation/storage/provider/memory/detail/publication_table.hpp>

#include <atomic>
#include <chrono>
#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <string_view>
#include <thread>

namespace foundation::storage::provider::memory::detail {

/// The other end of a move, where a publication sees both.
enum class OtherEnd : std::uint8_t { None, To, From };

/// One call of a publication's callback that is due.
struct Report {
    PublicationPtr publication;
    Kind kind;
    EntryType type;
    ustring path; ///< of the item, from the watched one; empty for that itself
    OtherEnd otherEnd = OtherEnd::None;
    ustring other = {}; ///< its path, as above
};

/// Who is told of changes of a store, and what they are still to be told. Reports are put down
/// while the tree is locked, so that their order is that of the changes, and delivered without any
/// lock, by one thread at a time. Safe on any number of threads.
///
/// A thread that finds another one delivering leaves its reports to it: waiting would be a deadlock
/// where that one's callback waits for this thread. So a callback may do whatever it likes. But one
/// that has delivered much, perhaps for others only, is relieved by the next that comes: that waits
/// for the callback to return, no longer than a moment.
///
/// What waits is bounded for each publication. Beyond that, and where memory does not suffice, its
/// reports are lost until the rest of them are delivered, and an Overflow behind them says so.
class Publications {
  public:
    Publications() = default;
    Publications(Publications const&) = delete;
    Publications& operator=(Publications const&) = delete;

    /// A hint for whoever changes something: where it is false, nothing has to be put down.
    bool isWatched() const noexcept { return watched_.load(std::memory_order_relaxed); }

    /// False behind close(). REQUIRES: the lock of the tree is held.
    bool add(PublicationPtr const& publication, ustring const& key);
    void stopOldest(EntryType type, ustring const& key);
    /// Ends all publications.
    void clear() noexcept;
    /// The same, for good.
    void close() noexcept;

    /// What happened to an item that is in the tree, or still in it. Put down in full, or else lost
    /// for everybody. REQUIRES: the lock of the tree is held; so does `moved`.
    void changed(Kind kind, Node const& node) noexcept;
    /// An item that is already in its new place. `replaced` is what was there.
    void moved(FolderNode const& oldFolder, std::u16string_view oldName, Node const& node,
               Node const* replaced) noexcept;

    /// Delivers what is due, unless another thread is about it. REQUIRES: no lock is held.
    void deliver() noexcept;

  private:
    static constexpr std::size_t longestBacklog = 16 * 1024 * 1024;
    static constexpr std::size_t longestShift = 64; ///< in reports, where others come
    static constexpr std::chrono::milliseconds reliefPatience{20};

    template<class PutDown>
    void putDown(PutDown const& putDown) noexcept;
    void append(Report report);
    void appendContents(PublicationPtr const& publication, FolderNode const& folder);
    void appendSelf(PublicationPtr const& publication, Kind kind, Node const& node);
    void appendGone(ustring const& from, ustring const& to, Node const& node);
    void appendArrived(ustring const& from, ustring const& to, Node const& node);
    void lose(Publication& publication) noexcept;
    bool relieve(std::unique_lock<std::mutex>& lock) noexcept;
    std::optional<Report> takeNext() noexcept;
    std::optional<Report> takeOverflow() noexcept;

    std::atomic<bool> watched_{false};
    std::mutex mutex_; ///< taken after the lock of the tree
    // guarded by mutex_:
    PublicationTable table_;
    std::size_t count_ = 0;
    std::deque<Report> due_;
    bool overflowDue_ = false; ///< perhaps: one has lost reports, and none that wait
    bool delivering_ = false;
    std::thread::id deliverer_;
    std::size_t delivered_ = 0; ///< by that one
    std::size_t relief_ = 0;    ///< threads that wait to go on with it
    std::condition_variable relieved_;
    bool closed_ = false;
};

/// The path of an item of the tree; empty for the root. REQUIRES: the lock of the tree is held.
ustring pathOf(Node const& node);

} // namespace foundation::storage::provider::memory::detail
