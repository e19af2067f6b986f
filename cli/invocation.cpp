#include "invocation.hpp"

#include "display.hpp"
#include "interruption.hpp"

#include <foundation/storage/vfs/resources/folder.hpp>

#include <cstdio>
#include <utility>

namespace cli {

Invocation::Invocation(Host& host, std::string command)
    : host_(host),
      command_(std::move(command)) {}

void Invocation::forEach(std::vector<std::string> const& operands,
                         std::function<void(Location const&)> const& action) {
    for (std::string const& operand : operands) {
        throwIfInterrupted();
        if (std::optional<Location> const location = locate(operand)) {
            attempt(std::span(&*location, 1), [&] { action(*location); });
        }
    }
}

bool Invocation::attempt(std::span<Location const> operands, std::function<void()> const& action) {
    try {
        action();
        return true;
    } catch (OutputFailure const&) {
        throw; // not about an operand: the command ends
    } catch (Interrupted const&) {
        throw;
    } catch (...) {
        // A copy that was told to stop reports a failure of its own; the signal is the reason.
        throwIfInterrupted();
        FailureText const text = describeCurrentFailure(system(), operands);
        fail(text.subject, text.reason);
        return false;
    }
}

std::optional<Location> Invocation::locate(std::string const& operand) {
    try {
        return parseLocation(operand);
    } catch (...) {
        fail(shownLocation(operand), reasonOfCurrentFailure());
        return std::nullopt;
    }
}

void Invocation::fail(std::string const& subject, std::string const& reason) {
    std::string const line = "vfs: " + command_ + ": " + subject + ": " + reason + "\n";
    std::fwrite(line.data(), 1, line.size(), stderr);
    failures_.add(subject);
    status_ = exitFailed;
}

void Invocation::sumUp(WorkTally const& done, std::string const& verb) const {
    bool const interrupted = interruptingSignal() != 0;
    if (!interrupted && failures_.count() == 0) {
        return;
    }
    std::string line = "vfs: " + command_ + ": ";
    line += interrupted ? "interrupted; " : "";
    line += done.inWords(verb);
    line += failures_.count() > 0 ? ", " + failures_.inWords() + "\n" : "\n";
    std::fwrite(line.data(), 1, line.size(), stderr);
}

void Invocation::wouldWrite(Location const& location) {
    namespace vfs = foundation::storage::vfs;
    if (!rehearsal_) {
        rehearsal_ = std::make_shared<Rehearsal>(host_.system());
        rehearsed_.emplace(std::weak_ptr<vfs::StorageSystem>(rehearsal_));
    }
    rehearsal_->begin(location.iri);
}

void Invocation::changed(Location const& location) {
    changed_.emplace(system().buildProvider(location.iri.toStorageIRI()).get(), location);
}

int Invocation::finish() {
    for (auto const& entry : changed_) {
        Location const& location = entry.second;
        attempt(std::span(&location, 1), [&] {
            foundation::storage::vfs::Folder(location.iri, system()).flushFilesystem();
        });
    }
    changed_.clear();
    newArchives_.removeEmpty();
    throwIfInterrupted();
    output().flush();
    return status_;
}

} // namespace cli
