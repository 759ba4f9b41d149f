# What makes a fault in memory end the program in place of running foreign code. Debug builds have sanitizers instead.
include(CheckCXXCompilerFlag)
include(CheckLinkerFlag)

# The program can be loaded at any address. Not by CMake's own property: it would compile kpe_core as if for a library
# whose functions others may replace, which is slower.
set(type $<TARGET_PROPERTY:TYPE>)
add_compile_options($<$<NOT:$<STREQUAL:${type},MODULE_LIBRARY>>:-fPIE>)
add_link_options($<$<STREQUAL:${type},EXECUTABLE>:$<IF:$<BOOL:${KPE_STATIC}>,-static-pie,-pie>>)

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
add_compile_options(${stack} ${clash} ${branches} -Wformat -Werror=format-security)
if(NOT CMAKE_CXX_FLAGS MATCHES "_FORTIFY_SOURCE") # a distribution may ask for more
    add_compile_options(-U_FORTIFY_SOURCE -D_FORTIFY_SOURCE=2)
endif()

foreach(flag relro now noexecstack)
    check_linker_flag(CXX "LINKER:-z,${flag}" KPE_LINKS_${flag})
    if(KPE_LINKS_${flag})
        add_link_options(LINKER:-z,${flag})
    endif()
endforeach()
