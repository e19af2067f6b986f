#pragma once

#include "archives.hpp"

struct zip; // of libzip

namespace bench {

/// Goes through the directory of an archive with plain reads, and keeps an index of its names.
Amount scanByHand(std::string const& archive);
Amount listWithLibzip(std::string const& archive);
Amount listWithLibarchive(std::string const& archive);

/// Decodes each member of an archive as a whole and compares its check sum, with libdeflate or with
/// zlib.
enum class Codec { Libdeflate, Zlib };
Amount decodeByHand(std::string const& archive, Codec codec);
Amount decodeWithLibzip(std::string const& archive);

/// An archive that libzip has open; reads members by name, each as a whole.
class LibzipArchive {
  public:
    explicit LibzipArchive(std::string const& archive);
    LibzipArchive(LibzipArchive const&) = delete;
    LibzipArchive& operator=(LibzipArchive const&) = delete;
    ~LibzipArchive();

    Amount read(std::span<std::string const> names) const;

  private:
    zip* const opened_;
};

} // namespace bench
