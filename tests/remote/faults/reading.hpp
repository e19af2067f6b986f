#pragma once

#include <foundation/storage/provider/byte_stream.hpp>
#include <foundation/storage/provider/i_folder_entry_iterator.hpp>
#include <foundation/storage/provider/i_provider.hpp>

#include <cstddef>
#include <optional>
#include <string>
#include <vector>

namespace remote_faults {

/// So many bytes from here on, or as many as there are.
std::string readUpTo(foundation::storage::provider::ByteStream& stream, std::size_t count);

/// Reads the file to its end, and says what is wrong with what came. Where that ends with a
/// failure, what came before it is held to the start of what is expected.
std::optional<std::string> readAs(foundation::storage::provider::IProvider& provider,
                                  foundation::storage::provider::StorageIRI const& file,
                                  std::string const& expected);

/// In order, folders with a slash.
std::vector<std::string> namesOf(foundation::storage::provider::IFolderEntryIterator& cursor);

} // namespace remote_faults
