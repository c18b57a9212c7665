# Target `tidy`: clang-tidy over the library's sources, each again only when it or a header changed.
find_program(CLANG_TIDY clang-tidy)
if(CLANG_TIDY)
  get_target_property(sources qmibtree_objects SOURCES)
  file(GLOB headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/include/*.h
    ${PROJECT_SOURCE_DIR}/*/*.hh)
  foreach(source ${sources})
    set(stamp ${PROJECT_BINARY_DIR}/tidy/${source}.stamp)
    get_filename_component(folder ${stamp} DIRECTORY)
    add_custom_command(OUTPUT ${stamp}
      COMMAND ${CMAKE_COMMAND} -E make_directory ${folder}
      COMMAND sh -c "${CLANG_TIDY} --quiet -p ${PROJECT_BINARY_DIR} ${PROJECT_SOURCE_DIR}/${source} 2>${stamp}.log"
      COMMAND ${CMAKE_COMMAND} -E touch ${stamp}
      DEPENDS ${source} ${headers} ${PROJECT_SOURCE_DIR}/.clang-tidy
      COMMENT "clang-tidy ${source}" VERBATIM)
    list(APPEND stamps ${stamp})
  endforeach()
  add_custom_target(tidy DEPENDS ${stamps})
endif()
