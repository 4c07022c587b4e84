# What `cmake --install` puts where, by component, and the Debian packages
# CPack makes of the components (one package each):
#
#   module        libkivo.so.<version> and its SONAME link         libkivo0
#                 (names no library of ours: the firmware's
#                 platform and phonebook library come from the
#                 process that loads it)
#   dev           kivo/kivo.h, the libkivo.so link, the CMake      libkivo-dev
#                 package libkivo, libkivo.pc
#   tools         kivo-host, webconfd and its sample phonebook,    kivo-tools
#                 the stand-in platform and phonebook libraries,
#                 private to the tools (<libdir>/kivo)
#   standins-dev  the firmware's headers (firmware-api) and the    kivo-standins-dev
#                 stand-ins' own, links, CMake package
#                 kivo-standins and .pc files (on the target the
#                 firmware provides these)
#
# An installed tree finds its parts relative to itself (RUNPATH $ORIGIN,
# the CMake packages' own directory, pkg-config's ${pcfiledir}): it holds
# no build path and may be moved.

set(KIVO_SOVERSION 0)
# Shared libraries are not programs: no execute bit (Debian policy).
set(KIVO_LIB_PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ)
set(KIVO_CMAKE_DIR ${CMAKE_INSTALL_LIBDIR}/cmake)
file(RELATIVE_PATH KIVO_BIN_TO_LIB ${CMAKE_INSTALL_FULL_BINDIR} ${CMAKE_INSTALL_FULL_LIBDIR})
file(RELATIVE_PATH KIVO_PC_TO_PREFIX ${CMAKE_INSTALL_FULL_LIBDIR}/pkgconfig ${CMAKE_INSTALL_PREFIX})
string(REGEX REPLACE "/$" "" KIVO_PC_TO_PREFIX "${KIVO_PC_TO_PREFIX}")

set_target_properties(kivo kivoplatform phonebook PROPERTIES
  VERSION ${PROJECT_VERSION} SOVERSION ${KIVO_SOVERSION})
set_target_properties(kivoplatform PROPERTIES EXPORT_NAME platform)
# The stand-in libraries are the tools' own, in a directory of their own
# that the loader does not search: no firmware has them, and no other
# program is to find them. The programs find them from bin/.
set(KIVO_PRIVATE_LIBDIR ${CMAKE_INSTALL_LIBDIR}/kivo)
set_target_properties(kivo-host webconfd PROPERTIES
  INSTALL_RPATH "$ORIGIN/${KIVO_BIN_TO_LIB}/kivo;$ORIGIN/${KIVO_BIN_TO_LIB}")

# ---- module and dev ---------------------------------------------------------
install(TARGETS kivo EXPORT libkivoTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} PERMISSIONS ${KIVO_LIB_PERMISSIONS}
          COMPONENT module NAMELINK_COMPONENT dev)
install(FILES kivo/kivo.h DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kivo COMPONENT dev)
install(EXPORT libkivoTargets NAMESPACE libkivo:: DESTINATION ${KIVO_CMAKE_DIR}/libkivo COMPONENT dev)

# ---- tools and standins-dev -------------------------------------------------
install(TARGETS kivoplatform phonebook platform_headers firmware_api EXPORT kivo-standinsTargets
  LIBRARY DESTINATION ${KIVO_PRIVATE_LIBDIR} PERMISSIONS ${KIVO_LIB_PERMISSIONS}
          COMPONENT tools NAMELINK_COMPONENT standins-dev)
install(TARGETS kivo-host webconfd RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR} COMPONENT tools)
# For `webconfd --import`; a new database gets the same records built in.
install(FILES standins/webconfd/sample-phonebook.jsonl DESTINATION ${CMAKE_INSTALL_DATADIR}/kivo COMPONENT tools)
# Whole directories, so that every header the stand-ins declare goes along;
# the recording platform is the unit tests' and is not installed.
install(DIRECTORY firmware-api/include/ standins/platform/include/ standins/phonebook/include/ DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}
  COMPONENT standins-dev FILES_MATCHING PATTERN "*.h" PATTERN "recording.h" EXCLUDE)
install(EXPORT kivo-standinsTargets NAMESPACE kivo:: DESTINATION ${KIVO_CMAKE_DIR}/kivo-standins
  COMPONENT standins-dev)

# ---- CMake packages and pkg-config files ------------------------------------
include(CMakePackageConfigHelpers)
foreach(package libkivo kivo-standins)
  set(component dev)
  if(package STREQUAL "kivo-standins")
    set(component standins-dev)
  endif()
  configure_package_config_file(cmake/${package}Config.cmake.in
    ${CMAKE_CURRENT_BINARY_DIR}/${package}Config.cmake
    INSTALL_DESTINATION ${KIVO_CMAKE_DIR}/${package})
  write_basic_package_version_file(${CMAKE_CURRENT_BINARY_DIR}/${package}ConfigVersion.cmake
    COMPATIBILITY SameMinorVersion)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${package}Config.cmake
                ${CMAKE_CURRENT_BINARY_DIR}/${package}ConfigVersion.cmake
          DESTINATION ${KIVO_CMAKE_DIR}/${package} COMPONENT ${component})
endforeach()

foreach(pc libkivo:dev kivo-phonebook:standins-dev kivo-platform:standins-dev)
  string(REPLACE ":" ";" pc "${pc}")
  list(GET pc 0 name)
  list(GET pc 1 component)
  configure_file(cmake/${name}.pc.in ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc @ONLY)
  install(FILES ${CMAKE_CURRENT_BINARY_DIR}/${name}.pc
          DESTINATION ${CMAKE_INSTALL_LIBDIR}/pkgconfig COMPONENT ${component})
endforeach()

# ---- Debian packages --------------------------------------------------------
set(KIVO_DEB_PACKAGES module:libkivo0 dev:libkivo-dev tools:kivo-tools standins-dev:kivo-standins-dev)

# Every package carries its copyright and changelog (Debian policy).
execute_process(COMMAND gzip -9n -c INPUT_FILE ${CMAKE_CURRENT_SOURCE_DIR}/packaging/changelog
                OUTPUT_FILE ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz COMMAND_ERROR_IS_FATAL ANY)
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS packaging/changelog)
foreach(entry ${KIVO_DEB_PACKAGES})
  string(REPLACE ":" ";" entry "${entry}")
  list(GET entry 0 component)
  list(GET entry 1 package)
  string(TOUPPER ${component} COMPONENT)
  set(CPACK_DEBIAN_${COMPONENT}_PACKAGE_NAME ${package})
  install(FILES packaging/copyright ${CMAKE_CURRENT_BINARY_DIR}/changelog.gz
          DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${package} COMPONENT ${component})
  list(APPEND CPACK_COMPONENTS_ALL ${component})
endforeach()

if(CMAKE_SYSTEM_PROCESSOR MATCHES "^arm")
  set(KIVO_DEB_ARCH armhf)
elseif(CMAKE_SYSTEM_PROCESSOR MATCHES "^(x86_64|AMD64)$")
  set(KIVO_DEB_ARCH amd64)
else()
  set(KIVO_DEB_ARCH ${CMAKE_SYSTEM_PROCESSOR})
endif()

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_DIRECTORY ${CMAKE_BINARY_DIR}/packages)
set(CPACK_PACKAGING_INSTALL_PREFIX ${CMAKE_INSTALL_PREFIX})
set(CPACK_STRIP_FILES ON)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_ARCHITECTURE ${KIVO_DEB_ARCH})
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "libkivo developers <dev@libkivo.invalid>")
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
# shlibs files and the ldconfig trigger for the packages with libraries;
# Depends are written here, the same for both architectures (dpkg-shlibdeps
# knows no armhf libraries on the build machine).
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY "=")
# The loader's cache learns of the module by the ldconfig trigger; the
# tools' libraries are private and not in its path.
set(CPACK_DEBIAN_MODULE_PACKAGE_CONTROL_EXTRA ${CMAKE_CURRENT_SOURCE_DIR}/packaging/triggers)
set(kivo_version "${PROJECT_VERSION}")
set(kivo_runtime "libc6, libgcc-s1, libstdc++6, libjsoncpp25")

# The module's own package: it needs the C and C++ runtime and jsoncpp;
# the platform and phonebook library are the loading process's (the
# firmware's, or on a development machine kivo-host's).
set(CPACK_DEBIAN_MODULE_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_MODULE_PACKAGE_DEPENDS "${kivo_runtime}")
set(CPACK_DEBIAN_MODULE_DESCRIPTION "remote phonebook search backend module
libkivo.so is loaded by the firmware's host process and carries out the
phonebook library's searches and changes as JSON requests to the
configuration daemon webconfd@Local.")

set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEV_PACKAGE_DEPENDS "libkivo0 (= ${kivo_version}), kivo-standins-dev (= ${kivo_version})")
set(CPACK_DEBIAN_DEV_DESCRIPTION "remote phonebook search backend module - development files
The header kivo/kivo.h declaring the module's exported functions, the
link libkivo.so, the CMake package libkivo (target libkivo::kivo) and
the pkg-config file libkivo.pc.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION misc)
set(CPACK_DEBIAN_TOOLS_PACKAGE_DEPENDS "${kivo_runtime}, libsqlite3-0, libedit2, libkivo0 (= ${kivo_version})")
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "host and configuration daemon to run the libkivo module
kivo-host loads libkivo.so and runs its test console; webconfd answers
the module's requests from a SQLite phonebook with a sample phonebook.
Both run on stand-ins of the firmware's platform and phonebook
libraries, which this package carries as private libraries.")

set(CPACK_DEBIAN_STANDINS-DEV_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_STANDINS-DEV_PACKAGE_DEPENDS
    "kivo-tools (= ${kivo_version}), libjsoncpp-dev, libboost-dev")
set(CPACK_DEBIAN_STANDINS-DEV_DESCRIPTION "stand-ins of the firmware's platform and phonebook libraries - development files
The firmware's headers as this project knows them, the headers and
links of the stand-in platform and phonebook libraries, the CMake
package kivo-standins and the pkg-config files kivo-platform.pc and
kivo-phonebook.pc: what a module builds against where no firmware
SDK provides it.")

include(CPack)
