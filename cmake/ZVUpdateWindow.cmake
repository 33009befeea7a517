# The library that adds the prompt window. Without it, the core alone serves hosts that have a user
# interface of their own, and needs nothing of Qt but Qt Core.
find_package(Qt6 ${ZVUPDATE_QT_MINIMUM} QUIET OPTIONAL_COMPONENTS Widgets UiTools DBus LinguistTools)
foreach(part Qt6::Widgets Qt6::UiTools Qt6::DBus Qt6::lrelease)
    if(NOT TARGET ${part})
        message(FATAL_ERROR "The prompt window needs ${part}, which was not found. Install Qt "
            "Widgets, UI Tools, D-Bus and Linguist Tools (on Debian: qt6-base-dev libqt6opengl6-dev "
            "qt6-tools-dev qt6-tools-dev-tools qt6-l10n-tools), or build without the window: "
            "-DZVUPDATE_BUILD_WINDOW=OFF")
    endif()
endforeach()

# The bundle: the layout, and a folder for each language with its compiled strings table. A folder
# that is added to resources/ is one language more.
set(bundle ${PROJECT_BINARY_DIR}/bundle)
set(layout resources/UpdateInfoWindowController.ui)
file(GLOB tables CONFIGURE_DEPENDS RELATIVE ${PROJECT_SOURCE_DIR}/resources
    ${PROJECT_SOURCE_DIR}/resources/*.lproj/Localizable.ts)
set(compiledTables)
set(entries "<file alias=\"UpdateInfoWindowController.ui\">${PROJECT_SOURCE_DIR}/${layout}</file>\n")
foreach(table IN LISTS tables)
    get_filename_component(folder ${table} DIRECTORY)
    file(MAKE_DIRECTORY ${bundle}/${folder})
    add_custom_command(
        OUTPUT ${bundle}/${folder}/Localizable.qm
        COMMAND Qt6::lrelease -silent ${PROJECT_SOURCE_DIR}/resources/${table}
            -qm ${bundle}/${folder}/Localizable.qm
        DEPENDS ${PROJECT_SOURCE_DIR}/resources/${table}
        VERBATIM)
    list(APPEND compiledTables ${bundle}/${folder}/Localizable.qm)
    string(APPEND entries "<file>${folder}/Localizable.qm</file>\n")
endforeach()
file(CONFIGURE OUTPUT ${bundle}/ZVUpdate.qrc
    CONTENT "<RCC><qresource prefix=\"/ZVUpdate\">\n@entries@</qresource></RCC>\n" @ONLY)
# Version 1 of the format keeps no times of files, so that the library is the same whenever it is built.
add_custom_command(
    OUTPUT ${bundle}/ZVUpdateResources.cpp
    COMMAND Qt6::rcc --format-version 1 --name ZVUpdate
        -o ${bundle}/ZVUpdateResources.cpp ${bundle}/ZVUpdate.qrc
    DEPENDS ${bundle}/ZVUpdate.qrc ${layout} ${compiledTables}
    VERBATIM)

add_library(zvupdate_window_objects OBJECT
    controller/ZVUpdateProcWindow.cpp
    platform/desktop/ApplicationIcon.cpp
    platform/settings/Bundle.cpp
    platform/desktop/KeyGuard.cpp
    platform/desktop/PlainTextView.cpp
    platform/desktop/PowerOffObserver.cpp
    platform/desktop/WindowLayout.cpp
    platform/desktop/WindowSystem.cpp
    ui/UpdateInfoWindowController.cpp
    ui/VerticalCenterTextField.cpp
    ${bundle}/ZVUpdateResources.cpp)
set_target_properties(zvupdate_window_objects PROPERTIES
    AUTOMOC ON
    POSITION_INDEPENDENT_CODE ON
    CXX_VISIBILITY_PRESET hidden
    VISIBILITY_INLINES_HIDDEN ON)
target_include_directories(zvupdate_window_objects PUBLIC ${PROJECT_SOURCE_DIR})
target_link_libraries(zvupdate_window_objects
    PUBLIC Qt6::Widgets Qt6::UiTools Qt6::DBus
    PRIVATE zvupdate_compile_options)

add_library(ZVUpdate)
add_library(ZVUpdate::ZVUpdate ALIAS ZVUpdate)
target_sources(ZVUpdate PRIVATE $<TARGET_OBJECTS:zvupdate_window_objects>)
target_link_libraries(ZVUpdate
    PUBLIC ZVUpdateCore
    PRIVATE Qt6::Widgets Qt6::UiTools Qt6::DBus)
zvupdate_set_up_library(ZVUpdate)

if(ZVUPDATE_BUILD_TESTS)
    add_library(zvupdate_window_internals STATIC)
    target_link_libraries(zvupdate_window_internals
        PUBLIC zvupdate_window_objects zvupdate_core_internals)
endif()
