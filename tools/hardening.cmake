# What makes a fault in memory end the program in place of running foreign code. Debug builds have sanitizers instead.
include(CheckCXXCompilerFlag)
include(CheckLinkerFlag)
include(CheckPIESupported)

check_pie_supported(LANGUAGES CXX)
set(CMAKE_POSITION_INDEPENDENT_CODE ON)

# The first that the compiler knows of the flags for one purpose.
function(kpe_first_flag name)
    foreach(flag ${ARGN})
        string(MAKE_C_IDENTIFIER "KPE_HAS${flag}" known)
        check_cxx_compiler_flag("-Werror;${flag}" ${known})
        if(${known})
            set(${name} ${flag} PARENT_SCOPE)
            return()
        endif()
    endforeach()
endfunction()
kpe_first_flag(stack -fstack-protector-strong -fstack-protector)
kpe_first_flag(clash -fstack-clash-protection)
kpe_first_flag(branches -fcf-protection -mbranch-protection=standard)
add_compile_options(${stack} ${clash} ${branches} -Wformat -Werror=format-security
    -U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)

foreach(flag relro now noexecstack)
    check_linker_flag(CXX "LINKER:-z,${flag}" KPE_LINKS_${flag})
    if(KPE_LINKS_${flag})
        add_link_options(LINKER:-z,${flag})
    endif()
endforeach()
