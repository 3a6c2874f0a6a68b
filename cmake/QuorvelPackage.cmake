# Installs what programs that embed the driver need: the headers of the frameworks, and the CMake
# package Quorvel. find_package(Quorvel) gives them the targets Quorvel::CoreFoundation,
# Quorvel::CoreMIDI and Quorvel::CoreServices, and the path of the plug-in's bundle in
# Quorvel_PLUGIN_BUNDLE.
include(CMakePackageConfigHelpers)

set(QUORVEL_HEADERS_DIR "${CMAKE_INSTALL_INCLUDEDIR}/quorvel")
set(QUORVEL_PACKAGE_DIR "lib/cmake/Quorvel")

# Installs the public headers of the calling folder.
function(quorvel_install_headers)
    install(DIRECTORY include/ DESTINATION "${QUORVEL_HEADERS_DIR}" COMPONENT midi-dev
        FILES_MATCHING PATTERN "*.h")
endfunction()

# Installs a framework: its library into the private folder, and its headers.
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

# Installs the list of installed files, which scripts/uninstall reads. Call it after every other
# install rule: the list holds only what was installed before it.
function(quorvel_install_manifest)
    # A component of its own, which the Debian packages leave out: dpkg keeps lists itself.
    set(CMAKE_INSTALL_DEFAULT_COMPONENT_NAME manifest)
    install(CODE "set(folder \"\${CMAKE_INSTALL_PREFIX}/${QUORVEL_PRIVATE_LIBDIR}\")")
    install(CODE [[
        list(JOIN CMAKE_INSTALL_MANIFEST_FILES "\n" files)
        file(WRITE "$ENV{DESTDIR}${folder}/install_manifest.txt" "${files}\n")]])
endfunction()
