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

/// Whether with-servers was to start the server that the variable tells of.
inline bool isMissing(std::string const& variable) {
    std::string const wanted = ' ' + told("VFS_TEST_SERVERS") + ' ';
    return (wanted.find(" s3 ") != std::string::npos && variable.starts_with("VFS_TEST_S3_")) ||
           (wanted.find(" dav ") != std::string::npos && variable.starts_with("VFS_TEST_DAV_")) ||
           (wanted.find(" web ") != std::string::npos && variable.starts_with("VFS_TEST_WEB_"));
}

} // namespace foundation::storage::provider::test

/// Leaves a test out that needs a server. One that was to run and does not is a failure.
#define VFS_NEEDS_SERVER(variable)                                                                 \
    if (::foundation::storage::provider::test::told(variable).empty()) {                           \
        if (::foundation::storage::provider::test::isMissing(variable)) {                          \
            FAIL() << variable " is not set";                                                      \
        }                                                                                          \
        GTEST_SKIP() << "needs a server: scripts/test remote starts it and sets " variable;        \
    }                                                                                              \
    static_assert(true)
