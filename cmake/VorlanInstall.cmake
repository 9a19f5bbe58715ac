# What `cmake --install` copies and what `cpack` packs, in three parts: the shared library, what is needed to
# build with it, and the programs. Every path is relative to the prefix, so that the tree may be moved.

include(CMakePackageConfigHelpers)
include(GNUInstallDirs)

set(package_dir "${CMAKE_INSTALL_LIBDIR}/cmake/Vorlan")
install(TARGETS vorlan vorlan_${VORLAN_OTHER_KIND} EXPORT VorlanTargets
    LIBRARY COMPONENT Runtime NAMELINK_COMPONENT Development
    ARCHIVE COMPONENT Development
    FILE_SET HEADERS COMPONENT Development)
install(EXPORT VorlanTargets NAMESPACE Vorlan:: DESTINATION "${package_dir}" COMPONENT Development)

configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/VorlanConfig.cmake.in VorlanConfig.cmake
    INSTALL_DESTINATION "${package_dir}")
write_basic_package_version_file(VorlanConfigVersion.cmake COMPATIBILITY SameMajorVersion)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/VorlanConfig.cmake"
    "${CMAKE_CURRENT_BINARY_DIR}/VorlanConfigVersion.cmake"
    DESTINATION "${package_dir}" COMPONENT Development)

file(RELATIVE_PATH pc_to_prefix "${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig" "${CMAKE_INSTALL_PREFIX}")
string(REGEX REPLACE "/$" "" pc_to_prefix "${pc_to_prefix}")
configure_file(${CMAKE_CURRENT_LIST_DIR}/vorlan.pc.in vorlan.pc @ONLY)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/vorlan.pc"
    DESTINATION "${CMAKE_INSTALL_LIBDIR}/pkgconfig" COMPONENT Development)

if(TARGET clampcat)
    install(TARGETS clampcat COMPONENT Tools)
    install(FILES "${PROJECT_SOURCE_DIR}/tools/clampcat/clampcat.1"
        DESTINATION "${CMAKE_INSTALL_MANDIR}/man1" COMPONENT Tools)
    # The system's own directories need no path, and packages must not have one.
    if(NOT CMAKE_INSTALL_PREFIX STREQUAL "/usr")
        file(RELATIVE_PATH bin_to_lib "${CMAKE_INSTALL_FULL_BINDIR}" "${CMAKE_INSTALL_FULL_LIBDIR}")
        set_target_properties(clampcat PROPERTIES INSTALL_RPATH "$ORIGIN/${bin_to_lib}")
    endif()
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_CONTACT "Vorlan maintainers <maintainers@vorlan.example>")
set(CPACK_PACKAGING_INSTALL_PREFIX "${CMAKE_INSTALL_PREFIX}")
set(CPACK_COMPONENTS_ALL Runtime Development)
if(TARGET clampcat)
    list(APPEND CPACK_COMPONENTS_ALL Tools)
endif()
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "${PROJECT_DESCRIPTION} (shared library)")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME "libvorlan${PROJECT_VERSION_MAJOR}")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_DEVELOPMENT_DESCRIPTION "${PROJECT_DESCRIPTION} (development files)")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME libvorlan-dev)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
    "${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME} (= ${PROJECT_VERSION}), libstdc++-dev")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "clampcat, which thins the repeating lines of a log")
set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME vorlan-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SHLIBDEPS ON)
if(BUILD_SHARED_LIBS)
    # The library that clampcat needs is no package of this machine yet: found in the build, named here.
    set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}/vorlan")
    set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS
        "${CPACK_DEBIAN_RUNTIME_PACKAGE_NAME} (>= ${PROJECT_VERSION})")
endif()
include(CPack)
