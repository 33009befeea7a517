# Debian packages, made by "cpack" in the build folder: the components of the installation, each with
# the documents that Debian wants. What a package depends on is read from how its files are linked.
if(NOT (ZVUPDATE_INSTALL AND ZVUPDATE_BUILD_WINDOW AND ZVUPDATE_BUILD_TOOLS AND BUILD_SHARED_LIBS))
    message(FATAL_ERROR "The packages hold the shared libraries and the programs; set "
        "ZVUPDATE_INSTALL, ZVUPDATE_BUILD_WINDOW, ZVUPDATE_BUILD_TOOLS and BUILD_SHARED_LIBS to ON, or "
        "ZVUPDATE_BUILD_PACKAGES to OFF.")
endif()
if(NOT TARGET zvupdate-spdx)
    message(FATAL_ERROR "The packages hold the SPDX document, which needs Python 3.")
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME zvupdate)
set(CPACK_PACKAGE_CONTACT ${ZVUPDATE_PACKAGE_MAINTAINER})
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_COMPONENTS_ALL runtime development reference tools)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})

set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "") # Each package has its own.

set(runtimePackage libzvupdate${PROJECT_VERSION_MAJOR})
set(about "ZVUpdate asks the maker's update service whether there is a newer build of
an application, downloads and verifies it in the background, and tells the
application when its installer is ready.")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${runtimePackage})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/debian/triggers)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "software updates for desktop applications - libraries
${about}

This package has the shared libraries: the core, and the one with the prompt
window.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libzvupdate-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "${runtimePackage} (= ${PROJECT_VERSION}), qt6-base-dev (>= ${ZVUPDATE_QT_MINIMUM})")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "software updates for desktop applications - development
${about}

This package has what applications are built with: the headers, the files for
CMake and pkg-config, the guides, and examples.")

set(CPACK_DEBIAN_REFERENCE_PACKAGE_NAME libzvupdate-doc)
set(CPACK_DEBIAN_REFERENCE_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_REFERENCE_PACKAGE_ARCHITECTURE all)
set(CPACK_DEBIAN_REFERENCE_PACKAGE_SHLIBDEPS OFF)
set(CPACK_DEBIAN_REFERENCE_DESCRIPTION "software updates for desktop applications - API reference
${about}

This package has the reference of all that the libraries' headers declare.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME zvupdate-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${runtimePackage} (>= ${PROJECT_VERSION})")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "software updates for desktop applications - programs
${about}

This package has zvupdate, which updates from the command line, for scripts
and for applications in other languages; zvupdate-apply, which replaces an
application by its new version; zvupdate-window, which shows the prompt window
for such applications; zvupdate-publish, which publishes releases; and
zvupdate-service, an update service for development and trials.")

find_program(GZIP gzip REQUIRED)
set(documents ${PROJECT_BINARY_DIR}/debian)
configure_file(${PROJECT_SOURCE_DIR}/packaging/debian/changelog.in ${documents}/changelog @ONLY)
execute_process(COMMAND ${GZIP} --best --no-name --force --keep ${documents}/changelog
    COMMAND_ERROR_IS_FATAL ANY)
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    string(TOUPPER ${component} COMPONENT)
    install(FILES ${PROJECT_SOURCE_DIR}/packaging/debian/copyright ${documents}/changelog.gz
        DESTINATION share/doc/${CPACK_DEBIAN_${COMPONENT}_PACKAGE_NAME}
        COMPONENT ${component})
    # The reference is of all architectures, and the SPDX document is of what is built for one.
    if(NOT component STREQUAL reference)
        install(FILES ${PROJECT_BINARY_DIR}/zvupdate.spdx.json
            DESTINATION share/doc/${CPACK_DEBIAN_${COMPONENT}_PACKAGE_NAME}
            COMPONENT ${component})
    endif()
endforeach()

# The guides, with what they refer to in the places where they do.
set(guides share/doc/${CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME})
install(DIRECTORY docs examples
    DESTINATION ${guides}
    COMPONENT development
    PATTERN "Doxyfile" EXCLUDE
    PATTERN "reference" EXCLUDE)
install(FILES CHANGELOG.md SECURITY.md DESTINATION ${guides} COMPONENT development)
install(FILES tools/zvupdate-service/README.md
    DESTINATION ${guides}/tools/zvupdate-service
    COMPONENT development)

find_program(DOXYGEN doxygen REQUIRED)
add_custom_target(reference ALL
    COMMAND ${PROJECT_SOURCE_DIR}/docs/reference ${PROJECT_BINARY_DIR}/reference
    VERBATIM)
install(DIRECTORY ${PROJECT_BINARY_DIR}/reference/html
    DESTINATION share/doc/${CPACK_DEBIAN_REFERENCE_PACKAGE_NAME}
    COMPONENT reference)

include(CPack)
