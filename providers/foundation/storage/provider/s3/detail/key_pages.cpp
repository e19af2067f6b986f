#include <foundation/storage/provider/s3/detail/key_pages.hpp>

#include <iterator>
#include <utility>

namespace foundation::storage::provider::s3::detail {

namespace {

/// Stores pass over what is removed but not forgotten in pages without keys; so many of them stand
/// for a million of such keys.
constexpr unsigned mostIdlePages = 1'000;

} // namespace

bool ListingCourse::take(std::string_view key) {
    if (key < last_) {
        throw web::Failure(ErrorCode::IOError, "the store lists its keys out of order");
    }
    if (key == last_) {
        return false;
    }
    last_ = key;
    isAdvanced_ = true;
    return true;
}

void ListingCourse::endPage(std::string continuation) {
    idlePages_ = isAdvanced_ ? 0 : idlePages_ + 1;
    isAdvanced_ = false;
    bool const isSame = !continuation.empty() && continuation == continuation_;
    if (isSame || (idlePages_ > mostIdlePages && !continuation.empty())) {
        throw web::Failure(ErrorCode::IOError, "the store's listing comes to no end");
    }
    continuation_ = std::move(continuation);
}

std::vector<ListedObject> KeyPages::next(web::Deadline const& deadline) {
    ListPage page = bucket_.list({.prefix = prefix_,
                                  .isDelimited = false,
                                  .startAfter = startAfter_,
                                  .continuation = course_.continuation(),
                                  .mostKeys = mostKeys_},
                                 deadline);
    isBegun_ = true;
    std::erase_if(page.objects,
                  [&](ListedObject const& object) { return !course_.take(object.key); });
    course_.endPage(std::move(page.continuation));
    return std::move(page.objects);
}

std::vector<ListedObject> firstKeys(Bucket const& bucket, std::string const& prefix, unsigned most,
                                    web::Deadline const& deadline) {
    KeyPages pages(bucket, prefix, most);
    std::vector<ListedObject> keys;
    while (keys.size() < most && !pages.isAtEnd()) {
        std::vector<ListedObject> page = pages.next(deadline);
        keys.insert(keys.end(), std::make_move_iterator(page.begin()),
                    std::make_move_iterator(page.end()));
    }
    return keys;
}

} // namespace foundation::storage::provider::s3::detail
