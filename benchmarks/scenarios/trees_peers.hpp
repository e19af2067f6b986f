#pragma once

#include <string>

/// Trees by system calls alone, everything relative to descriptors: what cannot be done without.
namespace bench {

/// When a copy gets its name.
enum class Naming {
    First,   ///< as it is created, so that whoever ends the copy leaves a part of the file
    WhenDone ///< when it is complete
};

/// Content, mode and times.
void copyByCalls(std::string const& from, std::string const& to, Naming naming);
void removeByCalls(std::string const& path);

} // namespace bench
