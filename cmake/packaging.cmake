# `cpack` in the build folder makes two Debian packages, of what is installed as `runtime` and as
# `development`. Programs: dpkg-shlibdeps (package dpkg-dev), file.
if(NOT PROJECT_IS_TOP_LEVEL OR CMAKE_CROSSCOMPILING OR QMIBTREE_SANITIZE)
  return()
endif()

# Debian wants the licence of each package under the package's own name; a plain install does without.
set(runtime_package libqmibtree${PROJECT_VERSION_MAJOR})
set(development_package libqmibtree-dev)
foreach(part runtime development)
  install(FILES LICENSE DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${${part}_package}
    RENAME copyright COMPONENT ${part} EXCLUDE_FROM_ALL)
endforeach()

# Where libraries go depends on the prefix and is settled when configuring. So what is packed is built in
# a folder of its own, as this one but for /usr, and without tests and mibctl.
set(packed ${PROJECT_BINARY_DIR}/packed)
set(configure "\"${CMAKE_COMMAND}\" -S \"${PROJECT_SOURCE_DIR}\" -B \"${packed}\" -G \"${CMAKE_GENERATOR}\"")
foreach(setting CMAKE_BUILD_TYPE CMAKE_C_COMPILER CMAKE_CXX_COMPILER CMAKE_C_FLAGS CMAKE_CXX_FLAGS)
  string(APPEND configure " \"-D${setting}=${${setting}}\"")
endforeach()
string(APPEND configure
  " -DCMAKE_INSTALL_PREFIX=/usr -DQMIBTREE_TESTS=OFF -DQMIBTREE_BUILD_MIBCTL=OFF")
set(CPACK_INSTALL_COMMANDS "${configure}" "\"${CMAKE_COMMAND}\" --build \"${packed}\"")
set(CPACK_INSTALL_CMAKE_PROJECTS "${packed};qmibtree;ALL;/")
set(CPACK_COMPONENTS_ALL runtime development)

set(CPACK_GENERATOR DEB)
set(CPACK_VERBATIM_VARIABLES ON)
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
  OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PACKAGE_CONTACT "qmibtree maintainers <maintainers@localhost>")
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# What packages of hosts will depend on.
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

set(about
"A tree of typed parameters in memory, kept on flash: schema, values, change
events, configuration documents, and the components that parameters take
effect in.")

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${runtime_package})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SHLIBDEPS ON)
set(CPACK_COMPONENT_RUNTIME_DESCRIPTION "${about}
.
This package holds the shared library.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${development_package})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_DEPENDS
  "${runtime_package} (= ${PROJECT_VERSION}), libexpat1-dev")
set(CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION "${about}
.
This package holds the header, the static library, what pkg-config and CMake
need to find them, and for tests of hosts the test kit and the flash stand-in.")
include(CPack)
