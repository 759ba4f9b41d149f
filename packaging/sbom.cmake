# The list of components of the program, SPDX 2.3 in JSON.

# The version that the headers of a component define: the numbers of these macros.
function(kpe_header_version result headers)
    list(TRANSFORM headers REPLACE "(.+)" "#include <\\1>\n")
    file(WRITE ${CMAKE_CURRENT_BINARY_DIR}/headers.cpp ${headers})
    execute_process(COMMAND ${CMAKE_CXX_COMPILER} ${NCURSES_CFLAGS} ${UTF8PROC_CFLAGS} -dM -E
            ${CMAKE_CURRENT_BINARY_DIR}/headers.cpp
        OUTPUT_VARIABLE macros COMMAND_ERROR_IS_FATAL ANY)
    set(version "")
    foreach(macro ${ARGN})
        if(macros MATCHES "#define ${macro} \"?([0-9.]+)")
            list(APPEND version ${CMAKE_MATCH_1})
        endif()
    endforeach()
    list(JOIN version "." version)
    set(${result} ${version} PARENT_SCOPE)
endfunction()

# How the program has a component: archives are linked into it.
function(kpe_link_kind result target)
    get_target_property(libraries ${target} INTERFACE_LINK_LIBRARIES)
    set(kind DYNAMIC_LINK)
    if(KPE_STATIC OR libraries MATCHES "\\.a(;|$)")
        set(kind STATIC_LINK)
    endif()
    set(${result} ${kind} PARENT_SCOPE)
endfunction()

# One component: the parts of the document that are about it go to the lists packages and relationships.
macro(kpe_component name version license from kind)
    string(REPLACE "+" "x" id ${name})
    list(APPEND packages "    {
      \"SPDXID\": \"SPDXRef-${id}\",
      \"name\": \"${name}\",
      \"versionInfo\": \"${version}\",
      \"licenseConcluded\": \"${license}\",
      \"licenseDeclared\": \"${license}\",
      \"copyrightText\": \"NOASSERTION\",
      \"downloadLocation\": \"NOASSERTION\",
      \"filesAnalyzed\": false
    }")
    list(APPEND relationships "    {
      \"spdxElementId\": \"SPDXRef-${from}\",
      \"relationshipType\": \"${kind}\",
      \"relatedSpdxElement\": \"SPDXRef-${id}\"
    }")
endmacro()

# The same build gives the same bytes: the time is that of the sources if SOURCE_DATE_EPOCH says so, else the date of the
# release.
function(kpe_write_sbom file)
    file(READ ${PROJECT_SOURCE_DIR}/system/version.cpp source)
    string(REGEX MATCH "RELEASE_DATE = \"([-0-9]+)\"" date "${source}")
    set(created ${CMAKE_MATCH_1}T00:00:00Z)
    if(DEFINED ENV{SOURCE_DATE_EPOCH})
        string(TIMESTAMP created "%Y-%m-%dT%H:%M:%SZ" UTC)
    endif()

    kpe_header_version(ncurses curses.h NCURSES_VERSION)
    kpe_header_version(utf8proc utf8proc.h UTF8PROC_VERSION_MAJOR UTF8PROC_VERSION_MINOR UTF8PROC_VERSION_PATCH)
    kpe_header_version(libstdcxx version _GLIBCXX_RELEASE)
    kpe_header_version(glibc features.h __GLIBC__ __GLIBC_MINOR__)
    kpe_link_kind(ncurses_kind kpe_ncurses)
    kpe_link_kind(utf8proc_kind kpe_utf8proc)
    set(library_kind DYNAMIC_LINK)
    if(KPE_STATIC)
        set(library_kind STATIC_LINK)
    endif()
    set(libstdcxx_kind ${library_kind})
    if(KPE_STATIC_LIBSTDCXX)
        set(libstdcxx_kind STATIC_LINK)
    endif()

    kpe_component(kpe "${PROJECT_VERSION}" MIT DOCUMENT DESCRIBES)
    kpe_component(ncurses "${ncurses}" X11-distribute-modifications-variant kpe ${ncurses_kind})
    kpe_component(utf8proc "${utf8proc}" "MIT AND Unicode-DFS-2015" kpe ${utf8proc_kind})
    if(libstdcxx)
        kpe_component(libstdc++ "${libstdcxx}" "GPL-3.0-or-later WITH GCC-exception-3.1" kpe ${libstdcxx_kind})
    endif()
    if(glibc)
        kpe_component(glibc "${glibc}" LGPL-2.1-or-later kpe ${library_kind})
    endif()
    list(JOIN packages ",\n" packages)
    list(JOIN relationships ",\n" relationships)
    string(SHA256 hash "${created}${packages}${relationships}") # documents that differ have to have different names

    string(CONCAT content
        "{\n"
        "  \"spdxVersion\": \"SPDX-2.3\",\n"
        "  \"dataLicense\": \"CC0-1.0\",\n"
        "  \"SPDXID\": \"SPDXRef-DOCUMENT\",\n"
        "  \"name\": \"kpe-${PROJECT_VERSION}\",\n"
        "  \"documentNamespace\": \"urn:kpe:sbom:${hash}\",\n"
        "  \"creationInfo\": {\n"
        "    \"created\": \"${created}\",\n"
        "    \"creators\": [\"Organization: the kpe authors\"]\n"
        "  },\n"
        "  \"packages\": [\n${packages}\n  ],\n"
        "  \"relationships\": [\n${relationships}\n  ]\n"
        "}\n")
    string(JSON count ERROR_VARIABLE bad LENGTH "${content}" packages)
    if(bad)
        message(FATAL_ERROR "the list of components is no JSON: ${bad}")
    endif()
    file(WRITE ${file} "${content}")
endfunction()
