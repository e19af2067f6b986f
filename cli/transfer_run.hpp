#pragma once

#include "interruption.hpp"
#include "invocation.hpp"
#include "progress.hpp"
#include "work_tally.hpp"

#include <foundation/storage/provider/copy_file_options.hpp>
#include <foundation/storage/vfs/resources/file.hpp>

#include <array>
#include <cstdint>
#include <exception>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

namespace cli {

/// What the options of cp and mv ask for.
struct TransferWishes {
    foundation::storage::provider::ReplacementPolicy policy{};
    bool recursive = false;
    bool followLinks = false;
    bool asNamed = false; ///< the destination is the new name, also where a folder has it
    bool ask = false;     ///< before each replacement
    bool verbose = false;
    bool dryRun = false;
};

/// A source and its destination.
using Places = std::array<Location, 2>;
/// Makes them; asked only where they are to be shown.
using PlacesOf = std::function<Places()>;

/// A file that is to be copied, and what is known of it already.
struct FileToCopy {
    foundation::storage::vfs::File source;
    foundation::storage::vfs::File destination;
    std::optional<std::uint64_t> size;
    bool destinationIsFree = false; ///< nothing has the name, in a folder that was just made
};

enum class Transferred { Done, Kept, Failed };

/// What came of one of the files that were copied together.
struct CopyResult {
    Transferred transferred = Transferred::Failed;
    std::uint64_t bytes = 0;
    std::exception_ptr failure;
    bool tried = false; ///< not where the copy was interrupted before, or the storage was full
};

/// Files to be copied together.
struct FilesToCopy {
    /// One of them.
    std::function<FileToCopy(std::size_t)> file;
    /// Copies some of them as a storage does it best, those from one number up to another, and
    /// leaves others as they are; may be empty.
    std::function<void(std::size_t, std::size_t, std::vector<CopyResult>&)> copyMany{};
    /// Whether to copy one takes little but waiting for a server.
    bool waitsForServers = false;
};

/// What all the transfers of one run of cp or mv share: the wishes, the counts, the progress line,
/// and what ends them all. For one thread.
class TransferRun {
  public:
    /// `verb` is the word "copied".
    TransferRun(Invocation& invocation, TransferWishes const& wishes, std::string verb);

    Invocation& invocation() noexcept { return invocation_; }
    foundation::storage::vfs::StorageSystemReference const& system() const {
        return invocation_.system();
    }
    TransferWishes const& wishes() const noexcept { return wishes_; }
    std::string const& verb() const noexcept { return verb_; }
    WorkTally& tally() noexcept { return tally_; }

    /// Whether the destination has no space left, so that nothing more can be copied.
    bool isFull() const noexcept { return full_; }

    /// Calls `action` and reports what fails about the places; true where nothing did. What is
    /// denied is told at the end where the policy defers it. Throws Interrupted, OutputFailure.
    template<class Action>
    bool attempt(PlacesOf const& places, Action const& action) {
        try {
            action();
            return true;
        } catch (OutputFailure const&) {
            throw;
        } catch (Interrupted const&) {
            throw;
        } catch (...) {
            reportCurrentFailure(places);
            return false;
        }
    }

    /// Copies a file as the wishes have it, counts and shows it. A link is made again, or its bytes
    /// are copied where the destination has no links.
    Transferred copyFile(FileToCopy const& file, PlacesOf const& places);

    /// Before something comes to a destination: begins the archive that it lies in, where that is
    /// missing; but a rehearsal begins none. Throws what the storage throws.
    void aboutToWrite(Location const& destination);
    /// How many files are worth a second thread.
    static constexpr std::size_t worthOtherThreads = 16;
    /// Whether files of this size may be copied together: where nobody is asked, and nobody waits
    /// for a single one of them.
    bool goesWithOthers(std::uint64_t size) const noexcept;
    /// Copies files as copyFile() does, on as many threads as there are processors, or as a server
    /// is fit to be asked by, and neither counts nor reports them: that is for tell(). `files` is
    /// called on those threads. Files next to each other are best of one folder: two threads that
    /// create files in the same folder wait for each other. May be called on any thread; a share of
    /// the work that falls to the run's own thread moves the progress line, which shows `places`.
    /// Returns whether the destination has no space left.
    bool copyTogether(std::vector<CopyResult>& results, FilesToCopy const& files,
                      PlacesOf const& places);
    /// Counts and shows what came of a file, and reports why it failed.
    void tell(CopyResult const& result, PlacesOf const& places);

    /// Whether what is at the destination may be replaced, where the wishes are to ask.
    bool mayReplace(Location const& destination);
    /// Counts a transfer and prints it, where it is to be printed.
    void transferred(PlacesOf const& places);
    void kept(PlacesOf const& places);

    /// Counts what the sources are beforehand, all operands but the last one, so that the progress
    /// line knows the total. Nothing where nobody sees it. Throws Interrupted.
    void foresee(std::vector<std::string> const& operands);

    /// Ends the run: tells what was deferred, and sums up where there is anything to say.
    /// `ofTrees` where more than single files were asked for.
    void finish(bool ofTrees);

  private:
    void reportCurrentFailure(PlacesOf const& places);
    void count(Transferred result, PlacesOf const& places);
    Transferred rehearse(FileToCopy const& file, PlacesOf const& places);
    Transferred copyContent(FileToCopy const& file, PlacesOf const& places);
    void showProgress(std::uint64_t partOfFile, PlacesOf const& places);

    Invocation& invocation_;
    TransferWishes wishes_;
    std::string verb_;
    WorkTally tally_;
    std::optional<WorkAmount> foreseen_;
    WorkProgress progress_;
    std::vector<FailureText> deferred_;
    bool full_ = false;
    std::thread::id const thread_ = std::this_thread::get_id();
};

} // namespace cli
