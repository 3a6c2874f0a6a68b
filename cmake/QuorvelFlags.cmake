# Quorvel::flags carries the language level, the warnings and the sanitizers to every target.
add_library(quorvel_flags INTERFACE)
add_library(Quorvel::flags ALIAS quorvel_flags)

set(CMAKE_CXX_EXTENSIONS OFF)
set(CMAKE_C_EXTENSIONS OFF)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)

target_compile_features(quorvel_flags INTERFACE cxx_std_20 c_std_11)
target_include_directories(quorvel_flags INTERFACE "${PROJECT_SOURCE_DIR}")
target_compile_options(quorvel_flags INTERFACE
    -Wall -Wextra -Wpedantic -Wshadow -Wconversion $<$<BOOL:${QUORVEL_WARNINGS_AS_ERRORS}>:-Werror>)
if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # GCC 12 reports these two inside its own inlined library code.
    target_compile_options(quorvel_flags INTERFACE -Wno-stringop-overflow -Wno-array-bounds)
endif()
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    # Checks the annotations of platform/support/Mutex.h, which say what each lock protects.
    target_compile_options(quorvel_flags INTERFACE -Wthread-safety)
endif()
if(APPLE)
    # The driver's first platform still has the Multiprocessing calls, marked as deprecated.
    target_compile_options(quorvel_flags INTERFACE -Wno-deprecated-declarations)
    # Boost 1.74 derives from std::unary_function, which a current libc++ hides otherwise.
    target_compile_definitions(quorvel_flags INTERFACE
        _LIBCPP_ENABLE_CXX17_REMOVED_UNARY_BINARY_FUNCTION)
endif()
if(QUORVEL_SANITIZE)
    target_compile_options(quorvel_flags INTERFACE
        -fsanitize=${QUORVEL_SANITIZE} -fno-sanitize-recover=all -fno-omit-frame-pointer)
    target_link_options(quorvel_flags INTERFACE -fsanitize=${QUORVEL_SANITIZE})
    if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
        # The sanitizers' instrumentation defeats GCC's flow analysis.
        target_compile_options(quorvel_flags INTERFACE -Wno-maybe-uninitialized)
    endif()
endif()
if(QUORVEL_BUILD_FUZZ)
    if(NOT CMAKE_CXX_COMPILER_ID MATCHES "Clang")
        message(FATAL_ERROR "The fuzz targets need Clang: QUORVEL_BUILD_FUZZ with ${CMAKE_CXX_COMPILER_ID}")
    endif()
    # All product code reports its coverage to the fuzzer; only the fuzz targets link the fuzzer
    # itself. These are options of the folder, not of Quorvel::flags, so that the tests' folder can
    # clear them: coverage of the tests' own code would mislead the fuzzer.
    add_compile_options(-fsanitize=fuzzer-no-link)
    add_link_options(-fsanitize=fuzzer-no-link)
endif()
