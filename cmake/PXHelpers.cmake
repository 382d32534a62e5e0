# px_add_sources(<target> [PUBLIC_HEADERS h...] [SOURCES s...])
#
# Adds a subsystem's files to one of the two libraries. Public headers are
# installed flat, so hosts include them by bare name, and are collected for the
# umbrella header.
function(px_add_sources target)
    cmake_parse_arguments(ARG "" "" "PUBLIC_HEADERS;SOURCES" ${ARGN})
    target_sources(${target} PRIVATE ${ARG_PUBLIC_HEADERS} ${ARG_SOURCES})
    target_include_directories(${target} PUBLIC
        $<BUILD_INTERFACE:${CMAKE_CURRENT_SOURCE_DIR}>)
    foreach(header IN LISTS ARG_PUBLIC_HEADERS)
        set_property(GLOBAL APPEND PROPERTY PX_PUBLIC_HEADERS_${target}
            ${CMAKE_CURRENT_SOURCE_DIR}/${header})
    endforeach()
endfunction()

# px_add_simd_source(<target> <source> <sse41|avx2>)
#
# Compiles one file for a raised instruction set. The rest of the library keeps
# the baseline; the code in the file is only reached after a run-time check.
# Such a file must keep everything but its entry points internal (anonymous
# namespace, no inline functions or templates emitted with external linkage,
# no namespace-scope objects with initialisers):
# the test simd_objects_self_contained checks it.
function(px_add_simd_source target source isa)
    get_filename_component(source ${source} ABSOLUTE)
    target_sources(${target} PRIVATE ${source})
    get_filename_component(name ${source} NAME)
    set_property(GLOBAL APPEND PROPERTY PX_SIMD_SOURCES_${target} ${name})
    if(CMAKE_SYSTEM_PROCESSOR MATCHES "x86_64|AMD64|amd64")
        if(isa STREQUAL "sse41")
            set_source_files_properties(${source} TARGET_DIRECTORY ${target} PROPERTIES COMPILE_OPTIONS "-msse4.1")
        elseif(isa STREQUAL "avx2")
            set_source_files_properties(${source} TARGET_DIRECTORY ${target} PROPERTIES COMPILE_OPTIONS "-mavx2")
        else()
            message(FATAL_ERROR "unknown instruction set ${isa}")
        endif()
    endif()
endfunction()
