# Run by CPack between installing and packing: makes of each component's tree what Debian's policy asks
# for: a changelog and the copyright, manuals compressed, programs and libraries stripped, and zsh's completion
# where Debian's zsh looks for it.
set(packages
    runtime "${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME}"
    development "${CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME}"
)

function(compress file)
    execute_process(COMMAND gzip -9nf "${file}" COMMAND_ERROR_IS_FATAL ANY)
endfunction()

while(packages)
    list(POP_FRONT packages component package)
    set(tree "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${component}")
    if(NOT IS_DIRECTORY "${tree}/usr")
        message(FATAL_ERROR "the packages are configured for the prefix /usr: use the preset `package`")
    endif()

    set(documents "${tree}/usr/share/doc/${package}")
    file(MAKE_DIRECTORY "${documents}")
    file(COPY_FILE "${CPACK_VFS_CHANGELOG}" "${documents}/changelog")
    compress("${documents}/changelog")
    file(WRITE "${documents}/changelog.Debian"
"libfoundation-storage-vfs (${CPACK_PACKAGE_VERSION}-${CPACK_DEBIAN_PACKAGE_RELEASE}) UNRELEASED; urgency=medium

  * Built from the sources; changelog.gz says what is in this version.

 -- ${CPACK_DEBIAN_PACKAGE_MAINTAINER}  ${CPACK_VFS_CHANGELOG_DATE}
")
    compress("${documents}/changelog.Debian")
    file(COPY_FILE "${CPACK_VFS_COPYRIGHT}" "${documents}/copyright")

    file(GLOB manuals "${tree}/usr/share/man/man*/*.[0-9]")
    foreach(manual IN LISTS manuals)
        compress("${manual}")
    endforeach()

    file(GLOB programs "${tree}/usr/bin/*" "${tree}/usr/lib/*/*.so.*.*.*")
    foreach(program IN LISTS programs)
        execute_process(
            COMMAND "${CPACK_VFS_STRIP}" --strip-unneeded --remove-section=.comment
                    --remove-section=.note "${program}"
            COMMAND_ERROR_IS_FATAL ANY
        )
    endforeach()

    if(IS_DIRECTORY "${tree}/usr/share/zsh/site-functions")
        file(RENAME "${tree}/usr/share/zsh/site-functions" "${tree}/usr/share/zsh/vendor-completions")
    endif()
endwhile()
