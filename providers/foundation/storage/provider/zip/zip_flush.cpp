// Brings what is pending to the item.

#include <foundation/storage/provider/zip/zip_provider.hpp>

#include <foundation/storage/provider/byte_stream_failure.hpp>
#include <foundation/storage/provider/zip/detail/archive_writer.hpp>
#include <foundation/storage/provider/zip/detail/item_update.hpp>
#include <foundation/storage/provider/zip/zip_change.hpp>

#include <algorithm>
#include <utility>

namespace foundation::storage::provider::zip {

void ZipProvider::addInner(std::weak_ptr<ZipProvider> inner) {
    std::lock_guard const lock(mutex_);
    std::erase_if(inner_, [](auto const& known) { return known.expired(); });
    auto const isIt = [&](auto const& known) {
        return !known.owner_before(inner) && !inner.owner_before(known);
    };
    if (std::none_of(inner_.begin(), inner_.end(), isIt)) {
        inner_.push_back(std::move(inner));
    }
}

/// Archives in this one, and in those, from the inside out; the first failure, with the others
/// written. What is pending in one whose item is gone stays there. None of our locks is held: they
/// write into this one.
std::exception_ptr ZipProvider::flushInner() {
    std::vector<std::weak_ptr<ZipProvider>> inner;
    {
        std::lock_guard const lock(mutex_);
        inner = inner_;
    }
    std::exception_ptr first;
    for (auto const& known : inner) {
        auto const provider = known.lock();
        if (!provider) {
            continue;
        }
        std::exception_ptr failure = provider->flushInner();
        try {
            if (provider->item_.fileExists()) {
                provider->writeOut();
            }
        } catch (...) {
            failure = failure ? failure : std::current_exception();
        }
        first = first ? first : failure;
    }
    return first;
}

void ZipProvider::flushFilesystem() {
    std::exception_ptr const failure = flushInner();
    writeOut();
    StorageItem(item_).flushFilesystem();
    if (failure) {
        std::rethrow_exception(failure);
    }
}

void ZipProvider::writeOut() {
    std::lock_guard const changing(changing_);
    {
        std::lock_guard const lock(mutex_);
        if (!pending_) {
            return;
        }
        bool const hasWriter = space_->hasWriter(); // first: it may change something and go
        if (space_->changes() == flushedChanges_) {
            if (!hasWriter) {
                pending_.reset(); // and reading goes by the index again
            }
            return;
        }
        if (lost_) {
            bringBack();
        }
    }
    View const view = this->view();
    if (!view.pending) {
        return;
    }
    std::uint64_t const changes = space_->changes();
    std::vector<detail::WrittenContent> written;
    detail::ItemUpdate update(item_, space_);
    try {
        written = detail::writeArchive(
            *view.pending, *view.archive->streams, options_,
            [&](std::span<unsigned char const> bytes) { update.write(bytes); });
    } catch (ByteStreamFailure const& failure) {
        fail(failure.getErrorCode(), item_.getLocation());
    } catch (detail::PendingFailure const& failure) {
        fail(failure.code(), item_.getLocation());
    }
    std::lock_guard const lock(mutex_); // who looks in between would find another item
    if (stateOfItem() != itemState_) {
        fail(ErrorCode::ResourceInUse, item_.getLocation());
    }
    try {
        update.publish();
    } catch (...) {
        lost_ = update.lost();
        if (lost_ || update.isRestored()) {
            own_ = Own::Restored;
        }
        throw;
    }
    for (auto const& [content, version] : written) {
        content->beWritten(version);
    }
    flushedChanges_ = changes;
    own_ = Own::Published;
    lookAtOwn();
}

/// The bytes that the item had before a flush that failed in the midst of it. REQUIRES: the mutex
/// is held, or nobody else is there.
void ZipProvider::bringBack() {
    own_ = Own::Restored; // whatever comes of it
    detail::overwrite(item_, *lost_);
    lost_.reset();
}

/// Content that somebody may still write into, or has written into meanwhile, stays with its file.
void ZipProvider::carryOver(Tree const& old, Tree& fresh) const {
    std::vector<std::pair<Node const*, Node*>> folders{{old.rootHandle(), fresh.rootHandle()}};
    while (!folders.empty()) {
        auto const [from, to] = folders.back();
        folders.pop_back();
        for (auto const& [name, node] : from->children) {
            Node* const same = fresh.child(to, name);
            if (same == nullptr) {
                continue;
            }
            if (node->isFolder()) {
                folders.emplace_back(node.get(), same);
            } else if (node->content &&
                       (node->content->hasWriter() || node->content->isChanged())) {
                same->content = node->content;
            }
        }
    }
}

} // namespace foundation::storage::provider::zip
