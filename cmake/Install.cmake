# Installs the library, its public headers, a CMake package, a pkg-config file and the
# documentation, in two components: "runtime" (the versioned library and its soname link) and
# "development" (the rest).
#
#   <prefix>/<libdir>/libQesServiceDataLib.so.<version>, .so.08304 and the .so namelink, and
#   the same three of libQesServiceDataWeb (the web interface)
#   <prefix>/include/QesServiceDataLib/{Util,Logging,Data,Data/Base,Client,Web}/*.h
#   <prefix>/<libdir>/cmake/QesServiceDataLib/QesServiceDataLib{Config,ConfigVersion,Targets}.cmake
#   <prefix>/<libdir>/pkgconfig/QesServiceDataLib.pc and QesServiceDataWeb.pc
#   <prefix>/share/doc/QesServiceDataLib/THREADS.md, and html/ (the API reference) when the
#   `docs` target has built it (Docs.cmake)
#
# <libdir> is GNUInstallDirs' choice: "lib" for most prefixes, Debian's multiarch directory
# ("lib/x86_64-linux-gnu") for /usr. The documentation directory is its CMAKE_INSTALL_DOCDIR.
#
# Clients include headers relative to <prefix>/include/QesServiceDataLib
# (#include <Data/Element.h>), which is the include directory both packages hand out.

include(CMakePackageConfigHelpers)

set(QES_INSTALL_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}/QesServiceDataLib")
set(QES_INSTALL_CMAKEDIR "${CMAKE_INSTALL_LIBDIR}/cmake/QesServiceDataLib")
set(QES_INSTALL_PKGCONFIGDIR "${CMAKE_INSTALL_LIBDIR}/pkgconfig")

install(TARGETS QesServiceDataLib QesServiceDataWeb
    EXPORT QesServiceDataLibTargets
    LIBRARY DESTINATION "${CMAKE_INSTALL_LIBDIR}"
        COMPONENT runtime NAMELINK_COMPONENT development
    ARCHIVE DESTINATION "${CMAKE_INSTALL_LIBDIR}" COMPONENT development
    RUNTIME DESTINATION "${CMAKE_INSTALL_BINDIR}" COMPONENT runtime)

install(DIRECTORY "${PROJECT_SOURCE_DIR}/include/"
    DESTINATION "${QES_INSTALL_INCLUDEDIR}"
    COMPONENT development
    FILES_MATCHING PATTERN "*.h")

install(EXPORT QesServiceDataLibTargets
    NAMESPACE QesServiceDataLib::
    FILE QesServiceDataLibTargets.cmake
    DESTINATION "${QES_INSTALL_CMAKEDIR}"
    COMPONENT development)

configure_package_config_file(
    "${PROJECT_SOURCE_DIR}/cmake/QesServiceDataLibConfig.cmake.in"
    "${PROJECT_BINARY_DIR}/QesServiceDataLibConfig.cmake"
    INSTALL_DESTINATION "${QES_INSTALL_CMAKEDIR}")
# Only the major version carries compatibility; the SOVERSION tracks the full release.
write_basic_package_version_file(
    "${PROJECT_BINARY_DIR}/QesServiceDataLibConfigVersion.cmake"
    VERSION "${PROJECT_VERSION}"
    COMPATIBILITY SameMajorVersion)
install(FILES
    "${PROJECT_BINARY_DIR}/QesServiceDataLibConfig.cmake"
    "${PROJECT_BINARY_DIR}/QesServiceDataLibConfigVersion.cmake"
    DESTINATION "${QES_INSTALL_CMAKEDIR}"
    COMPONENT development)

# The .pc file locates everything from its own directory, so it stays right when the prefix is
# chosen only at install time (cmake --install <build> --prefix <P>) or the tree is moved.
function(qes_pc_path out dir)
    if(IS_ABSOLUTE "${dir}")
        set(${out} "${dir}" PARENT_SCOPE)
    else()
        set(${out} "\${prefix}/${dir}" PARENT_SCOPE)
    endif()
endfunction()
if(IS_ABSOLUTE "${QES_INSTALL_PKGCONFIGDIR}")
    set(QES_PC_PREFIX "${CMAKE_INSTALL_PREFIX}")
else()
    file(RELATIVE_PATH qes_pc_up "/anchor/${QES_INSTALL_PKGCONFIGDIR}" "/anchor")
    string(REGEX REPLACE "/$" "" qes_pc_up "${qes_pc_up}")
    set(QES_PC_PREFIX "\${pcfiledir}/${qes_pc_up}")
endif()
qes_pc_path(QES_PC_LIBDIR "${CMAKE_INSTALL_LIBDIR}")
qes_pc_path(QES_PC_INCLUDEDIR "${CMAKE_INSTALL_INCLUDEDIR}")
configure_file(
    "${PROJECT_SOURCE_DIR}/cmake/QesServiceDataLib.pc.in"
    "${PROJECT_BINARY_DIR}/QesServiceDataLib.pc"
    @ONLY)
configure_file(
    "${PROJECT_SOURCE_DIR}/cmake/QesServiceDataWeb.pc.in"
    "${PROJECT_BINARY_DIR}/QesServiceDataWeb.pc"
    @ONLY)
install(FILES "${PROJECT_BINARY_DIR}/QesServiceDataLib.pc" "${PROJECT_BINARY_DIR}/QesServiceDataWeb.pc"
    DESTINATION "${QES_INSTALL_PKGCONFIGDIR}"
    COMPONENT development)

install(FILES "${PROJECT_SOURCE_DIR}/doc/THREADS.md"
    DESTINATION "${CMAKE_INSTALL_DOCDIR}"
    COMPONENT development)
