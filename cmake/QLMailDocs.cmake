# The reference: Doxygen over the public headers, written as HTML to <build>/docs/html and
# installed with the development files. A Doxygen warning (an undocumented public member, a
# broken reference) fails both the docs target and the test docs_warnings.
find_package(Doxygen QUIET)
if(NOT DOXYGEN_FOUND)
    message(STATUS "Doxygen not found: no docs target")
    return()
endif()

set(QLMAIL_DOC_SOURCES ${PROJECT_SOURCE_DIR}/docs/mainpage.md)
foreach(hdr ${QLMAIL_PUBLIC_HEADERS})
    list(APPEND QLMAIL_DOC_SOURCES ${PROJECT_SOURCE_DIR}/src/${hdr})
endforeach()
list(JOIN QLMAIL_DOC_SOURCES " " QLMAIL_DOC_INPUT)
configure_file(${PROJECT_SOURCE_DIR}/docs/Doxyfile.in ${PROJECT_BINARY_DIR}/docs/Doxyfile @ONLY)

add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/docs/html/index.html
                   COMMAND Doxygen::doxygen ${PROJECT_BINARY_DIR}/docs/Doxyfile
                   DEPENDS ${QLMAIL_DOC_SOURCES} ${PROJECT_BINARY_DIR}/docs/Doxyfile
                   COMMENT "Writing the reference to ${PROJECT_BINARY_DIR}/docs/html" VERBATIM)
add_custom_target(docs DEPENDS ${PROJECT_BINARY_DIR}/docs/html/index.html)
# Only when built: a plain install does not need Doxygen.
install(DIRECTORY ${PROJECT_BINARY_DIR}/docs/html/ DESTINATION ${CMAKE_INSTALL_DOCDIR}/html
        COMPONENT dev OPTIONAL)

if(QLMAIL_BUILD_TESTS)
    add_test(NAME docs_warnings
             COMMAND Doxygen::doxygen ${PROJECT_BINARY_DIR}/docs/Doxyfile)
endif()
