# Debian packages, made by `cpack -G DEB` in a build configured with -DCMAKE_INSTALL_PREFIX=/usr
# (scripts/packages.sh does both):
#   libyovolib<major>  the shared library alone (component yovolib_runtime)
#   libyovolib-dev     headers, the link-time name, the CMake package, yovolib.pc
#                      (component yovolib_development)
#   yledgerd           the sample daemon, its tool, its unit and its settings (component yledgerd),
#                      when the examples are built
# Each install rule names its component where it is written (src/, examples/ledger/); this file
# describes the packages and adds what Debian wants in every one of them.

set(YOVO_DEB_MAINTAINER "YovoLib maintainers <maintainers@users.noreply.c-seed-273996b1.example>"
    CACHE STRING "Maintainer field of the Debian packages")

set(yovo_runtime_package libyovolib${PROJECT_VERSION_MAJOR})
set(yovo_packages_dir ${PROJECT_BINARY_DIR}/packaging)

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME yovolib)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "${YOVO_DEB_MAINTAINER}")
# The first line of each package's description below is its synopsis. CPack would put the
# project's description before it, unless the summary keeps the value that CPack takes as unset.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${CMAKE_PROJECT_NAME} built using CMake")
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_COMPONENTS_ALL yovolib_runtime yovolib_development)
if(TARGET yledgerd)
    list(APPEND CPACK_COMPONENTS_ALL yledgerd)
endif()
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# Installed files are stripped; the unit and the settings have absolute destinations, which only
# a DESTDIR installation keeps inside the package's tree.
set(CPACK_STRIP_FILES ON)
set(CPACK_SET_DESTDIR ON)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
find_program(YOVO_DPKG dpkg)
if(YOVO_DPKG)
    execute_process(COMMAND ${YOVO_DPKG} --print-architecture
        OUTPUT_VARIABLE CPACK_DEBIAN_PACKAGE_ARCHITECTURE OUTPUT_STRIP_TRAILING_WHITESPACE)
endif()

# The runtime package: the library, with the shlibs entry through which packages built against it
# depend on it, and the ldconfig trigger. (CPack adds a postinst and a postrm that run ldconfig as
# well, for any library under /usr/lib; lintian warns about them, and they are harmless.)
set(CPACK_DEBIAN_YOVOLIB_RUNTIME_PACKAGE_NAME ${yovo_runtime_package})
set(CPACK_DEBIAN_YOVOLIB_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_YOVOLIB_RUNTIME_PACKAGE_RECOMMENDS "libqt5sql5-sqlite, libqt5sql5-mysql")
set(CPACK_DEBIAN_YOVOLIB_RUNTIME_DESCRIPTION
    "foundation library for long-running server daemons
YovoLib gives a C++17 daemon on Qt 5 the plumbing every service needs:
levelled logging with size rotation and crash dumps, named threads and events,
cross-process semaphores and locks, a hash table in shared memory, typed
messages over TCP, ini and JSON readers, MySQL and SQLite pools, HTTP, hashes
and a service frame for systemd.
.
This package holds the shared library.")
file(MAKE_DIRECTORY ${yovo_packages_dir}/runtime ${yovo_packages_dir}/shlibs-root/DEBIAN)
file(WRITE ${yovo_packages_dir}/runtime/shlibs
     "libyovolib ${PROJECT_VERSION_MAJOR} ${yovo_runtime_package} (>= ${PROJECT_VERSION})\n")
file(WRITE ${yovo_packages_dir}/runtime/triggers "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_YOVOLIB_RUNTIME_PACKAGE_CONTROL_EXTRA
    ${yovo_packages_dir}/runtime/shlibs ${yovo_packages_dir}/runtime/triggers)

# dpkg-shlibdeps finds the library of the package built beside the daemon's in a tree of its own
# (the library's soname in a folder under one with a DEBIAN/shlibs), so the daemon depends on the
# runtime package through the same shlibs entry that any other package built against it would use.
# The tree is made when cpack runs (cmake/yovo_cpack_project.cmake.in), from the built library.
file(COPY ${yovo_packages_dir}/runtime/shlibs DESTINATION ${yovo_packages_dir}/shlibs-root/DEBIAN)
file(GENERATE OUTPUT ${yovo_packages_dir}/library CONTENT "$<TARGET_SONAME_FILE:yovolib>")
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${yovo_packages_dir}/shlibs-root/lib)

# The development package.
set(CPACK_DEBIAN_YOVOLIB_DEVELOPMENT_PACKAGE_NAME libyovolib-dev)
set(CPACK_DEBIAN_YOVOLIB_DEVELOPMENT_PACKAGE_SECTION libdevel)
# The public headers include Qt's and the C library's only; the CMake package and yovolib.pc ask
# for Qt's modules (qtbase5-dev has them all) and threads.
set(CPACK_DEBIAN_YOVOLIB_DEVELOPMENT_PACKAGE_DEPENDS
    "${yovo_runtime_package} (= ${PROJECT_VERSION}), qtbase5-dev")
set(CPACK_DEBIAN_YOVOLIB_DEVELOPMENT_PACKAGE_SUGGESTS "cmake, pkg-config")
set(CPACK_DEBIAN_YOVOLIB_DEVELOPMENT_DESCRIPTION
    "foundation library for long-running server daemons (development files)
YovoLib gives a C++17 daemon on Qt 5 the plumbing every service needs:
levelled logging with size rotation and crash dumps, named threads and events,
cross-process semaphores and locks, a hash table in shared memory, typed
messages over TCP, ini and JSON readers, MySQL and SQLite pools, HTTP, hashes
and a service frame for systemd.
.
This package holds the headers (yovolib/yovolib.h includes them all), the CMake
package (find_package(YovoLib), target YovoLib::YovoLib) and yovolib.pc.")

# The daemon's package. Its settings are a conffile; its SQLite database needs Qt's driver, which
# Qt loads as a plugin and dpkg-shlibdeps can't see.
set(CPACK_DEBIAN_YLEDGERD_PACKAGE_NAME yledgerd)
set(CPACK_DEBIAN_YLEDGERD_PACKAGE_SECTION net)
set(CPACK_DEBIAN_YLEDGERD_PACKAGE_DEPENDS "libqt5sql5-sqlite")
set(CPACK_DEBIAN_YLEDGERD_DESCRIPTION
    "message ledger daemon built on YovoLib
yledgerd accepts typed messages over TCP and stores each one in SQLite before
it acknowledges it. It publishes its counters in a shared-memory table and runs
under systemd (Type=notify, with a watchdog) or in a terminal (option -e).
.
yledger, the operator's tool, reads those counters, sends messages, reads and
changes directives of ini files in place, checks JSON files and prints type
digests.")
file(MAKE_DIRECTORY ${yovo_packages_dir}/yledgerd)
file(WRITE ${yovo_packages_dir}/yledgerd/conffiles
     "${CMAKE_INSTALL_FULL_SYSCONFDIR}/yledgerd/yledgerd.ini\n")
set(CPACK_DEBIAN_YLEDGERD_PACKAGE_CONTROL_EXTRA ${yovo_packages_dir}/yledgerd/conffiles)

# Every package carries its copyright file and a changelog under /usr/share/doc/<package>/.
string(TIMESTAMP yovo_changelog_date "%a, %d %b %Y %H:%M:%S +0000" UTC)
set(yovo_changelog "yovolib (${PROJECT_VERSION}) unstable; urgency=medium

  * Version ${PROJECT_VERSION} of YovoLib.

 -- ${YOVO_DEB_MAINTAINER}  ${yovo_changelog_date}
")
file(WRITE ${yovo_packages_dir}/changelog "${yovo_changelog}")
find_program(YOVO_GZIP gzip)
if(YOVO_GZIP)
    execute_process(COMMAND ${YOVO_GZIP} -9nc ${yovo_packages_dir}/changelog
        OUTPUT_FILE ${yovo_packages_dir}/changelog.gz)
endif()
foreach(component IN LISTS CPACK_COMPONENTS_ALL)
    string(TOUPPER ${component} name)
    set(package ${CPACK_DEBIAN_${name}_PACKAGE_NAME})
    install(FILES ${PROJECT_SOURCE_DIR}/cmake/debian_copyright RENAME copyright
        DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package}
        COMPONENT ${component} EXCLUDE_FROM_ALL)
    install(FILES ${yovo_packages_dir}/changelog.gz
        DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package}
        COMPONENT ${component} EXCLUDE_FROM_ALL)
endforeach()

# Read by cpack: refuses a build whose prefix is not the system's and makes the shlibs tree.
configure_file(${CMAKE_CURRENT_LIST_DIR}/yovo_cpack_project.cmake.in
    ${yovo_packages_dir}/cpack_project.cmake @ONLY)
set(CPACK_PROJECT_CONFIG_FILE ${yovo_packages_dir}/cpack_project.cmake)

include(CPack)
