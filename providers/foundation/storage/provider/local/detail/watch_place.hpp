#pragma once

#include <foundation/storage/provider/local/detail/watch_survey.hpp>

namespace foundation::storage::provider::local::detail {

/// Where a published item is: finds it by its path, watches the folder that it is in, or else the
/// innermost folder above that is there, and notices that it came, went, or is another one now.
class WatchPlace {
  public:
    WatchPlace(WatchTable& table, WatchReports& reports, WatchSurvey& survey) noexcept
        : table_(table),
          reports_(reports),
          survey_(survey) {}

    /// Starts to watch an item that is there. The error number, or 0; then leave() is due.
    int begin(WatchPublication& publication);
    void leave(WatchPublication& publication) noexcept;

    /// Opens the folder that the published item is in, where `node` is for that. Empty where not.
    FileDescriptor openAnchor(WatchPublication const& publication, WatchNode const& node);

    /// Compares with what is known, reports what is different, and watches what is there.
    void settle(WatchPublication& publication);
    /// The published folder is not at its name any more.
    void lose(WatchPublication& publication);
    /// Brings all watches up to date with the disk.
    void renew(WatchPublication& publication);

  private:
    int anchor(WatchPublication& publication);
    void releaseAnchor(WatchPublication& publication) noexcept;
    int watchAbove(WatchPublication& publication, StorageIRI const& folder);
    int anchorAsFarAsThereIs(WatchPublication& publication);
    void settleFile(WatchPublication& publication);
    void settleFolder(WatchPublication& publication);
    bool isSameRoot(WatchPublication& publication);
    void appear(WatchPublication& publication, FileDescriptor folder);
    void fill(WatchPublication& publication, FileDescriptor folder);
    int watchRoot(WatchPublication& publication, FileDescriptor folder, WatchSurvey::Finds finds);

    WatchTable& table_;
    WatchReports& reports_;
    WatchSurvey& survey_;
};

} // namespace foundation::storage::provider::local::detail
