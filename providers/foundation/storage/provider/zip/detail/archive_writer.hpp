#pragma once

#include <foundation/storage/provider/container/item_streams.hpp>
#include <foundation/storage/provider/zip/detail/pending_tree.hpp>
#include <foundation/storage/provider/zip/zip_options.hpp>

#include <cstdint>
#include <functional>
#include <memory>
#include <span>
#include <utility>
#include <vector>

namespace foundation::storage::provider::zip::detail {

/// Where a new archive goes, from its first byte to its last.
using ArchiveSink = std::function<void(std::span<unsigned char const>)>;

/// Content that is in the new archive, as it was when it was written there.
using WrittenContent = std::pair<std::shared_ptr<PendingContent>, std::uint64_t>;

/// Writes the archive that a tree tells of: the members that it had in their order, then the new
/// ones in theirs. The bytes of members that have not changed are copied as they are, whatever
/// their method is. What stood before the first member stays there, and so does the comment.
///
/// What a reader with the same options would refuse is not written: content of too many bytes for
/// each that it is deflated to is stored, and a directory that takes too much is a failure with
/// NoSpaceLeft.
///
/// REQUIRES: nobody changes the tree meanwhile; content may change. `streams` are those of the item
/// that the tree's index was read from. Throws provider::Exception naming the item, or the member
/// whose bytes are not where the directory tells of them, and what the sink throws.
std::vector<WrittenContent> writeArchive(PendingTree const& tree, container::ItemStreams& streams,
                                         ZipOptions const& options, ArchiveSink const& sink);

} // namespace foundation::storage::provider::zip::detail
