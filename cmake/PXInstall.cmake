# Installs both libraries with their headers (flat, under include/PXImageCutter),
# one CMake package per library and a pkg-config file, and the host programs.
# Components: runtime (the shared libraries), dev (headers, CMake packages,
# pkg-config file, the .so links), tools (pxcut, pxstudio), python (the
# module, installed by src/python); each becomes one Debian package (PXPackage.cmake).
include(CMakePackageConfigHelpers)

set(PX_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake)

get_property(core_headers GLOBAL PROPERTY PX_PUBLIC_HEADERS_PXCore)
get_property(cutter_headers GLOBAL PROPERTY PX_PUBLIC_HEADERS_PXImageCutter)
set(PX_INCLUDE_DIR ${CMAKE_INSTALL_INCLUDEDIR}/PXImageCutter)

install(TARGETS PXCore EXPORT PXCoreTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)
install(TARGETS PXImageCutter EXPORT PXImageCutterTargets
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime NAMELINK_COMPONENT dev
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT runtime
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT dev)
install(FILES ${core_headers} ${cutter_headers}
    ${PROJECT_BINARY_DIR}/src/include/pxcore_export.h
    ${PROJECT_BINARY_DIR}/src/include/pximagecutter_export.h
    ${PROJECT_BINARY_DIR}/src/include/PXImageCutter.h
    DESTINATION ${PX_INCLUDE_DIR} COMPONENT dev)

install(EXPORT PXCoreTargets NAMESPACE PXCore:: DESTINATION ${PX_CMAKE_DIR}/PXCore COMPONENT dev)
install(EXPORT PXImageCutterTargets NAMESPACE PXImageCutter::
    DESTINATION ${PX_CMAKE_DIR}/PXImageCutter COMPONENT dev)

foreach(package PXCore PXImageCutter)
    configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/${package}Config.cmake.in
        ${PROJECT_BINARY_DIR}/${package}Config.cmake
        INSTALL_DESTINATION ${PX_CMAKE_DIR}/${package})
    write_basic_package_version_file(${PROJECT_BINARY_DIR}/${package}ConfigVersion.cmake
        COMPATIBILITY SameMajorVersion)
    install(FILES
        ${PROJECT_BINARY_DIR}/${package}Config.cmake
        ${PROJECT_BINARY_DIR}/${package}ConfigVersion.cmake
        DESTINATION ${PX_CMAKE_DIR}/${package} COMPONENT dev)
endforeach()

configure_file(${PROJECT_SOURCE_DIR}/cmake/PXImageCutter.pc.in
    ${PROJECT_BINARY_DIR}/PXImageCutter.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/PXImageCutter.pc
    DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT dev)

if(PX_BUILD_EXAMPLES)
    install(TARGETS pxcut pxstudio RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
    install(FILES ${PROJECT_SOURCE_DIR}/packaging/pxstudio.desktop
        DESTINATION ${CMAKE_INSTALL_DATADIR}/applications COMPONENT tools)
    install(FILES ${PROJECT_SOURCE_DIR}/packaging/pxstudio.svg
        DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps COMPONENT tools)
endif()
