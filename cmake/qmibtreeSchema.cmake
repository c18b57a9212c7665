# qmibtree_add_schema(TARGET MODEL FILE... [NAME NAME] [OVERLAY FILE] [LOCK FILE] [FROZEN]
#                     [SELECT NAME] [PROFILE NAME:N...] [KEEP GLOB...])
#
# Compiles a data model with `mibctl schema compile` at build time and adds the schema to TARGET: its
# source includes "NAME_schema.h" (NAME is the target's own by default). The generated files are made
# again when a document, the overlay or the lock file changes. With LOCK new entries are added to that
# file by the build; with FROZEN the build fails instead.
function(qmibtree_add_schema target)
  cmake_parse_arguments(PARSE_ARGV 1 arg "FROZEN" "NAME;OVERLAY;LOCK;SELECT" "MODEL;PROFILE;KEEP")
  if(NOT arg_MODEL OR arg_UNPARSED_ARGUMENTS)
    message(FATAL_ERROR "qmibtree_add_schema: MODEL is missing, or not understood: ${arg_UNPARSED_ARGUMENTS}")
  endif()
  if(NOT arg_NAME)
    set(arg_NAME ${target})
  endif()

  if(TARGET mibctl)
    set(mibctl $<TARGET_FILE:mibctl>)
  else()
    find_program(QMIBTREE_MIBCTL mibctl HINTS ${QMIBTREE_TOOLS_DIR}
      DOC "The model compiler, for the machine that builds")
    if(NOT QMIBTREE_MIBCTL)
      message(FATAL_ERROR "qmibtree_add_schema: mibctl is not installed here; set QMIBTREE_MIBCTL to its path")
    endif()
    set(mibctl ${QMIBTREE_MIBCTL})
  endif()

  set(options --name ${arg_NAME})
  set(files)
  foreach(file ${arg_MODEL})
    get_filename_component(file ${file} ABSOLUTE)
    list(APPEND files ${file})
  endforeach()
  set(depends ${files})
  foreach(option OVERLAY LOCK)
    if(arg_${option})
      get_filename_component(file ${arg_${option}} ABSOLUTE)
      string(TOLOWER ${option} name)
      list(APPEND options --${name} ${file})
      if(EXISTS ${file})
        list(APPEND depends ${file})
      endif()
    endif()
  endforeach()
  if(arg_FROZEN)
    list(APPEND options --frozen)
  endif()
  if(arg_SELECT)
    list(APPEND options --select ${arg_SELECT})
  endif()
  foreach(profile ${arg_PROFILE})
    list(APPEND options --profile ${profile})
  endforeach()
  foreach(pattern ${arg_KEEP})
    list(APPEND options --keep ${pattern})
  endforeach()

  set(folder ${CMAKE_CURRENT_BINARY_DIR}/${target}_schema)
  set(made ${folder}/${arg_NAME}_schema.c ${folder}/${arg_NAME}_schema.h)
  add_custom_command(OUTPUT ${made}
    COMMAND ${mibctl} schema compile ${options} --depfile ${folder}/schema.d -o ${folder} ${files}
    DEPENDS ${depends} ${mibctl}
    DEPFILE ${folder}/schema.d
    COMMENT "Compiling the data model ${arg_NAME}" VERBATIM)
  target_sources(${target} PRIVATE ${made})
  target_include_directories(${target} PRIVATE ${folder})
endfunction()
