#pragma once

#include <foundation/storage/provider/s3/detail/bucket.hpp>

#include <cstddef>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace foundation::storage::provider::s3::detail {

/// Sees to it that a listing comes to its end, whatever the store says: keys rise from page to
/// page, and not many pages in a row are without a new one. A plain value. Throws web::Failure.
class ListingCourse {
  public:
    /// Takes note of a key; whether it is a new one. A page may begin with what the one before
    /// ended with.
    bool take(std::string_view key);
    /// Behind the keys of each page.
    void endPage(std::string continuation);

    std::string const& continuation() const noexcept { return continuation_; }
    bool isAtEnd() const noexcept { return continuation_.empty(); }
    /// Whether no page had a key.
    bool isEmpty() const noexcept { return last_.empty(); }

  private:
    std::string last_;
    std::string continuation_;
    bool isAdvanced_ = false; ///< by the page that is being read
    unsigned idlePages_ = 0;  ///< the last ones in a row
};

/// All keys with a prefix, in their order. For one thread. Throws web::Failure.
class KeyPages {
  public:
    KeyPages(Bucket const& bucket, std::string prefix, unsigned mostKeys,
             std::string startAfter = {})
        : bucket_(bucket),
          prefix_(std::move(prefix)),
          startAfter_(std::move(startAfter)),
          mostKeys_(mostKeys) {}

    bool isAtEnd() const noexcept { return isBegun_ && course_.isAtEnd(); }
    /// May be empty. REQUIRES: not at the end.
    std::vector<ListedObject> next(web::Deadline const& deadline);

  private:
    Bucket const& bucket_;
    std::string const prefix_;
    std::string const startAfter_;
    unsigned const mostKeys_;
    ListingCourse course_;
    bool isBegun_ = false;
};

/// The first keys with a prefix, as many as there are up to a number.
std::vector<ListedObject> firstKeys(Bucket const& bucket, std::string const& prefix, unsigned most,
                                    web::Deadline const& deadline);

} // namespace foundation::storage::provider::s3::detail
