# The date of everything in the packages is that of the last commit, so that the same sources make the
# same packages; SOURCE_DATE_EPOCH in the environment counts instead.
if("$ENV{SOURCE_DATE_EPOCH}" STREQUAL "")
    execute_process(
        COMMAND git -C "${CPACK_QUORVEL_SOURCE_DIR}" log -1 --format=%ct
        OUTPUT_VARIABLE date OUTPUT_STRIP_TRAILING_WHITESPACE
        ERROR_QUIET)
    if(NOT date)
        message(FATAL_ERROR
            "${CPACK_QUORVEL_SOURCE_DIR} is no Git repository, so the packages' date is not known: "
            "set SOURCE_DATE_EPOCH to it, in seconds since 1970")
    endif()
    set(ENV{SOURCE_DATE_EPOCH} "${date}")
endif()
