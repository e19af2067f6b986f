#pragma once

#include <foundation/storage/provider/s3/detail/bucket.hpp>
#include <foundation/storage/provider/s3/detail/store.hpp>

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

namespace foundation::storage::provider::s3::detail {

ObjectHead objectHeadOf(web::Headers const& headers, std::uint64_t size);

/// HeadObject of the version with the tag, or of any where it is empty. Throws where it is missing
/// too.
ObjectHead headOfSame(Bucket const& bucket, std::string_view key, std::string_view eTag,
                      web::Deadline const& deadline);

/// Reads one range of one version of an object, with as many requests as that takes. For one
/// thread.
class ObjectRead {
  public:
    /// Without a tag, it is that of the first answer.
    ObjectRead(Bucket const& bucket, Store const& store, std::string_view key,
               std::string_view eTag)
        : bucket_(bucket),
          store_(store),
          key_(key),
          tag_(eTag) {}

    /// As Bucket::read. REQUIRES: a buffer with room.
    ObjectHead run(std::uint64_t offset, std::span<char> buffer, web::Deadline const& deadline);
    /// As Bucket::readEnd. REQUIRES: the same.
    std::optional<ObjectHead> runFromEnd(std::span<char> buffer, web::Deadline const& deadline);

  private:
    enum class Outcome { Done, Unfinished, NoSuchRange };

    Outcome runAll(std::optional<std::uint64_t> offset, std::span<char> buffer,
                   web::Deadline const& deadline);
    Outcome step(std::span<char> buffer, web::Deadline const& deadline);
    /// How many bytes of what is wanted the answer holds; nothing where the end of an object is
    /// wanted, and it begins elsewhere or does not tell the size: the store misreads such ranges.
    std::optional<std::uint64_t> takeHead(web::AnswerHead const& head, std::uint64_t most);

    Bucket const& bucket_;
    Store const& store_;
    std::string const key_;
    std::string tag_;
    std::optional<std::uint64_t>
        offset_; ///< of the range; none yet where that is counted from the end
    ObjectHead head_;
    bool hasHead_ = false;
    std::uint64_t done_ = 0;
};

} // namespace foundation::storage::provider::s3::detail
