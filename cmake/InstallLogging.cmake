# The logging framework as a package of its own: find_package(kv) gives kv::logging to any C++20
# program. `cmake --install BUILD --component logging` installs it alone.

include(CMakePackageConfigHelpers)

kv_install_library(logging FOLDER logging)
kv_install_library(platform FOLDER platform)
kv_install_library(platform_linux FOLDER platform/linux)

set(kv_package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/kv)
install(EXPORT kvTargets NAMESPACE kv:: DESTINATION ${kv_package_folder} COMPONENT logging)
configure_package_config_file(${CMAKE_CURRENT_LIST_DIR}/kvConfig.cmake.in
  ${CMAKE_BINARY_DIR}/kvConfig.cmake INSTALL_DESTINATION ${kv_package_folder})
write_basic_package_version_file(${CMAKE_BINARY_DIR}/kvConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES ${CMAKE_BINARY_DIR}/kvConfig.cmake ${CMAKE_BINARY_DIR}/kvConfigVersion.cmake
        DESTINATION ${kv_package_folder} COMPONENT logging)

# The same for those who build without CMake. It finds itself, so that the folder may be moved.
set(kv_pkgconfig_folder ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH KV_PREFIX_FROM_PKGCONFIG /prefix/${kv_pkgconfig_folder} /prefix)
string(REGEX REPLACE "/$" "" KV_PREFIX_FROM_PKGCONFIG ${KV_PREFIX_FROM_PKGCONFIG})
configure_file(${PROJECT_SOURCE_DIR}/packaging/kv-logging.pc.in
               ${CMAKE_BINARY_DIR}/kv-logging.pc @ONLY)
install(FILES ${CMAKE_BINARY_DIR}/kv-logging.pc DESTINATION ${kv_pkgconfig_folder}
        COMPONENT logging)
install(FILES ${PROJECT_SOURCE_DIR}/docs/logging.md
        DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/libkv-logging-dev COMPONENT logging)
