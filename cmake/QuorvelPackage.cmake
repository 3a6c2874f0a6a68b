# The headers of the frameworks and the CMake package Quorvel, for programs that embed the driver:
# find_package(Quorvel), the targets Quorvel::CoreFoundation, Quorvel::CoreMIDI and
# Quorvel::CoreServices, and the plug-in's bundle in Quorvel_PLUGIN_BUNDLE.
include(CMakePackageConfigHelpers)

set(QUORVEL_HEADERS_DIR "${CMAKE_INSTALL_INCLUDEDIR}/quorvel")
set(QUORVEL_PACKAGE_DIR "lib/cmake/Quorvel")

# The public headers of this folder.
function(quorvel_install_headers)
    install(DIRECTORY include/ DESTINATION "${QUORVEL_HEADERS_DIR}" COMPONENT midi-dev
        FILES_MATCHING PATTERN "*.h")
endfunction()

# A framework as it is installed: the library in the private folder and its headers.
function(quorvel_install_framework name)
    install(TARGETS ${name} EXPORT QuorvelTargets
        LIBRARY DESTINATION "${QUORVEL_PRIVATE_LIBDIR}" NAMELINK_COMPONENT midi-dev
        INCLUDES DESTINATION "${QUORVEL_HEADERS_DIR}")
    quorvel_install_headers()
endfunction()

function(quorvel_install_package)
    install(EXPORT QuorvelTargets NAMESPACE Quorvel:: DESTINATION "${QUORVEL_PACKAGE_DIR}"
        COMPONENT midi-dev)
    configure_package_config_file(
        "${PROJECT_SOURCE_DIR}/cmake/QuorvelConfig.cmake.in" "${PROJECT_BINARY_DIR}/QuorvelConfig.cmake"
        INSTALL_DESTINATION "${QUORVEL_PACKAGE_DIR}"
        PATH_VARS QUORVEL_PRIVATE_LIBDIR)
    write_basic_package_version_file("${PROJECT_BINARY_DIR}/QuorvelConfigVersion.cmake"
        COMPATIBILITY SameMinorVersion)
    install(FILES
        "${PROJECT_BINARY_DIR}/QuorvelConfig.cmake" "${PROJECT_BINARY_DIR}/QuorvelConfigVersion.cmake"
        DESTINATION "${QUORVEL_PACKAGE_DIR}" COMPONENT midi-dev)
endfunction()

# Keeps the list of what was installed for scripts/uninstall; call it after everything else.
function(quorvel_install_manifest)
    # Of no use to a package's manager, which has lists of its own.
    set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME manifest)
    install(CODE "set(folder \"\${CMAKE_INSTALL_PREFIX}/${QUORVEL_PRIVATE_LIBDIR}\")")
    install(CODE [[
        list(JOIN CMAKE_INSTALL_MANIFEST_FILES "\n" files)
        file(WRITE "$ENV{DESTDIR}${folder}/install_manifest.txt" "${files}\n")]])
endfunction()
