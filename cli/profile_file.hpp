#pragma once

#include <map>
#include <string>
#include <string_view>

namespace cli {

/// What stands under one heading of a profile file: values by key. A value that stands below
/// another key has both, with a dot: `s3.addressing_style`.
using ProfileSection = std::map<std::string, std::string, std::less<>>;

/// Reads the text of a file of profiles, as `~/.aws/config` and `~/.aws/credentials` are: headings
/// in brackets, keys and values with `=`, comments behind `#` or `;`. What is none of these is
/// passed over. The sections by their headings, with single spaces, but for what stands in quotes,
/// and without these; the keys in small letters. Of a heading that comes twice the later value of a
/// key counts.
std::map<std::string, ProfileSection, std::less<>> parseProfiles(std::string_view text);

} // namespace cli
