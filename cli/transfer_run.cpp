#include "transfer_run.hpp"

#include "link_target.hpp"
#include "question.hpp"
#include "replacement.hpp"

#include <foundation/storage/vfs/errors/exception.hpp>
#include <foundation/storage/vfs/listing/entries.hpp>
#include <foundation/storage/vfs/resources/folder.hpp>
#include <foundation/storage/vfs/storage_system/exists.hpp>
#include <foundation/storage/vfs/walking/folder_visitor.hpp>
#include <foundation/storage/vfs/walking/walk_folder.hpp>

#include <tbb/blocked_range.h>
#include <tbb/parallel_for.h>
#include <tbb/partitioner.h>

#include <algorithm>
#include <atomic>
#include <cstdio>
#include <exception>
#include <system_error>
#include <thread>
#include <utility>

namespace cli {

namespace provider = foundation::storage::provider;
namespace vfs = foundation::storage::vfs;

using provider::ExtendedExistsResult;
using provider::ReplacementPolicy;
using vfs::FolderVisitResult;

namespace {

// A copy that reports its progress looks at its destination first. Of a file that is copied in less
// time than the line is drawn in, nobody wants to know.
constexpr std::uint64_t worthReporting = 1024 * 1024;

// To give them to another thread takes much less time than to copy so many small files, and so does
// to open their folders.
constexpr std::size_t takenAtOnce = 32;

// As many connections are kept open.
constexpr std::size_t askedAtOnce = 8;

// Beyond these, what is denied is told at once, so that memory has a bound.
constexpr std::size_t deferredAtMost = 1000;

bool isSameFile(vfs::StorageSystemReference const& system, Places const& places) {
    auto const& [source, destination] = places;
    if (source.iri == destination.iri) {
        return true;
    }
    vfs::File const there(destination.iri, system);
    return there.fileExists() &&
           vfs::File(source.iri, system).getCanonicalLocation() == there.getCanonicalLocation();
}

bool isReadOnlyFile(vfs::StorageSystemReference const& system, Location const& location) {
    vfs::File const file(location.iri, system);
    return file.fileExists() && !file.getAttributes().isWritable();
}

// The reason behind the failure that is being handled, where it is one that the person can do
// something about.
std::optional<FailureText> plainerFailure(vfs::StorageSystemReference const& system,
                                          Places const& places, ReplacementPolicy policy) {
    std::optional<vfs::ErrorCode> const code = codeOfCurrentFailure();
    std::optional<vfs::AbsoluteIRI> const named = locationOfCurrentFailure();
    auto const& [source, destination] = places;
    try {
        if (code == vfs::ErrorCode::InvalidLocation && isSameFile(system, places)) {
            return FailureText{destination.shown(), "source and destination are the same file"};
        }
        if (code == vfs::ErrorCode::PermissionDenied &&
            policy != ReplacementPolicy::ReplaceReadOnly && isReadOnlyFile(system, destination)) {
            return FailureText{destination.shown(), "is read-only (-f replaces it)"};
        }
        if (code == vfs::ErrorCode::UnsupportedOperation && named == source.iri &&
            isLink(existsExtended(source.iri, system))) {
            return FailureText{source.shown(),
                               "is a link, and the destination has no links (-L follows it)"};
        }
    } catch (std::exception const&) { // NOLINT(bugprone-empty-catch)
        // The first failure is the one to tell of.
    }
    return std::nullopt;
}

Transferred copyOrKeep(FileToCopy const& file, provider::CopyFileOptions const& options) {
    try {
        file.source.copyFile(file.destination, options);
        return Transferred::Done;
    } catch (vfs::Exception const& failure) {
        if (options.policy == ReplacementPolicy::KeepExisting &&
            failure.getErrorCode() == vfs::ErrorCode::ResourceAlreadyExists) {
            return Transferred::Kept;
        }
        throw;
    }
}

// What cannot be listed is left to the copy to report.
class Counter final : public vfs::FolderVisitor {
  public:
    Counter(WorkAmount& amount, WorkProgress& progress) : amount_(amount), progress_(progress) {}

    FolderVisitResult visitEntryBefore(vfs::FolderEntry const&) override {
        throwIfInterrupted();
        return FolderVisitResult::Continue;
    }
    FolderVisitResult visitEntry(vfs::FileEntry const& entry) override {
        ++amount_.files;
        try {
            amount_.bytes += entry.getAttributes().values().size.value_or(0);
        } catch (vfs::Exception const&) { // NOLINT(bugprone-empty-catch)
            // Gone, or not to be read.
        }
        progress_.update(amount_, std::nullopt, [] { return "counting"; });
        return FolderVisitResult::Continue;
    }
    FolderVisitResult visitEntryAfter(vfs::FolderEntry const&) override {
        return FolderVisitResult::Continue;
    }
    FolderVisitResult visitFolderEntryFailed(vfs::FolderEntry const&,
                                             vfs::Exception const&) override {
        return FolderVisitResult::Continue;
    }

  private:
    WorkAmount& amount_;
    WorkProgress& progress_;
};

} // namespace

TransferRun::TransferRun(Invocation& invocation, TransferWishes const& wishes, std::string verb)
    : invocation_(invocation),
      wishes_(wishes),
      verb_(std::move(verb)) {}

void TransferRun::aboutToWrite(Location const& destination) {
    if (wishes_.dryRun) {
        invocation_.wouldWrite(destination);
    } else {
        invocation_.aboutToWrite(destination);
    }
}

Transferred TransferRun::copyFile(FileToCopy const& file, PlacesOf const& places) {
    Transferred result = Transferred::Failed;
    attempt(places, [&] {
        if (wishes_.dryRun) {
            result = rehearse(file, places);
        } else if (wishes_.ask && !file.destinationIsFree && !mayReplace(places()[1])) {
            result = Transferred::Kept;
        } else {
            result = copyContent(file, places);
        }
    });
    count(result, places);
    return result;
}

void TransferRun::count(Transferred result, PlacesOf const& places) {
    if (result == Transferred::Done) {
        ++tally_.files;
        transferred(places);
    } else if (result == Transferred::Kept) {
        kept(places);
    }
}

bool TransferRun::goesWithOthers(std::uint64_t size) const noexcept {
    return size < worthReporting && !wishes_.ask && !wishes_.dryRun;
}

bool TransferRun::copyTogether(std::vector<CopyResult>& results, FilesToCopy const& files,
                               PlacesOf const& places) {
    std::size_t const count = results.size();
    std::atomic<bool> full = false;
    std::atomic<std::uint64_t> filesDone = 0;
    std::atomic<std::uint64_t> bytesDone = 0;
    auto const copyOne = [&](std::size_t i) {
        CopyResult& result = results[i];
        result.tried = true;
        try {
            FileToCopy const one = files.file(i);
            result.bytes = one.size.value_or(0);
            result.transferred = copyOrKeep(one, {wishes_.policy, 0, {}});
        } catch (...) {
            result.failure = std::current_exception();
            if (codeOfCurrentFailure() == vfs::ErrorCode::NoSpaceLeft) {
                full = true;
            }
        }
    };
    using Range = tbb::blocked_range<std::size_t>;
    auto const copySome = [&](Range const& some) {
        if (files.copyMany && !full && interruptingSignal() == 0) {
            files.copyMany(some.begin(), some.end(), results);
        }
        for (std::size_t i = some.begin(); i != some.end(); ++i) {
            CopyResult const& result = results[i];
            if (!result.tried && !full && interruptingSignal() == 0) {
                copyOne(i);
            }
            if (result.tried && result.failure == nullptr) {
                filesDone.fetch_add(1, std::memory_order_relaxed);
                bytesDone.fetch_add(result.bytes, std::memory_order_relaxed);
            }
        }
        if (progress_.isWanted() && std::this_thread::get_id() == thread_) {
            progress_.update({tally_.files + filesDone, tally_.bytes + bytesDone}, foreseen_,
                             [&] { return places()[0].shown(); });
        }
    };
    if (files.waitsForServers) {
        std::atomic<std::size_t> next = 0;
        auto const copyFromQueue = [&] {
            for (std::size_t i = 0; (i = next.fetch_add(1)) < count;) {
                copySome(Range(i, i + 1));
            }
        };
        std::vector<std::jthread> threads;
        try {
            while (threads.size() + 1 < std::min(count, askedAtOnce)) {
                threads.emplace_back(copyFromQueue);
            }
        } catch (std::system_error const&) { // fewer will do
        }
        copyFromQueue();
    } else if (count < worthOtherThreads) {
        copySome(Range(0, count));
    } else {
        // Each thread gets files that are next to each other, as far from the others' as can be.
        tbb::parallel_for(Range(0, count, takenAtOnce), copySome, tbb::simple_partitioner());
    }
    return full;
}

void TransferRun::tell(CopyResult const& result, PlacesOf const& places) {
    if (result.failure != nullptr) {
        attempt(places, [&] { std::rethrow_exception(result.failure); });
    } else if (result.transferred == Transferred::Done) {
        tally_.bytes += result.bytes;
    }
    count(result.transferred, places);
    showProgress(0, places);
}

Transferred TransferRun::copyContent(FileToCopy const& file, PlacesOf const& places) {
    provider::CopyFileOptions options;
    options.policy = wishes_.policy;
    std::uint64_t done = 0;
    showProgress(0, places);
    bool const reports = !file.size || *file.size >= worthReporting;
    if (reports) {
        options.progress = [&](std::uint64_t bytes, std::optional<std::uint64_t>) {
            done = bytes;
            showProgress(bytes, places);
            return interruptingSignal() == 0;
        };
    }
    Transferred const result = copyOrKeep(file, options);
    if (result == Transferred::Done) {
        tally_.bytes += reports ? done : *file.size;
    }
    return result;
}

// What copyContent() would do, as far as it can be told without doing it.
Transferred TransferRun::rehearse(FileToCopy const& file, PlacesOf const& places) {
    auto const [source, destination] = places();
    if (existsExtended(source.iri, system()) == ExtendedExistsResult::Other) {
        throw vfs::Exception(vfs::ErrorCode::UnsupportedOperation, source.iri);
    }
    if (!file.destinationIsFree) {
        ExtendedExistsResult const there = existsExtended(destination.iri, system());
        if (there == ExtendedExistsResult::Folder) {
            throw Refusal("is a folder");
        }
        if (there != ExtendedExistsResult::Nothing) {
            if (isSameFile(system(), {source, destination})) {
                throw Refusal("source and destination are the same file");
            }
            if (wishes_.policy == ReplacementPolicy::FailIfExists) {
                throw Refusal(wordsFor(vfs::ErrorCode::ResourceAlreadyExists));
            }
            if (wishes_.policy == ReplacementPolicy::KeepExisting) {
                return Transferred::Kept;
            }
            if (wishes_.policy != ReplacementPolicy::ReplaceReadOnly && !isLink(there) &&
                isReadOnlyFile(system(), destination)) {
                throw Refusal("is read-only (-f replaces it)");
            }
        }
    }
    tally_.bytes += file.size.value_or(0);
    return Transferred::Done;
}

bool TransferRun::mayReplace(Location const& destination) {
    switch (existsExtended(destination.iri, system())) {
    case ExtendedExistsResult::Nothing:
    case ExtendedExistsResult::Folder: // refused in any case
        return true;
    default:
        progress_.wipe();
        return askedAndAgreed(invocation_.command(), "replace " + destination.shown());
    }
}

void TransferRun::transferred(PlacesOf const& places) {
    if (wishes_.verbose || wishes_.dryRun) {
        progress_.wipe();
        auto const [source, destination] = places();
        invocation_.output().printLine(source.shown() + " -> " + destination.shown());
        invocation_.output().flushBlock();
    }
}

void TransferRun::kept(PlacesOf const& places) {
    ++tally_.kept;
    if (wishes_.verbose || wishes_.dryRun) {
        progress_.wipe();
        invocation_.output().printLine("kept " + places()[1].shown());
        invocation_.output().flushBlock();
    }
}

void TransferRun::foresee(std::vector<std::string> const& operands) {
    if (!progress_.isWanted() || wishes_.dryRun) {
        return;
    }
    WorkAmount amount;
    Counter counter(amount, progress_);
    for (std::size_t i = 0; i + 1 < operands.size(); ++i) {
        try {
            Location const source = parseLocation(operands[i]);
            if (existsExtended(source.iri, system()) == ExtendedExistsResult::Folder) {
                walkFolder(vfs::Folder(source.iri, system()), counter);
            } else {
                counter.visitEntry(vfs::FileEntry(vfs::File(source.iri, system())));
            }
        } catch (std::exception const&) { // NOLINT(bugprone-empty-catch)
            // What is wrong with it the copy will say.
        }
    }
    foreseen_ = amount;
}

void TransferRun::showProgress(std::uint64_t partOfFile, PlacesOf const& places) {
    progress_.update({tally_.files, tally_.bytes + partOfFile}, foreseen_,
                     [&] { return places()[0].shown(); });
}

void TransferRun::reportCurrentFailure(PlacesOf const& places) {
    // A copy that was told to stop reports a failure of its own; the signal is the reason.
    throwIfInterrupted();
    progress_.wipe();
    Places const both = places();
    std::optional<vfs::ErrorCode> const code = codeOfCurrentFailure();
    std::optional<FailureText> const plainer = plainerFailure(system(), both, wishes_.policy);
    FailureText text = plainer ? *plainer : describeCurrentFailure(system(), both);
    full_ = full_ || code == vfs::ErrorCode::NoSpaceLeft;
    if (wishes_.policy == ReplacementPolicy::ReplaceAndDeferDenied &&
        code == vfs::ErrorCode::PermissionDenied && deferred_.size() < deferredAtMost) {
        deferred_.push_back(std::move(text));
    } else {
        invocation_.fail(text.subject, text.reason);
    }
}

void TransferRun::finish(bool ofTrees) {
    progress_.wipe();
    for (FailureText const& text : deferred_) {
        invocation_.fail(text.subject, text.reason);
    }
    deferred_.clear();
    if (ofTrees) {
        invocation_.output().flush();
        if (full_) {
            std::fputs(("vfs: " + invocation_.command() +
                        ": stopped, because the destination has no space left\n")
                           .c_str(),
                       stderr);
        }
        invocation_.sumUp(tally_, wishes_.dryRun ? "would be " + verb_ : verb_);
    }
}

} // namespace cli
