#pragma once

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/vfs/errors/exception.hpp>
#include <foundation/storage/vfs/listing/file_entry.hpp>
#include <foundation/storage/vfs/listing/folder_entry.hpp>
#include <foundation/storage/vfs/walking/folder_visitor.hpp>

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace vfs_test {

using Calls = std::vector<std::string>;

/// Notes what a walk tells it, and does what a test sets for a call; otherwise it answers Continue,
/// and a failure goes on as without an override. Calls are "before r", "file a", "after r", and
/// "failed r 6" with the number of the error code.
///
/// Safe on any number of threads, once all is set.
class RecordingVisitor : public foundation::storage::vfs::FolderVisitor {
  public:
    using Result = foundation::storage::vfs::FolderVisitResult;

    void on(std::string const& call, std::function<Result()> answer) {
        answers_[call] = std::move(answer);
    }
    void on(std::string const& call, Result answer) {
        on(call, [answer] { return answer; });
    }
    /// Answers the failures that have no answer of their own.
    void onFailures(Result answer) {
        handled_ = [answer] { return answer; };
    }

    Calls calls() const {
        std::lock_guard const lock(mutex_);
        return calls_;
    }
    /// The calls in no order.
    Calls sorted() const {
        Calls sorted = calls();
        std::sort(sorted.begin(), sorted.end());
        return sorted;
    }
    std::ptrdiff_t count(std::string const& call) const {
        Calls const made = calls();
        return std::count(made.begin(), made.end(), call);
    }

    Result visitEntryBefore(foundation::storage::vfs::FolderEntry const& entry) override {
        return answer("before " + text(entry.getName()));
    }
    Result visitEntry(foundation::storage::vfs::FileEntry const& entry) override {
        return answer("file " + text(entry.getName()));
    }
    Result visitEntryAfter(foundation::storage::vfs::FolderEntry const& entry) override {
        return answer("after " + text(entry.getName()));
    }
    Result visitFolderEntryFailed(foundation::storage::vfs::FolderEntry const& entry,
                                  foundation::storage::vfs::Exception const& exception) override {
        std::string const call =
            "failed " + text(entry.getName()) + ' ' +
            std::to_string(static_cast<std::uint32_t>(exception.getErrorCode()));
        note(call);
        if (auto const found = answers_.find(call); found != answers_.end()) {
            return found->second();
        }
        return handled_ ? handled_() : FolderVisitor::visitFolderEntryFailed(entry, exception);
    }

  private:
    static std::string text(fl::i18n::ustring const& name) {
        return fl::i18n::toDisplayString(name);
    }
    void note(std::string const& call) {
        std::lock_guard const lock(mutex_);
        calls_.push_back(call);
    }
    Result answer(std::string const& call) {
        note(call);
        auto const found = answers_.find(call);
        return found == answers_.end() ? Result::Continue : found->second();
    }

    std::map<std::string, std::function<Result()>> answers_;
    std::function<Result()> handled_;
    mutable std::mutex mutex_;
    Calls calls_; // guarded by mutex_
};

} // namespace vfs_test
