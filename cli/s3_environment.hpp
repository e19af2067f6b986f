#pragma once

#include <foundation/storage/provider/s3/s3_options.hpp>

#include <functional>
#include <optional>
#include <string>

namespace cli {

/// Where the command learns how object stores are reached, and who asks.
struct S3Environment {
    /// The value of a variable; nothing where it is not set.
    std::function<std::optional<std::string>(char const*)> variable;
    /// The content of a file; nothing where it cannot be read.
    std::function<std::optional<std::string>(std::string const&)> file;

    /// That of the process.
    static S3Environment ofProcess();
};

/// The conventional variables (`AWS_ACCESS_KEY_ID` and its like) and the profile files; the
/// variables come first. Without any credentials nobody asks. Throws Refusal where a variable names
/// a profile that no file has: whoever named it did not mean nobody; and where a setting is no
/// number, or is out of its bounds.
foundation::storage::provider::s3::S3Options s3Options(S3Environment const& environment);

/// The file with the certificates that servers of any scheme are held to, by the variables that
/// programs of the web take; empty for those of the system.
std::string certificateFile(S3Environment const& environment);

} // namespace cli
