# quorvel_bench(NAME SOURCES... LIBRARIES...)
#
# Adds one Google Benchmark program. NAME ends in "Bench": scripts/bench finds it by that.
find_package(benchmark REQUIRED)

function(quorvel_bench name)
    cmake_parse_arguments(ARG "" "" "SOURCES;LIBRARIES" ${ARGN})
    add_executable(${name} ${ARG_SOURCES})
    target_link_libraries(${name} PRIVATE
        ${ARG_LIBRARIES} Quorvel::flags benchmark::benchmark_main Threads::Threads)
    set_target_properties(${name} PROPERTIES
        RUNTIME_OUTPUT_DIRECTORY "${PROJECT_BINARY_DIR}/bench")
endfunction()
