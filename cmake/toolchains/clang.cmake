# Clang in the one version that the sanitizers, the fuzz targets and the checkers are used in.
file(STRINGS "${CMAKE_CURRENT_LIST_DIR}/../../.clang-version" clang_version)
set(CMAKE_C_COMPILER "clang-${clang_version}")
set(CMAKE_CXX_COMPILER "clang++-${clang_version}")
