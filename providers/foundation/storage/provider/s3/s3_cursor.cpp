#include <foundation/storage/provider/s3/s3_cursor.hpp>

#include <fl/i18n/conversion.hpp>
#include <foundation/storage/provider/exception.hpp>
#include <foundation/storage/provider/wildcard.hpp>

#include <stdexcept>
#include <string_view>
#include <system_error>
#include <utility>

namespace foundation::storage::provider::s3 {

using detail::ListedItem;
using detail::ShownDetail;
using detail::ShownKinds;

S3Cursor::S3Cursor(detail::ListingPtr listing, std::shared_ptr<detail::RequestThreads> threads,
                   detail::ListedPagePtr page)
    : listing_(std::move(listing)),
      threads_(std::move(threads)),
      position_{std::move(page)} {}

S3Cursor::~S3Cursor() = default;

S3Cursor* S3Cursor::cloneIterator() const {
    return new S3Cursor(*this);
}

bool S3Cursor::hasNext() const {
    if (next_ == Next::Unknown) {
        look();
    }
    return next_ != Next::End;
}

void S3Cursor::advance() {
    if (next_ == Next::Unknown) {
        look();
    }
    if (next_ == Next::Failure) {
        next_ = Next::End;
        std::rethrow_exception(std::exchange(failure_, nullptr));
    }
    if (next_ == Next::End) {
        throw std::logic_error("advance() behind the last entry of a listing");
    }
    position_ = std::move(nextPosition_);
    nextPosition_ = Position();
    next_ = Next::Unknown;
    isAtEntry_ = true;
    // Whoever stays at the first entry, as the master of a listing does, holds that page alone.
    if (position_.index > 0 && !position_.next && !position_.page->isLast()) {
        try {
            position_.next = position_.page->next(listing_, *threads_);
        } catch (std::exception const&) { // NOLINT(bugprone-empty-catch): asked when it is needed
        }
    }
}

FolderEntry S3Cursor::currentEntry() const {
    if (!isAtEntry_) {
        throw std::logic_error("currentEntry() before the first entry of a listing");
    }
    ListedItem const& item = position_.item();
    ustring name =
        fl::i18n::storageNameToUstring(std::string_view(item.path).substr(0, position_.end));
    bool const isFile = position_.isFile();
    if (listing_->selection.detail == ShownDetail::NamesOnly) {
        return FolderEntry(std::move(name), isFile);
    }
    AttributeValues values;
    values.writable = true;
    if (position_.end == item.path.size()) {
        values.lastModified.seconds = item.lastModified;
    }
    if (!isFile) {
        return FolderEntry(std::move(name), FolderAttributes(values));
    }
    values.size = item.size;
    return FolderEntry(std::move(name), FileAttributes(values));
}

void S3Cursor::look() const {
    Position position = position_;
    try {
        do {
            if (!moveOn(position)) {
                next_ = Next::End;
                return;
            }
        } while (!isShown(position));
        nextPosition_ = std::move(position);
        next_ = Next::Entry;
        return;
    } catch (web::Failure const& failure) {
        failure_ =
            std::make_exception_ptr(Exception(failure.code(), listing_->location, failure.what()));
    } catch (std::system_error const&) { // of threads
        failure_ = std::make_exception_ptr(Exception(ErrorCode::InternalError, listing_->location));
    } catch (...) {
        failure_ = std::current_exception();
    }
    next_ = Next::Failure;
}

/// Goes to the next entry, shown or not; false at the end.
bool S3Cursor::moveOn(Position& position) const {
    for (;;) {
        if (position.index < position.page->items().size()) {
            ListedItem const& item = position.item();
            if (position.end == item.path.size()) {
                ++position.index;
                position.end = 0;
                continue;
            }
            std::size_t const from = position.end != 0 ? position.end + 1
                                     : item.known != 0 ? item.known + 1
                                                       : 0;
            position.end = std::min(item.path.find('/', from), item.path.size());
            return true;
        }
        if (position.page->isLast()) {
            // Whoever copies a listing, and then removes the folder, relies on it to be complete.
            if (detail::LeftOut const& leftOut = position.page->leftOut(); leftOut.count != 0) {
                throw web::Failure(ErrorCode::IOError, leftOut.text());
            }
            return false;
        }
        auto const next = position.next ? position.next : position.page->next(listing_, *threads_);
        position = Position{next->get()};
    }
}

bool S3Cursor::isShown(Position const& position) const {
    detail::Selection const& selection = listing_->selection;
    if (selection.kinds != ShownKinds::All &&
        position.isFile() != (selection.kinds == ShownKinds::Files)) {
        return false;
    }
    if (selection.filter.empty()) {
        return true;
    }
    auto const path = std::string_view(position.item().path).substr(0, position.end);
    return matchesWildcard(selection.filter,
                           fl::i18n::storageNameToUstring(path.substr(path.rfind('/') + 1)));
}

} // namespace foundation::storage::provider::s3
