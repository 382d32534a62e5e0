# cmake -P script; see CMakeLists.txt beside it. Makes the Debian packages
# from the build, checks what each holds and depends on, unpacks them all
# into one tree and runs pxcut and the Python module from there.
include(${CMAKE_CURRENT_LIST_DIR}/Run.cmake)

file(REMOVE_RECURSE ${PX_WORK_DIR})
run(cpack --config ${PX_BUILD_DIR}/CPackConfig.cmake -B ${PX_WORK_DIR}/packages)

# package: files it must hold | a dependency dpkg-shlibdeps must have found
set(expected
    "libpximagecutter1:/usr/lib/libPXImageCutter.so.1|/usr/lib/libPXCore.so.1:libqt6core6"
    "libpximagecutter-dev:/usr/include/PXImageCutter/PXImageSegmentation.h|/usr/lib/cmake/PXImageCutter/PXImageCutterConfig.cmake|/usr/lib/pkgconfig/PXImageCutter.pc|/usr/lib/libPXImageCutter.so:libpximagecutter1 (= "
    "pximagecutter-tools:/usr/bin/pxcut|/usr/bin/pxstudio|/usr/share/applications/pxstudio.desktop|/usr/share/icons/hicolor/scalable/apps/pxstudio.svg:libqt6widgets6"
    "python3-pximagecutter:/usr/lib/python3/dist-packages/pximagecutter/__init__.py|/usr/lib/python3/dist-packages/pximagecutter/__init__.pyi|/usr/lib/python3/dist-packages/pximagecutter/_pximagecutter:libqt6gui6")
set(root ${PX_WORK_DIR}/root)
foreach(entry IN LISTS expected)
    string(REPLACE ":" ";" entry "${entry}")
    list(GET entry 0 package)
    list(GET entry 1 files)
    list(GET entry 2 dependency)
    file(GLOB deb ${PX_WORK_DIR}/packages/${package}_*.deb)
    if(NOT deb)
        message(FATAL_ERROR "no package ${package}")
    endif()
    run(dpkg-deb -c ${deb})
    string(REPLACE "|" ";" files "${files}")
    foreach(file IN LISTS files)
        string(FIND "${last_output}" ".${file}" found)
        if(found LESS 0)
            message(FATAL_ERROR "${package} lacks ${file}:\n${last_output}")
        endif()
    endforeach()
    run(dpkg-deb -f ${deb} Depends)
    string(FIND "${last_output}" "${dependency}" found)
    if(found LESS 0)
        message(FATAL_ERROR "${package} does not depend on ${dependency}: ${last_output}")
    endif()
    message(STATUS "${package}: ${last_output}")
    run(dpkg-deb -x ${deb} ${root})
endforeach()

# Nothing from the build may be reached: the tree's own libraries only.
set(ENV{LD_LIBRARY_PATH} ${root}/usr/lib)
set(ENV{QT_QPA_PLATFORM} offscreen)
run(${root}/usr/bin/pxcut cut ${PX_PHOTOS_DIR}/coffee.png --out ${PX_WORK_DIR}/out)
run(${root}/usr/bin/pxcut --help)
run(${root}/usr/bin/pxstudio --help)
set(ENV{PYTHONPATH} ${root}/usr/lib/python3/dist-packages)
run(${PX_PYTHON} -c "import numpy, pximagecutter
assert pximagecutter.__file__.startswith('${root}')
mask = pximagecutter.cut(numpy.zeros((60, 80, 3), numpy.uint8), [(10, 10), (70, 10), (40, 50)], refine=False)
assert mask.shape == (60, 80)")
