# Finds the third-party libraries. Each has the same target name on every platform.
find_package(Threads REQUIRED)

if(CMAKE_CROSSCOMPILING)
    # Only Boost's headers are used, and they suit every target. The cross compiler reaches them
    # through a folder that holds one link, so that it sees no other header of the build machine.
    set(quorvel_boost_include "${PROJECT_BINARY_DIR}/boost-include")
    file(MAKE_DIRECTORY "${quorvel_boost_include}")
    file(CREATE_LINK /usr/include/boost "${quorvel_boost_include}/boost" SYMBOLIC)
    add_library(Boost::headers INTERFACE IMPORTED)
    set_target_properties(Boost::headers PROPERTIES
        INTERFACE_INCLUDE_DIRECTORIES "${quorvel_boost_include}")
else()
    find_package(Boost 1.74 REQUIRED)
endif()

if(QUORVEL_BUILD_MIDISERVER)
    find_package(CLI11 REQUIRED)
    find_package(fmt REQUIRED)
    find_package(nlohmann_json REQUIRED)
    find_package(PkgConfig REQUIRED)
    pkg_check_modules(systemd REQUIRED IMPORTED_TARGET libsystemd)
    pkg_check_modules(ncursesw REQUIRED IMPORTED_TARGET ncursesw)
    # Optional: without libasound the host has no ALSA backend.
    find_package(ALSA)
    # Optional: without libjack the host has no JACK backend.
    pkg_check_modules(jack IMPORTED_TARGET jack)
    if(TARGET PkgConfig::jack)
        add_library(JACK::JACK ALIAS PkgConfig::jack)
    endif()
endif()
