#pragma once

#include <cstdlib>
#include <gtest/gtest.h>
#include <string>

namespace foundation::storage::provider::test {

/// What with-servers tells of the servers; empty where none runs.
inline std::string told(char const* variable) {
    char const* const value = std::getenv(variable);
    return value ? value : "";
}

} // namespace foundation::storage::provider::test

/// Leaves a test out that needs a server.
#define VFS_NEEDS_SERVER(variable)                                                                 \
    if (::foundation::storage::provider::test::told(variable).empty()) {                           \
        GTEST_SKIP() << "needs a server: scripts/test remote starts it and sets " variable;        \
    }                                                                                              \
    static_assert(true)
