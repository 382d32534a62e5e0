# cmake -DPX_OBJECTS=<a|b|...> -DPX_SIMD_SOURCES=<x.cpp|y.cpp|...> -P PXCheckSimdObjects.cmake
#
# Fails if an object file built for a raised instruction set defines a weak
# symbol or has a static initialiser. The linker keeps one copy of each inline
# function or template; if it keeps the copy from such a file, baseline callers
# run SSE4.1 or AVX2 code and crash on processors without it. An initialiser
# runs at load time on any processor.
cmake_minimum_required(VERSION 3.25)
string(REPLACE "|" ";" objects "${PX_OBJECTS}")
string(REPLACE "|" ";" sources "${PX_SIMD_SOURCES}")
set(checked 0)
foreach(object IN LISTS objects)
    get_filename_component(name ${object} NAME)
    string(REGEX REPLACE "\\.(o|obj)$" "" name ${name})
    if(NOT name IN_LIST sources)
        continue()
    endif()
    math(EXPR checked "${checked} + 1")
    execute_process(COMMAND nm -C --defined-only ${object}
        OUTPUT_VARIABLE symbols RESULT_VARIABLE result)
    if(NOT result EQUAL 0)
        message(FATAL_ERROR "nm failed on ${object}")
    endif()
    string(REPLACE "\n" ";" lines "${symbols}")
    foreach(line IN LISTS lines)
        # The personality routine's reference is data, not code.
        if(line MATCHES " [WV] " AND NOT line MATCHES "__gxx_personality")
            message(SEND_ERROR "${name} defines a weak symbol: ${line}")
        endif()
        # A static initialiser would run at load time, on any processor.
        if(line MATCHES "_GLOBAL__sub_I_")
            message(SEND_ERROR "${name} has a static initialiser")
        endif()
    endforeach()
endforeach()
list(LENGTH sources expected)
if(NOT checked EQUAL expected)
    message(FATAL_ERROR "checked ${checked} of ${expected} instruction-set files")
endif()
