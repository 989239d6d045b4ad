# Install rules of the library: headers, both libraries, the CMake package
# (find_package(QRVCommunicationLibrary): QRV::qrv shared, QRV::qrv_static) and qrv.pc.
# Components: "Runtime" is the shared library alone (what programs need to run); "Development"
# is everything needed to build against it.
include(GNUInstallDirs)
include(CMakePackageConfigHelpers)

set(QRV_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake/QRVCommunicationLibrary)

# Installed, the targets see only the public headers.
target_include_directories(qrv INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
target_include_directories(qrv_shared INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}>)
set_target_properties(qrv PROPERTIES EXPORT_NAME qrv_static)
set_target_properties(qrv_shared PROPERTIES EXPORT_NAME qrv)

install(TARGETS qrv_shared EXPORT QRVCommunicationLibraryTargets
    RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT Runtime
    LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Runtime NAMELINK_COMPONENT Development
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Development)
install(TARGETS qrv EXPORT QRVCommunicationLibraryStaticTargets
    ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT Development)

install(DIRECTORY include/qrv DESTINATION ${CMAKE_INSTALL_INCLUDEDIR} COMPONENT Development
    FILES_MATCHING PATTERN "*.h")
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/include/qrv/Version.h
    DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/qrv COMPONENT Development)

install(EXPORT QRVCommunicationLibraryTargets NAMESPACE QRV:: DESTINATION ${QRV_CMAKE_DIR}
    COMPONENT Development)
install(EXPORT QRVCommunicationLibraryStaticTargets NAMESPACE QRV:: DESTINATION ${QRV_CMAKE_DIR}
    COMPONENT Development)
configure_package_config_file(cmake/QRVCommunicationLibraryConfig.cmake.in
    ${CMAKE_CURRENT_BINARY_DIR}/QRVCommunicationLibraryConfig.cmake INSTALL_DESTINATION ${QRV_CMAKE_DIR})
write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/QRVCommunicationLibraryConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/QRVCommunicationLibraryConfig.cmake
    ${CMAKE_CURRENT_BINARY_DIR}/QRVCommunicationLibraryConfigVersion.cmake
    DESTINATION ${QRV_CMAKE_DIR} COMPONENT Development)

# qrv.pc names the prefix it is installed under (`cmake --install --prefix` included), so it is
# written at install time. The static library's system libraries are plain -l flags rather than
# Requires.private: that way `pkg-config --cflags --libs qrv` needs no other package's .pc file,
# and only a static link (--static) needs their development files.
if(WIN32)
    set(QRV_PC_LIBS_PRIVATE "-lsetupapi -lhid -lwinspool -ladvapi32 -lcfgmgr32 -lstdc++")
else()
    set(QRV_PC_LIBS_PRIVATE "-ludev -ldl -lstdc++ -lm -pthread")
endif()
install(CODE "
    set(QRV_PC_PREFIX \"\${CMAKE_INSTALL_PREFIX}\")
    set(CMAKE_INSTALL_LIBDIR \"${CMAKE_INSTALL_LIBDIR}\")
    set(CMAKE_INSTALL_INCLUDEDIR \"${CMAKE_INSTALL_INCLUDEDIR}\")
    set(PROJECT_VERSION \"${PROJECT_VERSION}\")
    set(QRV_PC_LIBS_PRIVATE \"${QRV_PC_LIBS_PRIVATE}\")
    configure_file(\"${CMAKE_CURRENT_SOURCE_DIR}/cmake/qrv.pc.in\" \"${CMAKE_CURRENT_BINARY_DIR}/qrv.pc\" @ONLY)
" COMPONENT Development)
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/qrv.pc DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
    COMPONENT Development)
