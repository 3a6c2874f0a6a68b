# Makes the build reproducible: the same sources give the same bytes in whichever folder they are
# built. No folder's name stands in the debugging information or in a text of the program.
include(CheckCXXCompilerFlag)
check_cxx_compiler_flag(-ffile-prefix-map=a=b QUORVEL_HAS_FILE_PREFIX_MAP)
if(QUORVEL_HAS_FILE_PREFIX_MAP)
    # The build folder's map comes second because the last map that fits counts, and the build folder
    # often lies within the source folder.
    add_compile_options(
        "-ffile-prefix-map=${PROJECT_SOURCE_DIR}=." "-ffile-prefix-map=${PROJECT_BINARY_DIR}=.")
endif()
