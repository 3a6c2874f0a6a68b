# Completes the packages' trees with what Debian's policy wants in each of them and in no other
# installation: licence, changelogs, compressed manual pages, and completion for zsh in the folder for
# packages. Each component is installed in a folder of its name by now.

function(compress file)
    # Without name and time, which would differ from one build to the next.
    execute_process(COMMAND gzip -9 -n -f "${file}" COMMAND_ERROR_IS_FATAL ANY)
endfunction()

# The licence's paragraphs, without its title and the line of the owners.
file(READ "${CPACK_QUORVEL_SOURCE_DIR}/LICENSE" licence)
string(REGEX MATCH "Copyright \\(c\\) ([^\n]*)\n+(.*)" licence "${licence}")
set(owners "${CMAKE_MATCH_1}")
string(STRIP "${CMAKE_MATCH_2}" licence)

string(TIMESTAMP date "%a, %d %b %Y %H:%M:%S +0000" UTC)
set(source "${CPACK_QUORVEL_SOURCE_DIR}")
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    set(package "${CPACK_PACKAGE_NAME}-${component}")
    set(share "${CPACK_TEMPORARY_INSTALL_DIRECTORY}/${component}/usr/share")
    set(documents "${share}/doc/${package}")
    configure_file("${CMAKE_CURRENT_LIST_DIR}/debian/copyright.in" "${documents}/copyright")
    configure_file("${CMAKE_CURRENT_LIST_DIR}/debian/changelog.in" "${documents}/changelog.Debian")
    configure_file("${source}/CHANGELOG.md" "${documents}/changelog" COPYONLY)
    compress("${documents}/changelog.Debian")
    compress("${documents}/changelog")
    file(GLOB pages "${share}/man/man*/*")
    foreach(page IN LISTS pages)
        compress("${page}")
    endforeach()
    if(EXISTS "${share}/zsh/site-functions")
        file(RENAME "${share}/zsh/site-functions" "${share}/zsh/vendor-completions")
    endif()
    set(overrides "${share}/lintian/overrides/${package}")
    configure_file("${CMAKE_CURRENT_LIST_DIR}/debian/lintian-overrides" "${overrides}" COPYONLY)
    if(EXISTS "${CMAKE_CURRENT_LIST_DIR}/debian/${component}.lintian-overrides")
        file(READ "${CMAKE_CURRENT_LIST_DIR}/debian/${component}.lintian-overrides" own_overrides)
        file(APPEND "${overrides}" "${own_overrides}")
    endif()
endforeach()
