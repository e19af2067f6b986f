#pragma once

#include <foundation/storage/provider/i_provider.hpp>
#include <foundation/storage/provider/storage_item.hpp>

#include <array>
#include <cstddef>
#include <functional>
#include <iosfwd>
#include <memory>
#include <string>

/// Two storages are alike where the same operations have the same results, written down as text.
namespace model {

using namespace foundation::storage::provider;

inline constexpr std::array<char16_t const*, 5> names{u"a", u"b", u"c", u"\u00e4", u"x y%"};
inline constexpr int deepest = 3;
inline constexpr std::size_t openStreams = 4;

struct Storage {
    std::shared_ptr<IProvider> provider;
    StorageIRI base;
    std::array<std::unique_ptr<ByteStream>, openStreams> streams;

    StorageIRI at(ustring const& path) const { return StorageIRI(base, path); }
    StorageItem item(ustring const& path) const { return StorageItem(provider, at(path)); }
};

std::string narrow(ustring const& text);

/// Does something to a storage, and writes down what it gave.
using Operation = std::function<void(Storage&, std::ostream&)>;

/// What an operation gave, or its failure.
std::string resultOf(Storage& storage, Operation const& operation);

void describe(std::ostream& out, AttributeValues const& values, bool isFile);
/// The entries by name, since a disk has an order of its own.
void describeListing(IFolderEntryIterator& cursor, std::ostream& out);
/// Everything below a path, without the help of listings.
void describeTree(Storage& storage, ustring const& path, int depth, std::ostream& out);
/// Takes a whole tree away, as far as it lets itself be taken.
void clearTree(Storage& storage, ustring const& path, std::ostream& out);

} // namespace model
