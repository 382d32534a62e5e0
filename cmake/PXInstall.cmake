# Installs both libraries with their headers (flat, under include/PXImageCutter),
# one CMake package per library and a pkg-config file.
include(CMakePackageConfigHelpers)

set(PX_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake)

get_property(core_headers GLOBAL PROPERTY PX_PUBLIC_HEADERS_PXCore)
get_property(cutter_headers GLOBAL PROPERTY PX_PUBLIC_HEADERS_PXImageCutter)
set(PX_INCLUDE_DIR ${CMAKE_INSTALL_INCLUDEDIR}/PXImageCutter)

install(TARGETS PXCore EXPORT PXCoreTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(TARGETS PXImageCutter EXPORT PXImageCutterTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR}
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR})
install(FILES ${core_headers} ${cutter_headers}
    ${PROJECT_BINARY_DIR}/src/include/pxcore_export.h
    ${PROJECT_BINARY_DIR}/src/include/pximagecutter_export.h
    ${PROJECT_BINARY_DIR}/src/include/PXImageCutter.h
    DESTINATION ${PX_INCLUDE_DIR})

install(EXPORT PXCoreTargets NAMESPACE PXCore:: DESTINATION ${PX_CMAKE_DIR}/PXCore)
install(EXPORT PXImageCutterTargets NAMESPACE PXImageCutter::
    DESTINATION ${PX_CMAKE_DIR}/PXImageCutter)

foreach(package PXCore PXImageCutter)
    configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/${package}Config.cmake.in
        ${PROJECT_BINARY_DIR}/${package}Config.cmake
        INSTALL_DESTINATION ${PX_CMAKE_DIR}/${package})
    write_basic_package_version_file(${PROJECT_BINARY_DIR}/${package}ConfigVersion.cmake
        COMPATIBILITY SameMajorVersion)
    install(FILES
        ${PROJECT_BINARY_DIR}/${package}Config.cmake
        ${PROJECT_BINARY_DIR}/${package}ConfigVersion.cmake
        DESTINATION ${PX_CMAKE_DIR}/${package})
endforeach()

configure_file(${PROJECT_SOURCE_DIR}/cmake/PXImageCutter.pc.in
    ${PROJECT_BINARY_DIR}/PXImageCutter.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/PXImageCutter.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
