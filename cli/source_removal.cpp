#include "source_removal.hpp"

#include "interruption.hpp"
#include "transfer.hpp"

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/vfs/errors/exception.hpp>
#include <foundation/storage/vfs/resources/folder.hpp>
#include <foundation/storage/vfs/storage_system/exists.hpp>
#include <foundation/storage/vfs/walking/walk_folder.hpp>

#include <exception>

namespace cli {

namespace vfs = foundation::storage::vfs;

using foundation::storage::provider::ExtendedExistsResult;

namespace {

std::uint64_t sizeOf(vfs::FileEntry const& entry) {
    try {
        return entry.getAttributes().values().size.value_or(0);
    } catch (vfs::Exception const&) {
        return 0;
    }
}

} // namespace

SourceRemoval::SourceRemoval(TransferRun& run, Location const& source, Location const& copy,
                             std::set<std::string> const& leftBehind)
    : run_(run),
      source_(source),
      sourcePath_(source),
      copyPath_(copy),
      folderPlaces_([this] {
          return Places{sourcePath_.location(), sourcePath_.location()};
      }),
      leftBehind_(leftBehind),
      anyStays_(!leftBehind.empty()) {}

void SourceRemoval::remove() {
    walkFolder(vfs::Folder(source_.iri, run_.system()), *this);
}

SourceRemoval::Result SourceRemoval::visitEntryBefore(FolderEntry const& entry) {
    throwIfInterrupted();
    std::size_t const length = sourcePath_.length();
    if (!lengths_.empty()) {
        std::string const name = fl::i18n::toDisplayString(entry.getName());
        sourcePath_.enter(name);
        copyPath_.enter(name);
    }
    lengths_.push_back(length);
    if (leftBehind_.contains(sourcePath_.belowTop())) {
        leave();
        return Result::Skip;
    }
    try {
        entry.getAttributes();        // kept: removing what is in the folder changes its time
    } catch (vfs::Exception const&) { // NOLINT(bugprone-empty-catch)
    }
    return Result::Continue;
}

SourceRemoval::Result SourceRemoval::visitEntry(FileEntry const& entry) {
    throwIfInterrupted();
    std::string const name = fl::i18n::toDisplayString(entry.getName());
    if (leftBehind_.contains(sourcePath_.pathOf(name))) {
        return Result::Continue;
    }
    Location const source = childLocation(sourcePath_.location(), entry.getName());
    Location const copy = childLocation(copyPath_.location(), entry.getName());
    bool const removed = run_.attempt(
        [&] {
            return Places{source, source};
        },
        [&] {
            try {
                checkCopy(run_.system(), source, copy);
            } catch (vfs::Exception const& failure) {
                if (failure.getErrorCode() == vfs::ErrorCode::ResourceNotFound) {
                    throw Refusal("has no copy; it stays");
                }
                throw;
            }
            carryTimeOver(run_.system(), source, copy);
            entry.getFile().removeFile();
        });
    if (removed) {
        WorkTally& tally = run_.tally();
        ++tally.files;
        tally.copiedOnly -= tally.copiedOnly > 0 ? 1 : 0;
        tally.bytes += sizeOf(entry);
    }
    anyStays_ = anyStays_ || !removed;
    return Result::Continue;
}

SourceRemoval::Result SourceRemoval::visitEntryAfter(FolderEntry const& entry) {
    vfs::Folder const folder = entry.getFolder();
    bool const removed = run_.attempt(folderPlaces_, [&] {
        expectCopy();
        Location const copy = copyPath_.location();
        try {
            if (source_.iri.getScheme() != copy.iri.getScheme()) {
                vfs::Folder(copy.iri, run_.system())
                    .setLastModified(entry.getAttributes().getLastModified());
            }
        } catch (vfs::Exception const&) { // NOLINT(bugprone-empty-catch)
            // The copy stands, whatever becomes of its time.
        }
        try {
            folder.removeFolder(vfs::FolderRemovalPolicy::NonRecursive);
            ++run_.tally().folders;
        } catch (vfs::Exception const& failure) {
            // What stays in it has been told already.
            if (!anyStays_ || failure.getErrorCode() != vfs::ErrorCode::FolderNotEmpty) {
                throw;
            }
        }
    });
    anyStays_ = anyStays_ || !removed;
    leave();
    return Result::Continue;
}

// What came into the source behind the copy has none.
void SourceRemoval::expectCopy() const {
    if (existsExtended(copyPath_.location().iri, run_.system()) != ExtendedExistsResult::Folder) {
        throw Refusal("has no copy; it stays");
    }
}

SourceRemoval::Result SourceRemoval::visitFolderEntryFailed(FolderEntry const&,
                                                            vfs::Exception const& failure) {
    run_.attempt(folderPlaces_, [&] { throw vfs::Exception(failure); });
    anyStays_ = true;
    leave();
    return Result::Continue;
}

void SourceRemoval::leave() {
    sourcePath_.returnTo(lengths_.back());
    copyPath_.returnTo(lengths_.back());
    lengths_.pop_back();
}

void carryTimeOver(vfs::StorageSystemReference const& system, Location const& source,
                   Location const& copy) {
    if (source.iri.getScheme() == copy.iri.getScheme()) {
        return; // the copy has it already, and to the nanosecond where that is kept
    }
    try {
        if (existsExtended(copy.iri, system) == ExtendedExistsResult::File) {
            vfs::File(copy.iri, system)
                .setLastModified(vfs::File(source.iri, system).getAttributes().getLastModified());
        }
    } catch (std::exception const&) { // NOLINT(bugprone-empty-catch)
        // A storage that cannot set times still holds the file.
    }
}

} // namespace cli
