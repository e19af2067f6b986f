#pragma once

#include "entry_facts.hpp"

#include <optional>
#include <string>

/// How an entry of a listing is written.
namespace cli {

/// "-rw-r--r--     1.5 KiB  2024-05-01T10:11:12Z  ", as wide for every entry. The first letter is
/// the kind: - a file, d a folder, l a link, o another special file. "rw" or "r-" stands for a
/// mode that the storage does not have, and a hyphen for the size of a folder or one that it does
/// not tell.
std::string detailColumns(EntryFacts const& facts);
/// The same with question marks, for an entry of which nothing more could be learned.
std::string unknownColumns(bool folder);

/// The name on one line, with the slash of a folder and the target of a link.
std::string shownName(std::string const& name, bool folder,
                      std::optional<std::string> const& target);

/// The facts as a JSON object on a line.
std::string entryAsJson(EntryFacts const& facts);

} // namespace cli
