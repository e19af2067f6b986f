#pragma once

#include <foundation/storage/provider/s3/detail/bucket.hpp>
#include <foundation/storage/provider/s3/detail/key_pages.hpp>
#include <foundation/storage/provider/s3/detail/request_threads.hpp>
#include <foundation/storage/provider/storage_iri.hpp>

#include <cstddef>
#include <cstdint>
#include <future>
#include <memory>
#include <mutex>
#include <stop_token>
#include <string>
#include <string_view>
#include <vector>

namespace foundation::storage::provider::s3::detail {

enum class ShownKinds { All, Files, Folders };
enum class ShownDetail { Attributes, NamesOnly };
enum class Depth { Flat, Recursive };

/// What a listing is to deliver.
struct Selection {
    ShownKinds kinds = ShownKinds::All;
    ShownDetail detail = ShownDetail::Attributes;
    Depth depth = Depth::Flat;
    ustring filter = {}; ///< empty for all
};

/// What all cursors of one listing have in common.
struct Listing {
    std::shared_ptr<Bucket const> bucket;
    std::string prefix;  ///< of the listed folder
    StorageIRI location; ///< as it was asked for; failures name it
    Selection selection;
};
using ListingPtr = std::shared_ptr<Listing const>;

/// One key of a page. In the listing of a tree it stands for all folders on its way that were not
/// delivered before, too.
struct ListedItem {
    std::string path;      ///< below the listed folder, without a slash at the end
    std::size_t known = 0; ///< units of the path: a folder that was delivered before
    bool isFile = true;
    std::uint64_t size = 0;
    std::int64_t lastModified = 0; ///< seconds since 1970; 0 where it is not told
};

/// What a listing cannot show, since no location names it, or a file has the name of its folder.
struct LeftOut {
    std::uint64_t count = 0; ///< keys, and prefixes of keys
    bool hasPrefixes = false;
    std::string first; ///< key or prefix

    void add(std::string_view key, bool isPrefix);
    /// In ASCII, whatever the key is made of. REQUIRES: there is something.
    std::string text() const;
};

/// What the next page must know of those before it.
struct ListingState {
    ListingCourse course;
    std::string openFolder; ///< the one that the last key lies in
    /// Files whose names the last key begins with: what lies in a folder of such a name is not
    /// shown.
    std::vector<std::string> files;
    LeftOut leftOut;
};

class PageFetch;

/// Some keys of a listing. Immutable, shared by all cursors that stand in it; it does not keep the
/// pages behind it.
class ListedPage {
  public:
    ListedPage(std::vector<ListedItem> items, ListingState behind)
        : items_(std::move(items)),
          behind_(std::move(behind)) {}

    std::vector<ListedItem> const& items() const noexcept { return items_; }
    /// Whether the store had no key for it, nor for those before it.
    bool isEmpty() const noexcept { return behind_.course.isEmpty(); }
    bool isLast() const noexcept { return behind_.course.isAtEnd(); }
    /// With the pages before it.
    LeftOut const& leftOut() const noexcept { return behind_.leftOut; }
    /// Asks for the next page, unless somebody waits for it or has it. REQUIRES: not the last one.
    std::shared_ptr<PageFetch> next(ListingPtr const& listing, RequestThreads& threads) const;

  private:
    std::vector<ListedItem> const items_;
    ListingState const behind_;
    mutable std::mutex mutex_;
    mutable std::weak_ptr<PageFetch> next_; ///< guarded by the mutex
};
using ListedPagePtr = std::shared_ptr<ListedPage const>;

/// A page that is on its way, or there. Whoever lets it go last ends what is on its way.
class PageFetch {
  public:
    PageFetch(std::shared_future<ListedPagePtr> page, std::stop_source stop)
        : page_(std::move(page)),
          stop_(std::move(stop)) {}
    PageFetch(PageFetch const&) = delete;
    PageFetch& operator=(PageFetch const&) = delete;
    ~PageFetch() { stop_.request_stop(); }
    /// Throws web::Failure.
    ListedPagePtr get() const { return page_.get(); }

  private:
    std::shared_future<ListedPagePtr> const page_;
    std::stop_source stop_;
};

/// Asks for a page. Throws web::Failure, also where keys come out of their order, and where the
/// listed folder is gone behind the first page.
ListedPagePtr readPage(Listing const& listing, ListingState state, web::Deadline const& deadline);

} // namespace foundation::storage::provider::s3::detail
