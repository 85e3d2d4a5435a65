# The `docs` target: the API reference from the public headers, in <build>/doc/html.
# It exists only when Doxygen is installed (tools/setup.sh --docs), and fails on any Doxygen
# warning, so an undocumented public declaration breaks it. Once built, the reference is
# installed with the development files into <prefix>/share/doc/QesServiceDataLib/html; the
# install does not build it.

find_package(Doxygen)
if(NOT DOXYGEN_FOUND)
    message(STATUS "Doxygen not found: no 'docs' target")
    return()
endif()

set(QES_DOCS_OUTPUT_DIR "${PROJECT_BINARY_DIR}/doc")
configure_file("${PROJECT_SOURCE_DIR}/doc/Doxyfile.in" "${QES_DOCS_OUTPUT_DIR}/Doxyfile" @ONLY)

add_custom_target(docs
    COMMAND Doxygen::doxygen "${QES_DOCS_OUTPUT_DIR}/Doxyfile"
    WORKING_DIRECTORY "${QES_DOCS_OUTPUT_DIR}"
    COMMENT "Building the API reference in ${QES_DOCS_OUTPUT_DIR}/html"
    VERBATIM)

install(DIRECTORY "${QES_DOCS_OUTPUT_DIR}/html"
    DESTINATION "${CMAKE_INSTALL_DOCDIR}"
    COMPONENT development
    OPTIONAL)
