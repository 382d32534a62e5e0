# Debian packages of the install components, made by CPack:
#   cpack --config <build>/CPackConfig.cmake -B <folder>
# (./build.sh package). Each package's dependencies on other packages come
# from dpkg-shlibdeps reading its binaries; between our own packages they
# are declared as component dependencies.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME pximagecutter)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY ${PROJECT_DESCRIPTION})
set(CPACK_PACKAGE_CONTACT "libPXImageCutter developers <pximagecutter@localhost>")
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL runtime dev)
if(PX_BUILD_EXAMPLES)
    list(APPEND CPACK_COMPONENTS_ALL tools)
endif()
if(TARGET _pximagecutter)
    list(APPEND CPACK_COMPONENTS_ALL python)
endif()
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# Our own libraries are not in any installed package yet; dpkg-shlibdeps
# finds them in the build and leaves them to the component dependencies.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR}/src)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libpximagecutter${PROJECT_VERSION_MAJOR})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "Cuts an object out of a photo (shared libraries)
 libPXImageCutter turns a photo and a lasso into a mask of the object,
 refined by clicks, paint and scribbles, and traces live wires.")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libpximagecutter-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEV_DEPENDS runtime)
# The headers include Qt's; a header need no binary shows to dpkg-shlibdeps.
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "qt6-base-dev")
set(CPACK_COMPONENT_DEV_DESCRIPTION "Cuts an object out of a photo (development files)
 Headers, CMake packages (find_package(PXImageCutter)) and a pkg-config
 file for building hosts of libPXImageCutter.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME pximagecutter-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION graphics)
set(CPACK_COMPONENT_TOOLS_DEPENDS runtime)
set(CPACK_COMPONENT_TOOLS_DESCRIPTION "Cuts an object out of a photo (pxcut, pxstudio)
 pxcut cuts from the command line and traces live wires; pxstudio is the
 desktop program for cutting by hand. Both explain themselves with --help.")

set(CPACK_DEBIAN_PYTHON_PACKAGE_NAME python3-pximagecutter)
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
set(CPACK_COMPONENT_PYTHON_DEPENDS runtime)
# The interpreter and NumPy are used through Python, not linked; the
# extension is built for one minor version of the interpreter.
math(EXPR next_minor "${Python_VERSION_MINOR} + 1")
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS
    "python3 (>= ${Python_VERSION_MAJOR}.${Python_VERSION_MINOR}), python3 (<< ${Python_VERSION_MAJOR}.${next_minor}), python3-numpy")
set(CPACK_COMPONENT_PYTHON_DESCRIPTION "Cuts an object out of a photo (Python module)
 import pximagecutter: cut(image, lasso) on NumPy arrays, a Cutter for
 clicks, strokes and undo, and Scissors for live wires.")

include(CPack)
