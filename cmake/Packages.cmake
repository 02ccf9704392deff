# The Debian packages; scripts/package makes them.

set(KV_PACKAGE_CONTACT "KVScheduler maintainers <kvscheduler@example.invalid>" CACHE STRING
    "Whom a package names as its maintainer")

set(CPACK_GENERATOR DEB)
set(CPACK_COMPONENTS_ALL agent logging)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
# Beneath a folder of the package's own, so that what belongs to /etc lands in the package.
set(CPACK_SET_DESTDIR ON)
set(CPACK_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)
# Whatever umask the build runs with.
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PRE_BUILD_SCRIPTS ${CMAKE_CURRENT_LIST_DIR}/FinishPackages.cmake)

# Each package's description has a first line of its own.
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "")
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${KV_PACKAGE_CONTACT})
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_DEBIAN_AGENT_PACKAGE_NAME kvscheduler)
set(CPACK_DEBIAN_AGENT_PACKAGE_SECTION utils)
set(CPACK_COMPONENT_AGENT_DESCRIPTION "agent that starts scheduled backups
KVScheduler looks at the backup sets of Kelvara+ about once a minute and
starts the one that is due: daily, on chosen weekdays, or every so many minutes
or hours. On a machine without Kelvara+ the backup runner kvbackup, which comes
with it, edits the sets and copies with rsync.

It works with and without a desktop, and every decision can be traced.")
set(CPACK_DEBIAN_AGENT_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_AGENT_PACKAGE_DEPENDS rsync)
# What draws the status icon, and what opens logs from its menu.
set(CPACK_DEBIAN_AGENT_PACKAGE_RECOMMENDS "qt6-qpa-plugins, qt6-wayland, xdg-utils")
set(CPACK_DEBIAN_AGENT_PACKAGE_SUGGESTS "bash-completion, notification-daemon")
set(CPACK_DEBIAN_AGENT_PACKAGE_CONTROL_EXTRA ${PROJECT_SOURCE_DIR}/packaging/debian/conffiles)

set(CPACK_DEBIAN_LOGGING_PACKAGE_NAME libkv-logging-dev)
set(CPACK_DEBIAN_LOGGING_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_LOGGING_DESCRIPTION "logging framework for C++20 programs
Leveled messages that are delivered in order to loggers that run in parallel,
files that roll by size and age, colours on a terminal. No message is dropped.

The static libraries, their headers, a CMake package and a pkg-config file.")
set(CPACK_DEBIAN_LOGGING_PACKAGE_DEPENDS "libfmt-dev (>= 9), libexpat1-dev, libicu-dev (>= 72)")

include(CPack)
