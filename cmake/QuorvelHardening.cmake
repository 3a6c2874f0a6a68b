# What the compiler and the linker can do against memory errors that are exploited, for every target
# of this folder and those below it. Each is used where compiler and target have it.
include(CheckCXXCompilerFlag)
include(CheckLinkerFlag)
include(CheckPIESupported)

# Executables at random addresses, whatever the compiler's own default is.
check_pie_supported()

macro(quorvel_harden_compiler flag name)
    check_cxx_compiler_flag("${flag}" ${name})
    if(${name})
        add_compile_options("${flag}")
    endif()
endmacro()

macro(quorvel_harden_linker flag name)
    check_linker_flag(CXX "LINKER:${flag}" ${name})
    if(${name})
        add_link_options("LINKER:${flag}")
    endif()
endmacro()

quorvel_harden_compiler(-fstack-protector-strong QUORVEL_HAS_STACK_PROTECTOR)
quorvel_harden_compiler(-fcf-protection=full QUORVEL_HAS_CONTROL_FLOW_PROTECTION)
quorvel_harden_linker(-z,relro QUORVEL_HAS_RELRO)
quorvel_harden_linker(-z,now QUORVEL_HAS_BIND_NOW)
quorvel_harden_linker(-z,noexecstack QUORVEL_HAS_NOEXECSTACK)
if(QUORVEL_HAS_CONTROL_FLOW_PROTECTION)
    # Debian's start-up objects of the C library carry no marks, and one unmarked object unmarks the
    # whole program: so the marks are asked for. A loader heeds them only where the C library has
    # them too.
    quorvel_harden_linker(-z,ibt QUORVEL_HAS_INDIRECT_BRANCH_MARK)
    quorvel_harden_linker(-z,shstk QUORVEL_HAS_SHADOW_STACK_MARK)
endif()

# The sanitizers check more, and see the C library's functions by their own names only. Without
# optimisation the C library's headers cannot tell the sizes and warn.
if(NOT APPLE AND NOT QUORVEL_SANITIZE)
    add_compile_options(
        "$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=3>")
endif()
