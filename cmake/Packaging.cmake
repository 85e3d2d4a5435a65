# Debian packages, made with `cpack -G DEB` from the install components of Install.cmake:
#
#   libqesservicedatalib<soversion>  component "runtime": libQesServiceDataLib.so.<version>,
#                                    libQesServiceDataWeb.so.<version> and their soname links;
#                                    depends on what dpkg-shlibdeps finds (Poco Foundation,
#                                    JSON and Net among it)
#   libqesservicedatalib-dev         component "development": the .so link, headers, CMake
#                                    package, .pc file and the documentation (THREADS.md, and
#                                    the API reference if built); depends on exactly that
#                                    runtime package and on libpoco-dev
#   qes-registryd                    component "daemon": the qes-registryd program, the media
#                                    data it serves by default and the browser page (when the
#                                    source tree has one); depends on the runtime package
#
# The other example programs (component "examples") are in no package.
#
# Packages install into /usr with the library in Debian's multiarch directory, so the build
# must be configured that way: -DCMAKE_INSTALL_PREFIX=/usr natively (GNUInstallDirs then picks
# lib/<triplet>), and -DCMAKE_INSTALL_PREFIX=/usr -DCMAKE_INSTALL_LIBDIR=lib/<triplet> when
# cross-compiling, where GNUInstallDirs never does. cpack refuses a build laid out otherwise.

find_program(QES_DPKG dpkg)
if(NOT QES_DPKG)
    message(STATUS "dpkg not found: no Debian packages")
    return()
endif()

string(TOLOWER "lib${PROJECT_NAME}" qes_deb_name)
set(QES_PACKAGE_MAINTAINER "${PROJECT_NAME} maintainers <maintainers@qesservicedatalib.example>"
    CACHE STRING "Maintainer field of the Debian packages")

# Debian's name for the target architecture and its multiarch triplet. A cross build asks the
# tool chain, not dpkg, which only knows the machine it runs on.
if(CMAKE_CROSSCOMPILING)
    set(qes_deb_arch_aarch64 arm64)
    set(qes_deb_arch_x86_64 amd64)
    set(qes_deb_arch "${qes_deb_arch_${CMAKE_SYSTEM_PROCESSOR}}")
    if(NOT qes_deb_arch)
        set(qes_deb_arch "${CMAKE_SYSTEM_PROCESSOR}")
    endif()
else()
    execute_process(COMMAND "${QES_DPKG}" --print-architecture
        OUTPUT_VARIABLE qes_deb_arch
        OUTPUT_STRIP_TRAILING_WHITESPACE
        COMMAND_ERROR_IS_FATAL ANY)
endif()
if(CMAKE_LIBRARY_ARCHITECTURE)
    set(qes_multiarch "${CMAKE_LIBRARY_ARCHITECTURE}")
else()
    set(qes_multiarch "${CMAKE_SYSTEM_PROCESSOR}-linux-gnu")
endif()

# dpkg-shlibdeps maps each needed library to the installed package that ships it, so it can
# only work when Poco of the target architecture is installed through dpkg; otherwise the
# runtime package names its dependencies itself, as dpkg-shlibdeps does for a native build.
set(qes_shlibdeps ON)
if(CMAKE_CROSSCOMPILING)
    foreach(qes_poco_package IN ITEMS libpocofoundation80 libpocojson80 libpoconet80)
        execute_process(
            COMMAND dpkg-query -W [[-f=${db:Status-Status}]] ${qes_poco_package}:${qes_deb_arch}
            OUTPUT_VARIABLE qes_poco_status
            ERROR_QUIET)
        if(NOT qes_poco_status STREQUAL "installed")
            set(qes_shlibdeps OFF)
        endif()
    endforeach()
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME "${PROJECT_NAME}")
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_CONTACT "${QES_PACKAGE_MAINTAINER}")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime development daemon)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
set(CPACK_COMPONENT_DAEMON_DEPENDS runtime)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION
    "This package holds the shared libraries: the data model and its web interface.")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
    "This package holds the headers, the CMake package, the pkg-config file and\nthe documentation for building clients.")
set(CPACK_COMPONENT_DAEMON_DESCRIPTION
    "This package holds qes-registryd, which serves the example media service over\nHTTP and WebSocket, with its data and browser page.")

set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE "${qes_deb_arch}")
set(CPACK_DEBIAN_PACKAGE_SOURCE "${qes_deb_name}")
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME "${qes_deb_name}${QES_SOVERSION}")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# The shlibs file lets dpkg-shlibdeps of client packages depend on this one. Only the runtime
# package holds a shared object, so the setting has no effect on the other.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ${qes_shlibdeps})
if(NOT qes_shlibdeps)
    # What dpkg-shlibdeps gives for an arm64 build on a machine with arm64 Poco installed.
    set(CPACK_DEBIAN_RUNTIME_PACKAGE_DEPENDS "libc6 (>= 2.17), libgcc-s1 (>= 3.0), \
libpocofoundation80 (>= 1.11.0), libpocojson80 (>= 1.11.0), libpoconet80 (>= 1.11.0), \
libstdc++6 (>= 12)")
endif()

set(CPACK_DEBIAN_DAEMON_PACKAGE_NAME qes-registryd)
set(CPACK_DEBIAN_DAEMON_PACKAGE_SECTION net)
set(CPACK_DEBIAN_DAEMON_PACKAGE_SHLIBDEPS ${qes_shlibdeps})

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME "${qes_deb_name}-dev")
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS libpoco-dev)

# A build laid out for another prefix must not become a package: cpack reads this file first
# and stops with the reason.
if(NOT (CMAKE_INSTALL_PREFIX MATCHES "^/usr/?$"
        AND CMAKE_INSTALL_LIBDIR STREQUAL "lib/${qes_multiarch}"))
    set(CPACK_PROJECT_CONFIG_FILE "${PROJECT_BINARY_DIR}/QesCPackLayoutError.cmake")
    file(CONFIGURE OUTPUT "${CPACK_PROJECT_CONFIG_FILE}" CONTENT "message(FATAL_ERROR \"\
Debian packages need a build configured with -DCMAKE_INSTALL_PREFIX=/usr \
-DCMAKE_INSTALL_LIBDIR=lib/${qes_multiarch}; this one installs to ${CMAKE_INSTALL_PREFIX} \
and ${CMAKE_INSTALL_LIBDIR}\")\n")
endif()

include(CPack)
