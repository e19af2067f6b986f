#pragma once

#include "archives.hpp"

namespace bench {

/// Whether a way to read an archive stops at its headers.
enum class Reading { Headers, Contents };

/// Goes from header to header of an archive of ustar, through zlib where it is compressed, and
/// keeps an index of the names; reads what is between.
Amount readTarByHand(std::string const& archive, Reading reading);
Amount readTarWithLibarchive(std::string const& archive, Reading reading);

} // namespace bench
