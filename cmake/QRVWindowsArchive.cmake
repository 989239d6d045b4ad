# The Windows archive: `cpack` (or the `package` target) in a build of the windows preset packs
# the install tree - qrv.dll with its import library, the static library, the headers, the CMake
# and pkg-config files, qrvctl.exe and qrv-sim.exe - into one ZIP file. Every program is linked
# statically against the compiler's runtime, so nothing else needs to travel with them.
if(NOT WIN32)
    return()
endif()

install(FILES ${PROJECT_SOURCE_DIR}/LICENSE DESTINATION . COMPONENT tools)

set(CPACK_GENERATOR ZIP)
set(CPACK_PACKAGE_NAME qrv)
set(CPACK_PACKAGE_VENDOR "QRV communication library")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "Library, tools and simulator for QRV label printers")
set(CPACK_PACKAGE_FILE_NAME "qrv-${PROJECT_VERSION}-windows-x86_64")
set(CPACK_RESOURCE_FILE_LICENSE ${PROJECT_SOURCE_DIR}/LICENSE)
set(CPACK_STRIP_FILES ON)
include(CPack)
