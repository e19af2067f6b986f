# Locations and text, beside the libraries that do comparable work, as far as they are there.
vfs_add_micro_benchmark(bench_locations SOURCES locations.cpp LINKS foundation::storage_vfs)

# vfs_add_peer(DEFINITION TARGET): measures beside the library if its target is known.
function(vfs_add_peer definition target)
    if(TARGET ${target})
        target_compile_definitions(bench_locations PRIVATE ${definition})
        target_link_libraries(bench_locations PRIVATE ${target})
    else()
        message(STATUS "bench_locations: measured without ${target}, which was not found")
    endif()
endfunction()

find_package(uriparser QUIET CONFIG)
find_package(CURL QUIET)
find_package(ICU QUIET COMPONENTS uc)
find_package(Iconv QUIET)
find_package(utf8cpp QUIET CONFIG)
vfs_add_peer(WITH_URIPARSER uriparser::uriparser)
vfs_add_peer(WITH_CURL CURL::libcurl)
vfs_add_peer(WITH_ICU ICU::uc)
vfs_add_peer(WITH_ICONV Iconv::Iconv)
vfs_add_peer(WITH_UTF8CPP utf8cpp)
