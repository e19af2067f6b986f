#pragma once

#include "local_fixture.hpp"

#include <foundation/storage/provider/change_events.hpp>

#include <condition_variable>
#include <functional>
#include <future>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <string_view>
#include <vector>

namespace foundation::storage::provider::local::test {

using Kind = foundation::storage::events::Kind;
using EntryType = foundation::storage::events::EntryType;

inline ChangeKinds const allKinds{Kind::Created, Kind::Modified, Kind::AttributesChanged,
                                  Kind::Removed};
inline ChangeKinds const namesOnly{Kind::Created, Kind::Removed};

/// A report, with paths below the test's folder.
struct Change {
    Kind kind;
    std::string watched;
    std::string entry;
    EntryType type;
    std::string movedTo;
    std::string movedFrom;
    std::string watchedText; ///< exactly
};

/// The items in a tree.
using ChangeView = std::map<std::string, EntryType>;

/// What callbacks have been told so far.
class ChangeLog {
  public:
    explicit ChangeLog(std::string base) : base_(std::move(base)) {}
    ChangeLog(ChangeLog const&) = delete;
    ChangeLog& operator=(ChangeLog const&) = delete;
    /// REQUIRES: what publishes to it has ended.
    ~ChangeLog();

    ChangeCallback callback();
    void add(Change change);

    /// Whether `condition` comes true of all changes before a time that is too long.
    bool waitFor(std::function<bool(std::vector<Change> const&)> const& condition) const;
    /// The same of anything, looked at again with every change.
    bool waitUntil(std::function<bool()> const& condition) const;
    bool waitForAny(std::function<bool(Change const&)> const& condition) const;
    bool waitForEntry(Kind kind, std::string_view entry) const;
    bool waitForOverflow() const;

    /// From now on keeps what somebody knows who looked now with `look`, which is given a folder,
    /// believes every report, and looks again at every overflow, and from then on at every folder
    /// that moves.
    void keepView(std::function<ChangeView(std::string)> look);
    ChangeView view() const;

    std::vector<Change> changes() const;
    /// One line a change: "+ file a/b" for created, "-" removed, "*" modified, "~" attributes,
    /// "!" overflow; " -> " and " <- " behind it for the other end of a move. Without `markers`.
    std::vector<std::string> lines() const;
    void clear();

  private:
    void takeOver(Change const& change);

    std::string const base_;
    mutable std::mutex mutex_;
    mutable std::condition_variable changed_;
    std::vector<Change> changes_;
    std::function<ChangeView(std::string)> look_;
    ChangeView view_;
    bool hasLookedLate_ = false;
};

std::string lineOf(Change const& change);

/// The test's own folder has the folder `w`, which is published.
class LocalWatchTest : public LocalProviderTest {
  protected:
    explicit LocalWatchTest(LocalOptions const& options = {});
    /// Lets go of the provider, and waits for its thread: its callbacks use what the test has.
    void TearDown() override;

    void publish(std::string_view folder = "w", ChangeKinds const& kinds = allKinds);
    void publishTree(std::string_view folder = "w", ChangeKinds const& kinds = allKinds);
    void publishFile(std::string_view file, ChangeKinds const& kinds = allKinds);

    /// Makes a file in a watched folder and waits until that is reported: then everything that
    /// happened before has been. Where that got lost in an overflow, with another file.
    void settle(std::string_view folder = "w");
    /// What was reported up to now, but not about the files that settle() made.
    std::vector<std::string> reports(std::string_view folder = "w");

    /// What is on the disk below a folder; what vanishes meanwhile may be among it.
    ChangeView disk(std::string const& top = "w") const;

    /// Holds the watch thread in a callback until release(): what is done between comes to it as
    /// one burst. Once in a test.
    void hold();
    void release() { released_.set_value(); }

    /// Makes a file in each folder of a tree, and waits until all are reported. The folders of
    /// those that are not.
    std::vector<std::string> deafFolders(std::string const& top = "w");

    void remove(std::string_view name) const;
    void rename(std::string_view from, std::string_view to) const;

    /// The ids of the watch threads of this process.
    static std::set<std::string> watchThreads();
    /// Whether there is none of them soon.
    static bool noWatchThreadIsLeft();

    ChangeLog log_;

  private:
    int markers_ = 0;
    std::promise<void> released_;
};

} // namespace foundation::storage::provider::local::test
