# quorvel_test(NAME SOURCES... LIBRARIES... [LABELS...] [TIMEOUT seconds] [ENVIRONMENT...] [SERIAL]
#              [RESOURCE_LOCK name] [ALSO_PADDED filter])
#
# Adds one test program. Every test in it becomes a ctest entry "NAME.Suite.Test", which runs in a
# process of its own. Tests with the same RESOURCE_LOCK run one at a time; with SERIAL, a test runs
# while no other does. Tests that match the ALSO_PADDED filter run a second time, as
# "NAME.padded.Suite.Test", with the CoreMIDI library that pads packet lists.
include(GoogleTest)

if(CMAKE_CROSSCOMPILING)
    set(INSTALL_GTEST OFF)
    add_subdirectory(/usr/src/googletest "${PROJECT_BINARY_DIR}/googletest" EXCLUDE_FROM_ALL SYSTEM)
    if(NOT TARGET GTest::gmock_main)
        add_library(GTest::gtest ALIAS gtest)
        add_library(GTest::gmock ALIAS gmock)
        add_library(GTest::gmock_main ALIAS gmock_main)
    endif()
else()
    find_package(GTest REQUIRED)
endif()

function(quorvel_test name)
    cmake_parse_arguments(ARG "SERIAL" "TIMEOUT;RESOURCE_LOCK;ALSO_PADDED" "SOURCES;LIBRARIES;LABELS;ENVIRONMENT" ${ARGN})
    if(NOT ARG_TIMEOUT)
        set(ARG_TIMEOUT 300)
    endif()
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE
        ${ARG_LIBRARIES} Quorvel::flags GTest::gmock_main Threads::Threads)
    target_precompile_headers(${name} REUSE_FROM TestHeaders)
    set(c_sources ${ARG_SOURCES})
    list(FILTER c_sources INCLUDE REGEX "\\.c$")
    set_source_files_properties(${c_sources} PROPERTIES SKIP_PRECOMPILE_HEADERS ON)
    # Some tests replace a platform function by one of their own. The libraries and the loaded plug-in
    # find it only if the program exports its symbols.
    set_target_properties(${name} PROPERTIES ENABLE_EXPORTS ON
        RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/tests")
    set(properties TIMEOUT ${ARG_TIMEOUT})
    if(ARG_LABELS)
        list(APPEND properties LABELS "${ARG_LABELS}")
    endif()
    if(ARG_ENVIRONMENT)
        list(APPEND properties ENVIRONMENT "${ARG_ENVIRONMENT}")
    endif()
    if(ARG_RESOURCE_LOCK)
        list(APPEND properties RESOURCE_LOCK ${ARG_RESOURCE_LOCK})
    endif()
    if(ARG_SERIAL)
        list(APPEND properties RUN_SERIAL ON)
    endif()
    gtest_discover_tests(${name}
        TEST_PREFIX "${name}."
        # A parameter's value may hold any bytes, which would not do in a test's name.
        NO_PRETTY_VALUES
        DISCOVERY_MODE PRE_TEST
        DISCOVERY_TIMEOUT 120
        PROPERTIES ${properties})
    if(ARG_ALSO_PADDED AND TARGET CoreMIDIPadded)
        add_dependencies(${name} CoreMIDIPadded)
        # As ENVIRONMENT_MODIFICATION, because properties cannot pass a list of two variables.
        gtest_discover_tests(${name}
            TEST_PREFIX "${name}.padded."
            NO_PRETTY_VALUES
            TEST_FILTER "${ARG_ALSO_PADDED}"
            DISCOVERY_MODE PRE_TEST
            DISCOVERY_TIMEOUT 120
            PROPERTIES ${properties} ENVIRONMENT_MODIFICATION
                "LD_LIBRARY_PATH=set:${PROJECT_BINARY_DIR}/tests/padded")
    endif()
endfunction()
