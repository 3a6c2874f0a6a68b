# Turns on the compiler's and the linker's protections against the exploitation of memory errors, for
# every target of this folder and the folders below it. A protection that the compiler or the target
# does not know is left out.
include(CheckCXXCompilerFlag)
include(CheckLinkerFlag)
include(CheckPIESupported)

# Programs are loaded at random addresses, whatever the compiler's own default is.
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
    # The linker marks a program as protected only if each of its objects is marked, and Debian's
    # start-up objects of the C library are not. These two options set the marks all the same. The
    # loader heeds them only where the C library is marked too.
    quorvel_harden_linker(-z,ibt QUORVEL_HAS_INDIRECT_BRANCH_MARK)
    quorvel_harden_linker(-z,shstk QUORVEL_HAS_SHADOW_STACK_MARK)
endif()

# A sanitizer checks more than _FORTIFY_SOURCE does, and intercepts the C library's functions by
# their plain names, which _FORTIFY_SOURCE would replace. Builds without optimisation are left out
# because the C library's headers warn there.
if(NOT APPLE AND NOT QUORVEL_SANITIZE)
    add_compile_options(
        "$<$<CONFIG:Release,RelWithDebInfo,MinSizeRel>:-U_FORTIFY_SOURCE;-D_FORTIFY_SOURCE=3>")
endif()
