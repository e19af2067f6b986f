#pragma once

#include <cstdint>
#include <string_view>

namespace foundation::storage::provider::container {

/// Of a name in a folder, another one in each process: nobody can make an archive whose names all
/// meet in one slot of a table.
std::uint64_t hashOfChild(std::uint32_t folder, std::string_view name) noexcept;

} // namespace foundation::storage::provider::container
