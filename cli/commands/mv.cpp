#include "../commands.hpp"
#include "../interruption.hpp"
#include "../transfer.hpp"

#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/vfs/resources/file.hpp>
#include <foundation/storage/vfs/storage_system/exists.hpp>

#include <exception>

namespace cli {

namespace provider = foundation::storage::provider;
namespace vfs = foundation::storage::vfs;

using provider::ReplacementPolicy;

namespace {

// A read-only destination that -f replaces is made writable for the move, and read-only again where
// the move fails.
class Unlocked {
  public:
    Unlocked(vfs::StorageSystemReference const& system, Transfer const& transfer)
        : file_(transfer.destination.iri, system) {
        if (transfer.policy == ReplacementPolicy::ReplaceReadOnly && file_.fileExists() &&
            !file_.getAttributes().isWritable()) {
            file_.setWritable(true);
            locked_ = true;
        }
    }
    ~Unlocked() {
        if (locked_) {
            try {
                file_.setWritable(false);
            } catch (std::exception const&) { // NOLINT(bugprone-empty-catch)
                // The failed move is the failure that is told.
            }
        }
    }
    Unlocked(Unlocked const&) = delete;
    Unlocked& operator=(Unlocked const&) = delete;

    void replaced() noexcept { locked_ = false; }

  private:
    vfs::File file_;
    bool locked_ = false;
};

// The storage's own move. False where the two locations are not in one storage. Asked of the
// provider itself, because File::moveFile would go on to copy and remove without the check.
bool movedByStorage(vfs::StorageSystemReference const& system, Transfer const& transfer) {
    provider::StorageIRI const source = transfer.source.iri.toStorageIRI();
    provider::StorageIRI const destination = transfer.destination.iri.toStorageIRI();
    if (source.getSchemeView() != destination.getSchemeView()) {
        return false;
    }
    bool const keeps = transfer.policy == ReplacementPolicy::FailIfExists;
    Unlocked unlocked(system, transfer);
    try {
        system.buildProvider(source)->moveFile(source, destination,
                                               keeps ? ReplacementPolicy::FailIfExists
                                                     : ReplacementPolicy::ReplaceExisting);
    } catch (provider::Exception const& failure) {
        if (failure.getErrorCode() == provider::ErrorCode::UnsupportedOperation) {
            return false;
        }
        throw;
    }
    unlocked.replaced();
    return true;
}

// Not of a link: that would set the time of what it leads to. A storage that cannot set times still
// holds the file.
void carryTimeOver(vfs::StorageSystemReference const& system, Transfer const& transfer) {
    try {
        if (existsExtended(transfer.destination.iri, system) ==
            provider::ExtendedExistsResult::File) {
            vfs::File const source(transfer.source.iri, system);
            vfs::File(transfer.destination.iri, system)
                .setLastModified(source.getAttributes().getLastModified());
        }
    } catch (std::exception const&) { // NOLINT(bugprone-empty-catch)
    }
}

void moveFile(vfs::StorageSystemReference const& system, Transfer const& transfer) {
    if (movedByStorage(system, transfer)) {
        return;
    }
    copyFile(system, transfer);
    checkCopy(system, transfer);
    carryTimeOver(system, transfer);
    vfs::File(transfer.source.iri, system).removeFile();
}

} // namespace

int runMv(Host& host, Words const& words) {
    bool noClobber = false;
    bool force = false;
    Arguments arguments(
        {"mv",
         "Moves single files: to a new name, or into a folder that exists. A file that is already "
         "there is replaced, as a whole, unless it is read-only. Between storages the file is "
         "copied, the copy read back and compared, and only then the source removed.",
         {"vfs mv notes.txt renamed.txt", "vfs mv notes.txt photo.jpg docs"}});
    arguments.flag("-n,--no-clobber", noClobber, "Refuse to replace a file")
        .flag("-f,--force", force, "Replace read-only files too")
        .takes("SOURCE... DESTINATION", 2, Arguments::unlimited);
    if (!arguments.read(words)) {
        return printHelp(host, arguments);
    }
    auto const policy = replacementPolicy(noClobber, force);
    InterruptionGuard const guard;
    Invocation invocation(host, "mv");
    forEachTransfer(invocation, arguments.operands(), policy, "moved",
                    [&](Transfer const& transfer) {
                        moveFile(invocation.system(), transfer);
                        invocation.changed(transfer.source);
                    });
    return invocation.finish();
}

} // namespace cli
