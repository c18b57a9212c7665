# Target `doc`: the API reference in doc/html of the build folder, made by doxygen from the public
# header's comments. Any warning fails it, any exported symbol without text, and any comment that does
# not come out word for word.
find_program(DOXYGEN doxygen)
if(DOXYGEN)
  set(doc ${PROJECT_SOURCE_DIR}/doc)
  configure_file(${doc}/Doxyfile.in ${PROJECT_BINARY_DIR}/doc/Doxyfile @ONLY)
  add_custom_command(OUTPUT ${PROJECT_BINARY_DIR}/doc/stamp
    COMMAND ${CMAKE_COMMAND} -E rm -rf doc/html doc/xml
    COMMAND ${DOXYGEN} doc/Doxyfile
    COMMAND sh ${doc}/doxygen_check.sh ${PROJECT_SOURCE_DIR}/include/qmibtree.h
      ${symbol_map} doc/xml
    COMMAND ${CMAKE_COMMAND} -E touch doc/stamp
    DEPENDS include/qmibtree.h ${symbol_map} doc/doxygen.awk doc/doxygen_check.sh
            ${PROJECT_BINARY_DIR}/doc/Doxyfile
    WORKING_DIRECTORY ${PROJECT_BINARY_DIR}
    COMMENT "API reference: doc/html/index.html" VERBATIM)
  add_custom_target(doc DEPENDS ${PROJECT_BINARY_DIR}/doc/stamp)
endif()
