# cmake -P script; see CMakeLists.txt beside it.
include(${CMAKE_CURRENT_LIST_DIR}/Run.cmake)

set(prefix ${PX_WORK_DIR}/prefix)
file(REMOVE_RECURSE ${PX_WORK_DIR})

run(${CMAKE_COMMAND} --install ${PX_BUILD_DIR} --prefix ${prefix})
run(${CMAKE_COMMAND} -S ${PX_CONSUMER_SOURCE} -B ${PX_WORK_DIR}/build -G Ninja
    -DCMAKE_PREFIX_PATH=${prefix}
    "-DCMAKE_CXX_FLAGS=${PX_CXX_FLAGS}"
    "-DCMAKE_EXE_LINKER_FLAGS=${PX_LINKER_FLAGS}")
run(${CMAKE_COMMAND} --build ${PX_WORK_DIR}/build)
run(${PX_WORK_DIR}/build/consumer)
message(STATUS "${last_output}")

find_program(PKG_CONFIG pkg-config)
if(PKG_CONFIG)
    file(GLOB pc_dirs ${prefix}/lib*/pkgconfig ${prefix}/lib/*/pkgconfig)
    string(REPLACE ";" ":" pc_path "${pc_dirs}")
    set(ENV{PKG_CONFIG_PATH} "${pc_path}")
    run(${PKG_CONFIG} --cflags --libs PXImageCutter)
    if(NOT last_output MATCHES "-lPXImageCutter" OR NOT last_output MATCHES "include/PXImageCutter")
        message(FATAL_ERROR "pkg-config gave: ${last_output}")
    endif()
endif()

# As a user would, with nothing but PYTHONPATH: the module finds the prefix's libraries itself.
if(PX_PYTHON)
    set(ENV{PYTHONPATH} ${prefix}/lib/python3/dist-packages)
    run(${PX_PYTHON} -c "import pximagecutter; assert pximagecutter.__file__.startswith('${prefix}')")
endif()
