# The same sources come out as the same bytes in whichever folders they are built: no file names its
# folder, neither in its debugging information nor in texts.
include(CheckCXXCompilerFlag)
check_cxx_compiler_flag(-ffile-prefix-map=a=b QUORVEL_HAS_FILE_PREFIX_MAP)
if(QUORVEL_HAS_FILE_PREFIX_MAP)
    # The build folder often lies in that of the sources; of several maps, the last that fits counts.
    add_compile_options(
        "-ffile-prefix-map=${PROJECT_SOURCE_DIR}=." "-ffile-prefix-map=${PROJECT_BINARY_DIR}=.")
endif()
