#include "../commands.hpp"
#include "../interruption.hpp"
#include "../source_removal.hpp"
#include "../transfer.hpp"
#include "../tree_copy.hpp"

#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/vfs/errors/exception.hpp>
#include <foundation/storage/vfs/listing/folder_listing.hpp>
#include <foundation/storage/vfs/resources/folder.hpp>
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
    Unlocked(TransferRun const& run, Transfer const& transfer)
        : file_(transfer.destination.iri, run.system()) {
        // Through a link it would be what the link leads to that is unlocked.
        if (run.wishes().policy == ReplacementPolicy::ReplaceReadOnly &&
            existsExtended(transfer.destination.iri, run.system()) ==
                provider::ExtendedExistsResult::File &&
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

// What a storage is asked for: what is kept it refuses, and what is deferred it refuses too.
ReplacementPolicy policyForStorage(ReplacementPolicy policy) {
    switch (policy) {
    case ReplacementPolicy::FailIfExists:
    case ReplacementPolicy::KeepExisting:
        return ReplacementPolicy::FailIfExists;
    default:
        return ReplacementPolicy::ReplaceExisting;
    }
}

// The storage's own move of a file. False where it has none. Asked of the provider itself, because
// File::moveFile would go on to copy and remove without the check.
bool fileMovedByStorage(TransferRun const& run, Transfer const& transfer) {
    provider::StorageIRI const source = transfer.source.iri.toStorageIRI();
    provider::StorageIRI const destination = transfer.destination.iri.toStorageIRI();
    if (source.getSchemeView() != destination.getSchemeView()) {
        return false;
    }
    Unlocked unlocked(run, transfer);
    try {
        run.system().buildProvider(source)->moveFile(source, destination,
                                                     policyForStorage(run.wishes().policy));
    } catch (provider::Exception const& failure) {
        if (failure.getErrorCode() == provider::ErrorCode::UnsupportedOperation) {
            return false;
        }
        throw;
    }
    unlocked.replaced();
    return true;
}

// Copies, has what the storage keeps back written out, compares, and only then removes.
Transferred fileMovedByCopy(TransferRun& run, Transfer const& transfer, PlacesOf const& places) {
    vfs::File const source(transfer.source.iri, run.system());
    vfs::File const destination(transfer.destination.iri, run.system());
    // Whoever was to be asked was asked already.
    Transferred const copied =
        run.copyFile({source, destination, std::nullopt, run.wishes().ask}, places);
    if (copied != Transferred::Done || run.wishes().dryRun) {
        return copied;
    }
    bool const removed = run.attempt(places, [&] {
        vfs::Folder(transfer.destination.iri, run.system()).flushFilesystem();
        checkCopy(run.system(), transfer.source, transfer.destination);
        carryTimeOver(run.system(), transfer.source, transfer.destination);
        source.removeFile();
    });
    if (!removed) {
        --run.tally().files;
        ++run.tally().copiedOnly;
    }
    return removed ? Transferred::Done : Transferred::Failed;
}

bool moveFile(TransferRun& run, Transfer const& transfer, PlacesOf const& places) {
    Transferred result = Transferred::Failed;
    bool copies = false;
    run.attempt(places, [&] {
        if (run.wishes().dryRun) {
            copies = true;
        } else if (run.wishes().ask && !run.mayReplace(transfer.destination)) {
            result = Transferred::Kept;
        } else {
            try {
                copies = !fileMovedByStorage(run, transfer);
                result = Transferred::Done;
            } catch (provider::Exception const& failure) {
                if (run.wishes().policy != ReplacementPolicy::KeepExisting ||
                    failure.getErrorCode() != provider::ErrorCode::ResourceAlreadyExists) {
                    throw;
                }
                result = Transferred::Kept;
            }
        }
    });
    if (copies) {
        return fileMovedByCopy(run, transfer, places) == Transferred::Done;
    }
    if (result == Transferred::Done) {
        ++run.tally().files;
        run.transferred(places);
    } else if (result == Transferred::Kept) {
        run.kept(places);
    }
    return result == Transferred::Done;
}

// Whether the policy lets a folder go into one that is there. `replace` replaces an empty folder
// alone, as rename(2) does: who moves a folder does not expect to find two mixed.
bool merges(ReplacementPolicy policy) {
    return policy != ReplacementPolicy::FailIfExists &&
           policy != ReplacementPolicy::ReplaceExisting;
}

// The storage's own move of a tree. False where it has none, or where it is to be merged with one
// that is there.
bool treeMovedByStorage(TransferRun const& run, Transfer const& transfer) {
    provider::StorageIRI const source = transfer.source.iri.toStorageIRI();
    provider::StorageIRI const destination = transfer.destination.iri.toStorageIRI();
    if (source.getSchemeView() != destination.getSchemeView()) {
        return false;
    }
    ReplacementPolicy const policy = run.wishes().policy;
    if (merges(policy) && vfs::Folder(transfer.destination.iri, run.system()).folderExists()) {
        return false;
    }
    try {
        run.system().buildProvider(source)->moveFolder(source, destination,
                                                       policyForStorage(policy));
    } catch (provider::Exception const& failure) {
        switch (failure.getErrorCode()) {
        case provider::ErrorCode::UnsupportedOperation:
            return false;
        case provider::ErrorCode::FolderNotEmpty:
            throw Refusal("folder not empty (-f merges into it)");
        default:
            throw;
        }
    }
    return true;
}

void checkMayCopyTo(TransferRun const& run, Transfer const& transfer) {
    ReplacementPolicy const policy = run.wishes().policy;
    vfs::Folder const destination(transfer.destination.iri, run.system());
    if (!merges(policy) && destination.folderExists()) {
        if (policy == ReplacementPolicy::FailIfExists) {
            throw Refusal(wordsFor(vfs::ErrorCode::ResourceAlreadyExists));
        }
        if (!destination.listAll().empty()) {
            throw Refusal("folder not empty (-f merges into it)");
        }
    }
}

// The source stays whole until everything that can be copied is, so that an interrupted move has
// lost nothing and torn nothing apart.
void moveTreeByCopy(TransferRun& run, Transfer const& transfer, PlacesOf const& places) {
    std::set<std::string> leftBehind;
    WorkTally const before = run.tally();
    // Nothing is moved before it is removed.
    auto const onlyCopied = [&] {
        if (run.wishes().dryRun) {
            return;
        }
        WorkTally& tally = run.tally();
        tally.copiedOnly += tally.files - before.files;
        tally.files = before.files;
        tally.folders = before.folders;
        tally.bytes = before.bytes;
    };
    try {
        TreeCopy(run, transfer.source, transfer.destination, &leftBehind).copy();
        throwIfInterrupted();
    } catch (Interrupted const&) {
        onlyCopied();
        throw;
    }
    if (run.wishes().dryRun) {
        return;
    }
    onlyCopied();
    if (run.isFull()) {
        return;
    }
    bool const written = run.attempt(
        places, [&] { vfs::Folder(transfer.destination.iri, run.system()).flushFilesystem(); });
    if (written) {
        SourceRemoval(run, transfer.source, transfer.destination, leftBehind).remove();
    }
}

bool moveTree(TransferRun& run, Transfer const& transfer, PlacesOf const& places) {
    bool moved = false;
    bool const usable = run.attempt(places, [&] {
        if (run.wishes().dryRun) {
            checkMayCopyTo(run, transfer);
            return;
        }
        moved = treeMovedByStorage(run, transfer);
        if (!moved) {
            checkMayCopyTo(run, transfer);
        }
    });
    if (moved) {
        ++run.tally().folders;
        run.transferred(places);
    } else if (usable) {
        moveTreeByCopy(run, transfer, places);
    }
    return usable;
}

bool moveItem(TransferRun& run, Transfer const& transfer) {
    PlacesOf const places = [&] { return transfer.places(); };
    bool const done =
        transfer.ofTree ? moveTree(run, transfer, places) : moveFile(run, transfer, places);
    if (done && !run.wishes().dryRun) {
        run.invocation().changed(transfer.source);
    }
    return done;
}

} // namespace

int runMv(Host& host, Words const& words) {
    TransferOptions options;
    options.wishes.recursive = true;
    Arguments arguments(
        {"mv",
         "Moves files and folders: to a new name, or into a folder that exists. A file that is "
         "there is replaced, as a whole, unless it is read-only; a folder that is there only if it "
         "is empty, or merged into under the policies force, keep and defer. Between storages "
         "everything is copied first; then each file is read back and compared, and only then "
         "removed. What failed, and what was kept, stays.",
         {"vfs mv notes.txt renamed.txt", "vfs mv notes.txt photo.jpg docs", "vfs mv -v docs empty",
          "vfs mv -n notes.txt photo.jpg"}});
    options.declare(arguments);
    if (!arguments.read(words)) {
        return printHelp(host, arguments);
    }
    InterruptionGuard const guard;
    Invocation invocation(host, "mv");
    TransferRun run(invocation, options.read(host), "moved");
    bool ofTrees = false;
    try {
        forEachTransfer(run, arguments.operands(), [&](Transfer const& transfer) {
            ofTrees = ofTrees || transfer.ofTree;
            return moveItem(run, transfer);
        });
    } catch (Interrupted const&) {
        run.finish(ofTrees);
        throw;
    }
    run.finish(ofTrees);
    return invocation.finish();
}

} // namespace cli
