# Headers that nearly every file includes are compiled once for all targets, and once more, with
# GoogleMock, for the tests. That takes flags that agree, position independence among them, and the two
# targets that compile the headers may have no definition that another target lacks: what only one
# file of theirs needs is defined for that file.
set(common
    <QCoreApplication> <QDateTime> <QDir> <QJsonArray> <QJsonDocument> <QJsonObject>
    <chrono> <functional> <memory> <mutex> <thread>)
target_precompile_headers(zvupdate_core_objects PRIVATE ${common})
if(ZVUPDATE_BUILD_TESTS)
    target_precompile_headers(zvupdate_test_support PRIVATE ${common} <gmock/gmock.h>)
endif()

function(zvupdate_share_precompiled_headers folder)
    get_property(targets DIRECTORY ${folder} PROPERTY BUILDSYSTEM_TARGETS)
    foreach(target IN LISTS targets)
        get_target_property(libraries ${target} LINK_LIBRARIES)
        if(target MATCHES "^zvupdate_(core_objects|test_support)$" OR
                NOT "zvupdate_compile_options" IN_LIST libraries)
            continue()
        endif()
        set(owner zvupdate_core_objects)
        if("zvupdate_test_support" IN_LIST libraries)
            set(owner zvupdate_test_support)
        endif()
        target_precompile_headers(${target} REUSE_FROM ${owner})
    endforeach()

    get_property(folders DIRECTORY ${folder} PROPERTY SUBDIRECTORIES)
    foreach(inner IN LISTS folders)
        zvupdate_share_precompiled_headers(${inner})
    endforeach()
endfunction()
zvupdate_share_precompiled_headers(${PROJECT_SOURCE_DIR})
