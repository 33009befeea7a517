# The libraries, room by room. The sources are compiled once; the shared library is made of them,
# and so is the static archive through which tests and fuzzers reach what the library hides.
add_library(zvupdate_core_objects OBJECT
    platform/settings/HostInstallation.cpp
    controller/LanguageSelection.cpp
    controller/ReplacedClients.cpp
    controller/UpdateFiles.cpp
    controller/ZVUpdateProc.cpp
    controller/ZVUpdateVersion.cpp
    platform/crypto/Ed25519.cpp
    platform/threads/ApplicationEnd.cpp
    platform/Error.cpp
    platform/files/FileDigest.cpp
    platform/files/Files.cpp
    platform/files/InstallerKind.cpp
    platform/files/InstallerLink.cpp
    platform/http/HttpErrors.cpp
    platform/http/HttpExchange.cpp
    platform/http/HttpHandle.cpp
    platform/http/HttpReply.cpp
    platform/http/HttpTransfer.cpp
    platform/settings/Json.cpp
    platform/settings/Locale.cpp
    platform/files/LockedFile.cpp
    platform/threads/MainQueue.cpp
    platform/files/PartialFile.cpp
    platform/settings/Preferences.cpp
    platform/threads/RunLoop.cpp
    platform/threads/SerialQueue.cpp
    platform/settings/SystemLog.cpp
    platform/settings/Text.cpp
    platform/settings/VersionOrder.cpp
    preferences/UpdatePreferences.cpp
    platform/threads/Worker.cpp
    release/ReleaseKey.cpp
    release/ReleaseKeys.cpp
    release/ReleaseSignature.cpp
    release/ReleaseStatement.cpp
    release/SignatureText.cpp
    service/BaseResponse.cpp
    service/CheckUpdateResponse.cpp
    service/HttpFunctionURLEncode.cpp
    service/UpdateLogicFunc.cpp
    service/UpdateOutcome.cpp
    service/XXTEA.cpp
    transport/HttpFunctionPost.cpp
    transport/ZVMisc.cpp)
set_target_properties(zvupdate_core_objects PROPERTIES
    POSITION_INDEPENDENT_CODE ON
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
set_property(SOURCE service/UpdateLogicFunc.cpp APPEND PROPERTY COMPILE_DEFINITIONS
    ZVUPDATE_SERVICE_URL="${ZVUPDATE_SERVICE_URL}"
    $<$<BOOL:${ZVUPDATE_OVERRIDE_FILE}>:ZVUPDATE_OVERRIDE_FILE>)
# The day of the build: no clock that is right shows an earlier one. SOURCE_DATE_EPOCH, when set, is
# heeded.
string(TIMESTAMP ZVUPDATE_BUILD_DATE "%Y-%m-%d" UTC)
set_property(SOURCE service/CheckUpdateResponse.cpp APPEND PROPERTY
    COMPILE_DEFINITIONS ZVUPDATE_BUILD_DATE="${ZVUPDATE_BUILD_DATE}")
target_include_directories(zvupdate_core_objects PUBLIC ${PROJECT_SOURCE_DIR})
target_link_libraries(zvupdate_core_objects
    PUBLIC Qt6::Core CURL::libcurl OpenSSL::Crypto Threads::Threads
    PRIVATE zvupdate_compile_options)

# Hosts write #include <ZVUpdate/ZVUpdate.h>; in the build tree that is a link to the sources.
file(MAKE_DIRECTORY ${PROJECT_BINARY_DIR}/include)
file(CREATE_LINK ${PROJECT_SOURCE_DIR} ${PROJECT_BINARY_DIR}/include/ZVUpdate SYMBOLIC)

# What both libraries have in common: their version, what they export, and their form on macOS.
function(zvupdate_set_up_library library)
    target_compile_features(${library} PUBLIC cxx_std_20)
    target_include_directories(${library}
        INTERFACE $<BUILD_INTERFACE:${PROJECT_BINARY_DIR}/include>)
    set_target_properties(${library} PROPERTIES
        VERSION ${PROJECT_VERSION}
        SOVERSION ${PROJECT_VERSION_MAJOR})
    # Named one by one rather than by linking to zvupdate_compile_options, which is not exported.
    target_link_options(${library} PRIVATE
        $<TARGET_PROPERTY:zvupdate_compile_options,INTERFACE_LINK_OPTIONS>)

    get_target_property(type ${library} TYPE)
    if(type STREQUAL "SHARED_LIBRARY" AND CMAKE_SYSTEM_NAME STREQUAL "Linux")
        set(map ${PROJECT_SOURCE_DIR}/cmake/ZVUpdate.map)
        target_link_options(${library} PRIVATE LINKER:--version-script=${map})
        set_property(TARGET ${library} APPEND PROPERTY LINK_DEPENDS ${map})
    endif()

    # On macOS each library is a framework, whose install name is
    # @rpath/LIBRARY.framework/Versions/A/LIBRARY. Nothing has been built on macOS yet: there these
    # lines, like the rest, are still to be tried.
    set_target_properties(${library} PROPERTIES
        FRAMEWORK ON
        FRAMEWORK_VERSION A
        MACOSX_FRAMEWORK_IDENTIFIER invalid.zvupdate.${library}
        MACOSX_FRAMEWORK_BUNDLE_VERSION ${PROJECT_VERSION}
        MACOSX_FRAMEWORK_SHORT_VERSION_STRING ${PROJECT_VERSION}
        MACOSX_RPATH ON
        INSTALL_NAME_DIR "@rpath"
        MACHO_COMPATIBILITY_VERSION ${PROJECT_VERSION_MAJOR}.0.0
        MACHO_CURRENT_VERSION ${PROJECT_VERSION})
endfunction()

add_library(ZVUpdateCore)
add_library(ZVUpdate::Core ALIAS ZVUpdateCore)
target_sources(ZVUpdateCore PRIVATE $<TARGET_OBJECTS:zvupdate_core_objects>)
target_link_libraries(ZVUpdateCore
    PUBLIC Qt6::Core
    PRIVATE CURL::libcurl OpenSSL::Crypto Threads::Threads)
set_target_properties(ZVUpdateCore PROPERTIES EXPORT_NAME Core)
zvupdate_set_up_library(ZVUpdateCore)

if(ZVUPDATE_BUILD_TESTS OR ZVUPDATE_BUILD_FUZZERS)
    add_library(zvupdate_core_internals STATIC)
    target_link_libraries(zvupdate_core_internals PUBLIC zvupdate_core_objects)
endif()
