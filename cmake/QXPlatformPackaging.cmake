# Debian packages made by CPack from the install components (`make package`,
# scripts/package.sh): libqxplatform (the shared library), libqxplatform-dev
# (headers, CMake package, pkg-config file, documentation, no static library)
# and qxplatform-tools (the tool and its manual page). Dependencies on other
# packages come from the binaries through dpkg-shlibdeps.
option(QXPLATFORM_DEBIAN_LAYOUT
  "Install the per-package copyright and changelog files Debian packages carry" OFF)

set(QXPLATFORM_DEB_RUNTIME libqxplatform)
set(QXPLATFORM_DEB_DEV libqxplatform-dev)
set(QXPLATFORM_DEB_TOOLS qxplatform-tools)

if(QXPLATFORM_DEBIAN_LAYOUT)
  # /usr/share/doc/<package>/copyright and changelog.gz in each package (a
  # native package: its changelog is the Debian one).
  set(deb_dir "${PROJECT_BINARY_DIR}/debian")
  string(TIMESTAMP deb_date "%a, %d %b %Y %H:%M:%S +0000" UTC)
  foreach(component runtime development tools)
    if(component STREQUAL "runtime")
      set(pkg ${QXPLATFORM_DEB_RUNTIME})
    elseif(component STREQUAL "development")
      set(pkg ${QXPLATFORM_DEB_DEV})
    else()
      set(pkg ${QXPLATFORM_DEB_TOOLS})
    endif()
    file(MAKE_DIRECTORY "${deb_dir}/${pkg}")
    file(READ "${PROJECT_SOURCE_DIR}/LICENSE" license_text)
    file(WRITE "${deb_dir}/${pkg}/copyright"
      "Format: https://www.debian.org/doc/packaging-manuals/copyright-format/1.0/\n"
      "Upstream-Name: QXPlatform\n"
      "\n"
      "Files: *\n"
      "Copyright: 2026 The QXPlatform developers\n"
      "License: Apache-2.0\n"
      " On Debian systems the full text of the Apache License, Version 2.0 is in\n"
      " /usr/share/common-licenses/Apache-2.0.\n")
    file(WRITE "${deb_dir}/${pkg}/changelog"
      "${pkg} (${PROJECT_VERSION}) unstable; urgency=medium\n"
      "\n"
      "  * Release ${PROJECT_VERSION}; the changes are in CHANGELOG.md of the\n"
      "    source and in /usr/share/doc/qxplatform/CHANGELOG.md.\n"
      "\n"
      " -- QXPlatform developers <qxplatform@example.org>  ${deb_date}\n")
    execute_process(COMMAND gzip -9 -n -f "${deb_dir}/${pkg}/changelog")
    install(FILES "${deb_dir}/${pkg}/copyright" "${deb_dir}/${pkg}/changelog.gz"
      DESTINATION ${CMAKE_INSTALL_DATAROOTDIR}/doc/${pkg}
      PERMISSIONS OWNER_READ OWNER_WRITE GROUP_READ WORLD_READ
      COMPONENT ${component})
  endforeach()
endif()

set(CPACK_PACKAGE_NAME qxplatform)
set(CPACK_PACKAGE_VENDOR "The QXPlatform developers")
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(CPACK_PACKAGE_CONTACT "QXPlatform developers <qxplatform@example.org>")
set(CPACK_RESOURCE_FILE_LICENSE "${PROJECT_SOURCE_DIR}/LICENSE")
set(CPACK_GENERATOR DEB)
set(CPACK_STRIP_FILES ON)
set(CPACK_COMPONENTS_ALL runtime development tools)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The tool links the library of its sibling package, found in the build tree;
# that dependency is the component dependency below.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS "${PROJECT_BINARY_DIR}")
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)
set(CPACK_DEBIAN_PACKAGE_PRIORITY optional)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME ${QXPLATFORM_DEB_RUNTIME})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
# The shlibs file states the compatibility rule of docs/abi.md for programs
# built against the library; the ldconfig trigger refreshes the linker cache.
file(WRITE "${PROJECT_BINARY_DIR}/debian/shlibs"
  "libQXPlatform ${PROJECT_VERSION_MAJOR} ${QXPLATFORM_DEB_RUNTIME} (>= ${PROJECT_VERSION})\n")
# (CPack also adds maintainer scripts calling ldconfig, which lintian notes
# as redundant with the trigger: a warning.)
file(WRITE "${PROJECT_BINARY_DIR}/debian/triggers" "activate-noawait ldconfig\n")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_EXTRA
  "${PROJECT_BINARY_DIR}/debian/shlibs;${PROJECT_BINARY_DIR}/debian/triggers")
set(CPACK_DEBIAN_RUNTIME_PACKAGE_CONTROL_STRICT_PERMISSION ON)
string(CONCAT CPACK_COMPONENT_RUNTIME_DESCRIPTION
  "QXPlatform: streams, binary I/O, files, threads and system information\n"
  "The platform layer of a family of scientific toolkits: buffered streams\n"
  "over memory, files, standard-library streams, gzip and zstd, a stream\n"
  "manager that opens streams by name, a big-endian binary layer, files,\n"
  "threads that attach to a Java VM, time, host and user information.\n"
  "This package holds the shared library.")

set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_NAME ${QXPLATFORM_DEB_DEV})
set(CPACK_DEBIAN_DEVELOPMENT_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEVELOPMENT_DEPENDS runtime)
string(CONCAT CPACK_COMPONENT_DEVELOPMENT_DESCRIPTION
  "QXPlatform: development files\n"
  "Headers, the CMake package (find_package(QXPlatform)), the pkg-config\n"
  "file, the documentation, the examples and the API reference of\n"
  "QXPlatform, the platform layer of a family of scientific toolkits.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME ${QXPLATFORM_DEB_TOOLS})
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION utils)
set(CPACK_COMPONENT_TOOLS_DEPENDS runtime)
string(CONCAT CPACK_COMPONENT_TOOLS_DESCRIPTION
  "QXPlatform: the qxplatform command-line tool\n"
  "Copies, compresses and uncompresses streams (gzip and zstd) through the\n"
  "QXPlatform stream manager, and prints what the library knows of the\n"
  "machine and the version report.")

include(CPack)
