#pragma once

#include "failure.hpp"
#include "host.hpp"
#include "location.hpp"
#include "new_archive.hpp"
#include "rehearsal.hpp"
#include "work_tally.hpp"

#include <foundation/storage/provider/i_provider.hpp>

#include <functional>
#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace cli {

enum ExitCode : int { exitDone = 0, exitFailed = 1, exitUsage = 2 };

/// One run of one command: its failures are reported under its name, and the run goes on behind
/// them. For one thread.
class Invocation {
  public:
    Invocation(Host& host, std::string command);

    foundation::storage::vfs::StorageSystemReference const& system() const {
        return rehearsed_ ? *rehearsed_ : host_.system();
    }
    Output& output() { return host_.output(); }
    Host& host() { return host_; }

    /// Calls `action` with each operand's location, reporting what fails, and going on.
    void forEach(std::vector<std::string> const& operands,
                 std::function<void(Location const&)> const& action);
    /// Calls `action`, reporting what fails as being about one of `operands`. True where it did
    /// not.
    bool attempt(std::span<Location const> operands, std::function<void()> const& action);
    /// The location of an operand. Where it is none, that is reported, and nothing returned.
    std::optional<Location> locate(std::string const& operand);

    /// Reports `vfs: COMMAND: SUBJECT: REASON`. Both texts must be fit to be shown.
    void fail(std::string const& subject, std::string const& reason);
    /// Makes the run a failure without a word.
    void failQuietly() { status_ = exitFailed; }

    /// The failures that were reported so far.
    FailureTally const& failures() const noexcept { return failures_; }
    /// Says on standard error what was done, and what was not, where anything failed or a signal
    /// was noted: `vfs: COMMAND: 12 files copied, 2 failed: a, b`. `verb` is the word "copied".
    void sumUp(WorkTally const& done, std::string const& verb) const;

    std::string const& command() const noexcept { return command_; }

    /// Before something is written there: begins the archive that it lies in, where that is
    /// missing. Throws what the storage throws.
    void aboutToWrite(Location const& location) { newArchives_.begin(system(), location); }
    /// The same for a rehearsal: from now on the archive seems to be there, empty.
    void wouldWrite(Location const& location);
    /// To be told of each change: storages that keep changes back write them out at the end.
    void changed(Location const& location);

    /// Ends the run: writes out what storages keep back, and the output. Gives the exit code.
    int finish();

  private:
    Host& host_;
    std::string command_;
    int status_ = exitDone;
    FailureTally failures_;
    std::map<foundation::storage::provider::IProvider*, Location> changed_;
    NewArchives newArchives_;
    std::shared_ptr<Rehearsal> rehearsal_;
    std::optional<foundation::storage::vfs::StorageSystemReference> rehearsed_;
};

} // namespace cli
