# Debian packages: libfoundation-storage-vfs0 with the libraries and the command, and
# libfoundation-storage-vfs-dev with what programs are built with. The preset `package` configures for
# them, with the prefix /usr; `cpack --preset package` then makes them in build/package.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME "${PROJECT_NAME}")
set(CPACK_PACKAGE_VENDOR "")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "virtual file system layer for C++ programs")
set(CPACK_PACKAGING_INSTALL_PREFIX "${CMAKE_INSTALL_PREFIX}")
set(CPACK_COMPONENTS_ALL runtime development)
set(CPACK_DEB_COMPONENT_INSTALL ON)

# Nobody is named here: who makes packages says who answers for them, as for Debian's own tools.
set(maintainer "the builder of this package <unknown@package.invalid>")
if(DEFINED ENV{DEBEMAIL})
    set(maintainer "$ENV{DEBFULLNAME} <$ENV{DEBEMAIL}>")
endif()
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${maintainer}")
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

# The name goes with the SONAME.
get_target_property(soversion foundation_storage_vfs SOVERSION)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME "libfoundation-storage-vfs${soversion}")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${CMAKE_LIBRARY_OUTPUT_DIRECTORY}")
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA "${CMAKE_CURRENT_SOURCE_DIR}/debian/triggers")
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
"Names, inspects, changes, lists and streams files wherever they lie: on the
local disk, in memory, or inside of archives.

This package has the shared libraries and the command vfs.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME "libfoundation-storage-vfs-dev")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME} (= ${PROJECT_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}), libboost-dev (>= 1.74)")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SUGGESTS "libgtest-dev, pkg-config | cmake")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
"Names, inspects, changes, lists and streams files wherever they lie: on the
local disk, in memory, or inside of archives.

This package has the C++ headers, the CMake package and the pkg-config file.")

# What only Debian asks for is added to the staged tree.
string(TIMESTAMP CPACK_VFS_CHANGELOG_DATE "%a, %d %b %Y %H:%M:%S +0000" UTC)
set(CPACK_VFS_CHANGELOG "${PROJECT_SOURCE_DIR}/CHANGELOG.md")
set(CPACK_VFS_STRIP "${CMAKE_STRIP}")
set(CPACK_VFS_COPYRIGHT "${CMAKE_CURRENT_SOURCE_DIR}/debian/copyright")
set(CPACK_PRE_BUILD_SCRIPTS "${CMAKE_CURRENT_SOURCE_DIR}/debian/complete_trees.cmake")
include(CPack)
