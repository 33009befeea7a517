# What is installed: the libraries, their public headers in the folders that they have here, and
# what find_package(ZVUpdate) needs.
include(CMakePackageConfigHelpers)

set(libraries ZVUpdateCore)
set(publicHeaders
    ZVUpdate.h
    controller/UpdateFiles.h
    controller/ZVUpdateProc.h
    controller/ZVUpdateProcDelegate.h
    controller/ZVUpdateVersion.h
    platform/DelegateAnchor.h
    platform/Error.h
    platform/Export.h
    platform/Guarded.h
    platform/UpdatePreferences.h
    service/BaseResponse.h
    service/CheckUpdateResponse.h
    service/HttpFunctionURLEncode.h
    service/LanguageCodes.h
    service/UpdateLogicFunc.h
    service/UpdateLogicFuncDelegate.h
    transport/DownloadMode.h
    transport/HttpFunctionPostDelegate.h
    transport/ZVMisc.h
    ui/UpdateInfoWindowControllerDelegate.h)
if(ZVUPDATE_BUILD_WINDOW)
    list(APPEND libraries ZVUpdate)
    list(APPEND publicHeaders ui/UpdateInfoWindowController.h)
endif()

install(TARGETS ${libraries}
    EXPORT ZVUpdateTargets
    INCLUDES DESTINATION ${CMAKE_INSTALL_INCLUDEDIR})
foreach(header IN LISTS publicHeaders)
    get_filename_component(folder ${header} DIRECTORY)
    install(FILES ${PROJECT_SOURCE_DIR}/${header}
        DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/ZVUpdate/${folder})
endforeach()

set(configFolder ${CMAKE_INSTALL_LIBDIR}/cmake/ZVUpdate)
install(EXPORT ZVUpdateTargets NAMESPACE ZVUpdate:: DESTINATION ${configFolder})
configure_package_config_file(${PROJECT_SOURCE_DIR}/cmake/ZVUpdateConfig.cmake.in
    ${PROJECT_BINARY_DIR}/ZVUpdateConfig.cmake
    INSTALL_DESTINATION ${configFolder})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/ZVUpdateConfigVersion.cmake
    COMPATIBILITY SameMajorVersion)
install(FILES
    ${PROJECT_BINARY_DIR}/ZVUpdateConfig.cmake
    ${PROJECT_BINARY_DIR}/ZVUpdateConfigVersion.cmake
    DESTINATION ${configFolder})
