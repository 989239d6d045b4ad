# Installs the tools beside the library: qrvctl and qrv-sim, and on Linux the udev rule that
# lets users open a printer without root, the manual pages and the bash completion.
include(GNUInstallDirs)

install(TARGETS qrvctl qrv-sim RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)

if(NOT WIN32)
    # udev reads /usr/lib/udev/rules.d and /usr/local/lib/udev/rules.d, so the default follows
    # the prefix; a distribution package names its own folder (Debian: /lib/udev/rules.d).
    set(QRV_UDEV_RULES_DIR "lib/udev/rules.d"
        CACHE STRING "Folder of the udev rule, absolute or relative to the install prefix")
    if(IS_ABSOLUTE "${QRV_UDEV_RULES_DIR}")
        set(QRV_UDEV_RULE_PATH "${QRV_UDEV_RULES_DIR}/60-qrv-printers.rules")
    else()
        set(QRV_UDEV_RULE_PATH "${CMAKE_INSTALL_PREFIX}/${QRV_UDEV_RULES_DIR}/60-qrv-printers.rules")
    endif()
    install(FILES ${PROJECT_SOURCE_DIR}/udev/60-qrv-printers.rules
        DESTINATION ${QRV_UDEV_RULES_DIR} COMPONENT tools)
    install(FILES ${PROJECT_SOURCE_DIR}/udev/org.qrv.tools.metainfo.xml
        DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo COMPONENT tools)

    foreach(page IN ITEMS qrvctl qrv-sim)
        configure_file(${PROJECT_SOURCE_DIR}/man/${page}.1.in ${PROJECT_BINARY_DIR}/man/${page}.1 @ONLY)
        install(FILES ${PROJECT_BINARY_DIR}/man/${page}.1
            DESTINATION ${CMAKE_INSTALL_MANDIR}/man1 COMPONENT tools)
    endforeach()

    install(FILES ${PROJECT_SOURCE_DIR}/completion/qrvctl
        DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions COMPONENT tools)
endif()
