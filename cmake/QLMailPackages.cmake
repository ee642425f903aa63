# Debian packages, one per install component, made by `cpack -G DEB` in a build configured
# with the prefix /usr (scripts/package.sh does both):
#   libqlmail1      runtime  the shared library
#   libqlmail-dev   dev      headers, qlmail.pc, the CMake package and the HTML reference
#   qlmail-tools    tools    the qlmail command
#   libqlmail-java  java     qlmail.jar and the link by which the JVM finds the library
# dpkg-shlibdeps finds what the binaries need from the system (libchardet, the C and C++
# libraries); the packages of this build depend on libqlmail1 of the same version.
set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_NAME qlmail)
set(CPACK_PACKAGE_VERSION ${PROJECT_VERSION})
set(QLMAIL_PACKAGE_MAINTAINER "qlmail developers <qlmail@localhost>"
    CACHE STRING "Maintainer field of the Debian packages")
set(CPACK_PACKAGE_CONTACT ${QLMAIL_PACKAGE_MAINTAINER})
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/packages)
set(CPACK_STRIP_FILES ON)

set(CPACK_COMPONENTS_ALL runtime dev)
if(QLMAIL_BUILD_TOOLS)
    list(APPEND CPACK_COMPONENTS_ALL tools)
endif()
if(QLMAIL_BUILD_JAVA)
    list(APPEND CPACK_COMPONENTS_ALL java)
endif()
set(CPACK_DEB_COMPONENT_INSTALL ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_RELEASE 1)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# The tool's libqlmail.so.1 is found in the build tree; its package comes from the component
# dependencies below.
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${PROJECT_BINARY_DIR})
set(CPACK_DEBIAN_ENABLE_COMPONENT_DEPENDS ON)

set(CPACK_DEBIAN_RUNTIME_PACKAGE_NAME libqlmail${QLMAIL_SOVERSION})
set(CPACK_DEBIAN_RUNTIME_PACKAGE_SECTION libs)
set(CPACK_DEBIAN_RUNTIME_DESCRIPTION "mail parsing library: runtime
qlmail parses a stored Internet mail message (RFC 822 and MIME) once into a compact
format string of byte offsets, then serves headers, decoded text and attachments
from the message file through that string, and rewrites messages in place.")
# A shlibs file, so that dpkg-shlibdeps of other packages finds this one (only the runtime
# package holds a shared object).
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS_POLICY ">=")

set(CPACK_DEBIAN_DEV_PACKAGE_NAME libqlmail-dev)
set(CPACK_DEBIAN_DEV_PACKAGE_SECTION libdevel)
set(CPACK_COMPONENT_DEV_DEPENDS runtime)
set(CPACK_DEBIAN_DEV_DESCRIPTION "mail parsing library: development files
Headers, pkg-config and CMake package files for building against libqlmail,
and its reference in HTML under /usr/share/doc/qlmail/html.")

set(CPACK_DEBIAN_TOOLS_PACKAGE_NAME qlmail-tools)
set(CPACK_DEBIAN_TOOLS_PACKAGE_SECTION mail)
set(CPACK_COMPONENT_TOOLS_DEPENDS runtime)
set(CPACK_DEBIAN_TOOLS_DESCRIPTION "mail parsing library: command-line tool
The qlmail command lists the parts of a message, writes format strings beside
stored messages, and reads headers, text and attachments through them.")

set(CPACK_DEBIAN_JAVA_PACKAGE_NAME libqlmail-java)
set(CPACK_DEBIAN_JAVA_PACKAGE_SECTION java)
set(CPACK_COMPONENT_JAVA_DEPENDS runtime)
set(CPACK_DEBIAN_JAVA_DESCRIPTION "mail parsing library: Java binding
The org.quillon.util classes in /usr/share/java/qlmail.jar, with the natives of
libqlmail found by the JVM without further settings.")

include(CPack)
