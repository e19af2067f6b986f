#pragma once

#include "workplace.hpp"

#include <cstddef>
#include <filesystem>

namespace bench {

/// How much memory the command holds while it writes a file of 2 GiB to nowhere. To be asked before
/// this program itself has become large: what a child was before it became the command counts.
void showMemoryOfCat(Workplace const& place);

void holdSequentialRead(Workplace const& place);
void holdManyFiles(Workplace const& place);
void holdSmallReads(Workplace const& place);
void holdSequentialWrite(Workplace const& place);

/// A file of that many bytes, none of them a hole.
void makeFile(std::filesystem::path const& path, std::size_t size);

} // namespace bench
