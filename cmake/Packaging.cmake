# The Debian packages of what `cmake --install` installs, one a component, as Debian splits a
# library: `cpack -G DEB` in the build directory writes
#   libarchspeccoreX.Y    the shared library (lib), named after its soname
#   libarchspeccore-dev   headers, the tooling layer's static library, CMake and pkg-config (dev)
#   archspeccore-tools    the archspec tool, its manual page and bash completion (tool)
#   python3-archspec      the Python package (python)
#   archspeccore-doc      the reference site (doc)
# for the components that the build has. Every package carries the copyright file and the
# changelog; the library carries its shlibs file, the ldconfig trigger and the one lintian
# override that its contract calls for.

set(ARCHSPEC_MAINTAINER "libArchSpecCore maintainers <maintainers@archspeccore.invalid>")
set(ARCHSPEC_SOVERSION ${PROJECT_VERSION_MAJOR}.${PROJECT_VERSION_MINOR})
set(ARCHSPEC_LIB_PACKAGE libarchspeccore${ARCHSPEC_SOVERSION})
set(ARCHSPEC_PACKAGES lib ${ARCHSPEC_LIB_PACKAGE} dev libarchspeccore-dev)
if(TARGET archspec)
  list(APPEND ARCHSPEC_PACKAGES tool archspeccore-tools)
endif()
if(TARGET archspec_python)
  list(APPEND ARCHSPEC_PACKAGES python python3-archspec)
endif()
if(TARGET reference)
  list(APPEND ARCHSPEC_PACKAGES doc archspeccore-doc)
endif()

# The changelog, compressed without a time stamp so that two builds give the same package.
set(ARCHSPEC_PACKAGING ${PROJECT_SOURCE_DIR}/packaging)
configure_file(${ARCHSPEC_PACKAGING}/changelog.in ${CMAKE_CURRENT_BINARY_DIR}/packaging/changelog
               @ONLY)
execute_process(COMMAND gzip -9 -n -c ${CMAKE_CURRENT_BINARY_DIR}/packaging/changelog
                OUTPUT_FILE ${CMAKE_CURRENT_BINARY_DIR}/packaging/changelog.gz
                COMMAND_ERROR_IS_FATAL ANY)
configure_file(${ARCHSPEC_PACKAGING}/lintian-overrides.in
               ${CMAKE_CURRENT_BINARY_DIR}/packaging/lintian-overrides @ONLY)

# Each package's documents, only where a package is made (a component's own install), so that
# `cmake --install` of the whole project does not write them.
while(ARCHSPEC_PACKAGES)
  list(POP_FRONT ARCHSPEC_PACKAGES component package)
  string(TOUPPER ${component} upper)
  set(CPACK_DEBIAN_${upper}_PACKAGE_NAME ${package})
  install(FILES ${ARCHSPEC_PACKAGING}/copyright ${CMAKE_CURRENT_BINARY_DIR}/packaging/changelog.gz
          DESTINATION ${CMAKE_INSTALL_DATADIR}/doc/${package} COMPONENT ${component}
          EXCLUDE_FROM_ALL)
endwhile()
install(FILES ${CMAKE_CURRENT_BINARY_DIR}/packaging/lintian-overrides
        DESTINATION ${CMAKE_INSTALL_DATADIR}/lintian/overrides RENAME ${ARCHSPEC_LIB_PACKAGE}
        COMPONENT lib EXCLUDE_FROM_ALL)

set(CPACK_PACKAGE_NAME archspeccore)
set(CPACK_PACKAGE_VENDOR "libArchSpecCore maintainers")
set(CPACK_PACKAGE_CONTACT ${ARCHSPEC_MAINTAINER})
set(CPACK_DEBIAN_PACKAGE_MAINTAINER ${ARCHSPEC_MAINTAINER})
set(CPACK_DEBIAN_PACKAGE_SOURCE archspeccore)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_GENERATOR DEB)
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_STRIP_FILES ON)
# dpkg-shlibdeps names the libraries of the system that each package needs; the library's own
# packages ask for it by version, below. The library's package declares its soname (shlibs) and
# has ldconfig run when it is installed.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# It runs in the directory of the package being made: the library's files lie beside it, in `lib`.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ../lib/usr/${CMAKE_INSTALL_LIBDIR})
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

# What every description shares, after the package's own first paragraph.
set(about "libArchSpecCore answers, for each generation of a reconfigurable dataflow\n\
accelerator, its parameters, opcodes, enumerants, registers, features and\n\
constraints, and gives one bit-exact record per tile type that reads, writes,\n\
prints and walks its fields.")

set(CPACK_COMPONENT_LIB_DESCRIPTION "architecture description library of a dataflow accelerator's compiler
${about}
\nThis package holds the shared library.")
set(CPACK_DEBIAN_LIB_PACKAGE_SECTION libs)
# ldconfig runs through dpkg's trigger (packaging/triggers). CPack would also write a postinst and
# a postrm that call it themselves, as Debian no longer does, unless the package names scripts of
# its own: it names two that do not exist, which CPack then leaves out (saying so).
set(CPACK_DEBIAN_LIB_PACKAGE_CONTROL_EXTRA ${ARCHSPEC_PACKAGING}/triggers
    ${CMAKE_CURRENT_BINARY_DIR}/packaging/none/postinst
    ${CMAKE_CURRENT_BINARY_DIR}/packaging/none/postrm)
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)

set(CPACK_COMPONENT_DEV_DESCRIPTION "development files of libArchSpecCore
${about}
\nThis package holds the headers, the static tooling layer (tile layouts,\n\
sparse listings, names and checks), the CMake package ArchSpecCore and the\n\
pkg-config modules archspeccore and archspectooling.")
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEV_DEPENDS lib)

set(CPACK_COMPONENT_TOOL_DESCRIPTION "inspector of accelerator generations and tile configurations
${about}
\nThis package holds the archspec command-line tool, which lists generations,\n\
answers accessors, encodes and decodes tile configurations and shows where a\n\
bit lies.")
set(CPACK_DEBIAN_TOOL_PACKAGE_SECTION devel)
set(CPACK_COMPONENT_TOOL_DEPENDS lib)

set(CPACK_COMPONENT_PYTHON_DESCRIPTION "Python 3 bindings of libArchSpecCore
${about}
\nThis package holds the Python 3 module archspec.")
set(CPACK_DEBIAN_PYTHON_PACKAGE_SECTION python)
# The extension is built for this one version of Python.
math(EXPR next_minor "${Python3_VERSION_MINOR} + 1")
set(CPACK_DEBIAN_PYTHON_PACKAGE_DEPENDS "python3 (>= ${Python3_VERSION_MAJOR}.${Python3_VERSION_MINOR}~), \
python3 (<< ${Python3_VERSION_MAJOR}.${next_minor})")
set(CPACK_COMPONENT_PYTHON_DEPENDS lib)

set(CPACK_COMPONENT_DOC_DESCRIPTION "reference site of libArchSpecCore
${about}
\nThis package holds the reference site: static pages of every generation, its\n\
tiles, fields, enumerations and parameters.")
set(CPACK_DEBIAN_DOC_PACKAGE_SECTION doc)
set(CPACK_DEBIAN_DOC_PACKAGE_ARCHITECTURE all)

include(CPack)
