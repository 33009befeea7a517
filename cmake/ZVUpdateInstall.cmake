# What is installed: the libraries, their public headers in the folders that they have here, and what
# find_package(ZVUpdate) and pkg-config need. The components of the installation are runtime,
# development and tools.
include(CMakePackageConfigHelpers)

set(publicHeaders
    ZVUpdate.h
    platform/settings/HostInstallation.h
    controller/UpdateFiles.h
    controller/ZVUpdateProc.h
    controller/ZVUpdateProcDelegate.h
    controller/ZVUpdateVersion.h
    platform/threads/DelegateAnchor.h
    platform/files/InstallerKind.h
    platform/files/InstallerLink.h
    platform/Error.h
    platform/Export.h
    preferences/UpdatePreferences.h
    platform/Result.h
    platform/settings/VersionOrder.h
    release/ReleaseKey.h
    release/ReleaseKeys.h
    release/ReleaseSignature.h
    release/ReleaseStatement.h
    service/BaseResponse.h
    service/CheckUpdateResponse.h
    service/HttpFunctionURLEncode.h
    service/LanguageCodes.h
    service/UpdateOutcome.h
    service/UpdateLogicFunc.h
    service/UpdateLogicFuncDelegate.h
    transport/DownloadMode.h
    transport/HttpFunctionPostDelegate.h
    transport/ZVMisc.h
    ui/UpdateInfoWindowControllerDelegate.h)
if(ZVUPDATE_BUILD_WINDOW)
    list(APPEND publicHeaders ui/UpdateInfoWindowController.h)
endif()
foreach(header IN LISTS publicHeaders)
    get_filename_component(folder ${header} DIRECTORY)
    install(FILES ${PROJECT_SOURCE_DIR}/${header}
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ZVUpdate/${folder}
        COMPONENT development)
endforeach()

set(configFolder ${CMAKE_INSTALL_LIBDIR}/cmake/ZVUpdate)

# Installs a library as a component of find_package(ZVUpdate), which can be used from the build tree
# as well. Its targets are in a file of their own, so that a host that wants the core alone need not
# have what the window is made with.
function(zvupdate_install_library library component)
    install(TARGETS ${library}
        EXPORT ZVUpdate${component}Targets
        LIBRARY COMPONENT runtime NAMELINK_COMPONENT development
        ARCHIVE COMPONENT development
        FRAMEWORK DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT runtime
        INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
    install(EXPORT ZVUpdate${component}Targets
        NAMESPACE ZVUpdate::
        DESTINATION ${configFolder}
        COMPONENT development)
    export(EXPORT ZVUpdate${component}Targets
        NAMESPACE ZVUpdate::
        FILE ${PROJECT_BINARY_DIR}/ZVUpdate${component}Targets.cmake)
endfunction()

zvupdate_install_library(ZVUpdateCore Core)
if(ZVUPDATE_BUILD_WINDOW)
    zvupdate_install_library(ZVUpdate Window)
endif()

configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/ZVUpdateConfig.cmake.in
    ${PROJECT_BINARY_DIR}/ZVUpdateConfig.cmake
    INSTALL_DESTINATION ${configFolder})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ZVUpdateConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/ZVUpdateConfig.cmake
    ${PROJECT_BINARY_DIR}/ZVUpdateConfigVersion.cmake
    DESTINATION ${configFolder}
    COMPONENT development)

# For pkg-config. What a shared library is made with is no business of its user's; a static library
# leaves it to its user to link that too, with or without pkg-config's --static.
file(RELATIVE_PATH pkgConfigToPrefix
    ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" pkgConfigToPrefix ${pkgConfigToPrefix})
set(pkgConfigLibdir "\${prefix}")
cmake_path(APPEND pkgConfigLibdir ${CMAKE_INSTALL_LIBDIR})
set(pkgConfigIncludedir "\${prefix}")
cmake_path(APPEND pkgConfigIncludedir ${CMAKE_INSTALL_INCLUDEDIR})

function(zvupdate_install_pkg_config name)
    configure_file(${PROJECT_SOURCE_DIR}/cmake/${name}.pc.in ${PROJECT_BINARY_DIR}/${name}.pc @ONLY)
    install(FILES ${PROJECT_BINARY_DIR}/${name}.pc
        DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig
        COMPONENT development)
endfunction()

set(coreRequires "Qt6Core >= ${ZVUPDATE_QT_MINIMUM}")
set(windowRequires "zvupdate-core = ${PROJECT_VERSION}")
set(coreLibs "-lZVUpdateCore")
if(NOT BUILD_SHARED_LIBS)
    string(APPEND coreRequires
        ", libcurl >= ${ZVUPDATE_CURL_MINIMUM}, libcrypto >= ${ZVUPDATE_OPENSSL_MINIMUM}")
    string(APPEND windowRequires ", Qt6UiTools, Qt6Widgets, Qt6DBus")
    string(APPEND coreLibs " -pthread")
endif()
zvupdate_install_pkg_config(zvupdate-core)
if(ZVUPDATE_BUILD_WINDOW)
    zvupdate_install_pkg_config(zvupdate)
endif()

# What a host's own build installs is for the host to remove.
if(PROJECT_IS_TOP_LEVEL)
    add_custom_target(uninstall
        COMMAND ${CMAKE_COMMAND} -D BUILD=${PROJECT_BINARY_DIR}
            -P ${PROJECT_SOURCE_DIR}/cmake/ZVUpdateUninstall.cmake
        VERBATIM)
endif()
