# quorvel_fuzz(NAME SOURCES... LIBRARIES...)
#
# Adds one libFuzzer program. NAME ends in "Fuzz", and its seeds are the files in fuzz/corpus/NAME:
# scripts/fuzz finds it by that folder.
function(quorvel_fuzz name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBRARIES" ${ARGN})
    if(NOT IS_DIRECTORY "${CMAKE_CURRENT_SOURCE_DIR}/corpus/${name}")
        message(FATAL_ERROR "quorvel_fuzz: ${name} has no seeds in ${CMAKE_CURRENT_SOURCE_DIR}/corpus/${name}")
    endif()
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE ${ARG_LIBRARIES} Quorvel::flags Threads::Threads)
    target_link_options(${name} PRIVATE -fsanitize=fuzzer)
    set_target_properties(${name} PROPERTIES
        RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/fuzz")
endfunction()
