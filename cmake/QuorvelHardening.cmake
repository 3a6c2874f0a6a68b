# What the linker can do against memory errors that are exploited, for every target
# of this folder and those below it. Each is used where linker and target have it.
include(CheckLinkerFlag)
include(CheckPIESupported)

# Executables at random addresses, whatever the compiler's own default is.
check_pie_supported()

macro(quorvel_harden_linker flag name)
    check_linker_flag(CXX "LINKER:${flag}" ${name})
    if(${name})
        add_link_options("LINKER:${flag}")
    endif()
endmacro()

quorvel_harden_linker(-z,relro QUORVEL_HAS_RELRO)
quorvel_harden_linker(-z,now QUORVEL_HAS_BIND_NOW)
quorvel_harden_linker(-z,noexecstack QUORVEL_HAS_NOEXECSTACK)
