#include <foundation/storage/provider/s3/detail/listing.hpp>

#include <foundation/storage/provider/s3/detail/encoding.hpp>
#include <foundation/storage/provider/s3/detail/keys.hpp>

#include <algorithm>
#include <string_view>
#include <utility>

namespace foundation::storage::provider::s3::detail {

namespace {

/// Units of a path that name a folder which an open one is, or lies in.
std::size_t knownOf(std::string_view path, std::string_view open) {
    std::size_t const same = static_cast<std::size_t>(
        std::mismatch(path.begin(), path.end(), open.begin(), open.end()).first - path.begin());
    bool const pathEnds = same == path.size() || path[same] == '/';
    bool const openEnds = same == open.size() || open[same] == '/';
    if (pathEnds && openEnds) {
        return same;
    }
    std::size_t const slash = same == 0 ? std::string_view::npos : path.rfind('/', same - 1);
    return slash == std::string_view::npos ? 0 : slash;
}

/// Makes items of keys that come in their order.
class PageMaker {
  public:
    PageMaker(Listing const& listing, ListingState state)
        : listing_(listing),
          state_(std::move(state)) {}

    void add(std::string_view key, ListedObject const* object) {
        if (!key.starts_with(listing_.prefix)) {
            throw web::Failure(ErrorCode::IOError, "the store lists more than was asked for");
        }
        if (!state_.course.take(key)) {
            return;
        }
        std::string_view path = key.substr(listing_.prefix.size());
        bool const isFolder =
            path.ends_with('/') || path.empty(); // or the marker of the listed one
        if (path.ends_with('/')) {
            path.remove_suffix(1);
        }
        while (!state_.files.empty() && !path.starts_with(state_.files.back())) {
            state_.files.pop_back();
        }
        bool const isItself = key.size() == listing_.prefix.size();
        bool const hasBytes = object != nullptr && object->size != 0;
        bool const isShown = isItself || (isPath(path) && !isHidden(path, isFolder));
        if (!isShown || (isFolder && hasBytes)) {
            state_.leftOut.add(key, object == nullptr);
        }
        if (!isShown || isItself) {
            return;
        }
        if (!isFolder) {
            state_.files.emplace_back(path);
        }
        std::size_t known = 0;
        if (listing_.selection.depth == Depth::Recursive) {
            known = knownOf(path, state_.openFolder);
            if (known == path.size()) {
                return;
            }
            std::size_t const slash = path.rfind('/');
            state_.openFolder = isFolder                          ? path
                                : slash == std::string_view::npos ? std::string_view()
                                                                  : path.substr(0, slash);
        } else if (path.find('/') != std::string_view::npos) {
            throw web::Failure(ErrorCode::IOError, "the store lists more than was asked for");
        }
        items_.push_back({std::string(path), known, !isFolder, object ? object->size : 0,
                          object ? object->lastModified / nanosecondsInASecond : 0});
    }

    ListedPagePtr finish(std::string continuation) && {
        state_.course.endPage(std::move(continuation));
        return std::make_shared<ListedPage const>(std::move(items_), std::move(state_));
    }

  private:
    /// Whether a file has the name of a folder on the way.
    bool isHidden(std::string_view path, bool isFolder) const {
        return std::any_of(state_.files.begin(), state_.files.end(), [&](std::string const& file) {
            return path.size() == file.size() ? isFolder : path[file.size()] == '/';
        });
    }

    Listing const& listing_;
    ListingState state_;
    std::vector<ListedItem> items_;
};

} // namespace

void LeftOut::add(std::string_view key, bool isPrefix) {
    if (count++ == 0) {
        first = key;
    }
    hasPrefixes = hasPrefixes || isPrefix;
}

std::string LeftOut::text() const {
    constexpr std::size_t shown = 300;
    std::string key = encoded(first, Slash::Kept);
    if (key.size() > shown) {
        key.resize(shown);
        key += "...";
    }
    return std::to_string(count) + (count == 1 ? " key" : " keys") +
           (!hasPrefixes ? ""
            : count == 1 ? " or prefix of keys"
                         : " or prefixes of keys") +
           " cannot be listed as files and folders, the first: " + key;
}

ListedPagePtr readPage(Listing const& listing, ListingState state, web::Deadline const& deadline) {
    Bucket const& bucket = *listing.bucket;
    bool const isDelimited = listing.selection.depth == Depth::Flat;
    ListPage const page = bucket.list({.prefix = listing.prefix,
                                       .isDelimited = isDelimited,
                                       .startAfter = {},
                                       .continuation = state.course.continuation(),
                                       .mostKeys = bucket.options().pageSize},
                                      deadline);
    bool const isNothingLeft =
        page.objects.empty() && page.prefixes.empty() && page.continuation.empty();
    if (isNothingLeft && !state.course.isEmpty() && !listing.prefix.empty() &&
        firstKeys(bucket, listing.prefix, 1, deadline).empty()) {
        throw web::Failure(ErrorCode::ResourceNotFound, "the folder is gone that is listed");
    }
    PageMaker maker(listing, std::move(state));
    auto prefix = page.prefixes.begin();
    for (ListedObject const& object : page.objects) {
        for (; prefix != page.prefixes.end() && *prefix < object.key; ++prefix) {
            maker.add(*prefix, nullptr);
        }
        maker.add(object.key, &object);
    }
    for (; prefix != page.prefixes.end(); ++prefix) {
        maker.add(*prefix, nullptr);
    }
    return std::move(maker).finish(page.continuation);
}

std::shared_ptr<PageFetch> ListedPage::next(ListingPtr const& listing,
                                            RequestThreads& threads) const {
    std::lock_guard const lock(mutex_);
    if (auto known = next_.lock()) {
        return known;
    }
    std::stop_source const stop;
    auto page = threads.ask([listing, state = behind_, token = stop.get_token()] {
        return readPage(*listing, state, listing->bucket->deadline(token));
    });
    auto fetch = std::make_shared<PageFetch>(page.share(), stop);
    next_ = fetch;
    return fetch;
}

} // namespace foundation::storage::provider::s3::detail
