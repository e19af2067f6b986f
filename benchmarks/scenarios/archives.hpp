#pragma once

#include "workplace.hpp"

#include <foundation/storage/provider/i_provider.hpp>

#include <cstdint>
#include <span>
#include <string>

namespace bench {

void holdArchiveListing(Workplace const& place);
void holdArchiveDecoding(Workplace const& place);
void holdMemberByName(Workplace const& place);
void holdTarListing(Workplace const& place);
void holdTarReading(Workplace const& place);

/// What a way to read an archive gives, so that nobody leaves anything out: files and their sizes,
/// or their bytes.
struct Amount {
    std::uint64_t members = 0;
    std::uint64_t bytes = 0;

    bool operator==(Amount const&) const = default;
};

/// Throws std::runtime_error where they differ.
void require(Amount const& amount, Amount const& expected, char const* who);

/// 50,000 files of few bytes in folders of 500, in a new folder.
std::string makeManyFiles(Workplace const& place);
/// 1,000 files of 204 KB that deflate to about a third, as text does, in a new folder.
std::string makeTexts(Workplace const& place);
/// Runs a command of the shell. Throws std::runtime_error where it fails.
void run(std::string const& command);

/// Opens an archive anew and lists all of it through the storage system.
Amount listWithSystem(foundation::storage::provider::StorageIRI const& root);
/// Reads some members of an archive, each to its end.
Amount readMembers(foundation::storage::provider::IProvider const& archive,
                   foundation::storage::provider::StorageIRI const& root,
                   std::span<std::string const> names);

} // namespace bench
