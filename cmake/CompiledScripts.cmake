# kv_compile_scripts(TARGET PREFIX prefix FILES …)
#
# Adds script modules that are resources of the target as the engine's byte code, too, so that no
# start of a program has to compile them. The engine takes the code for the file of that path; one
# of another version than the tool's compiles the file.
function(kv_compile_scripts target)
  cmake_parse_arguments(arg "" "PREFIX" "FILES" ${ARGN})
  set(folder ${CMAKE_CURRENT_BINARY_DIR}/compiled-scripts)
  set(sources ${folder}/qmlcache_loader.cpp)  # the tool goes by this name
  set(paths ${arg_FILES})
  list(TRANSFORM paths PREPEND ${arg_PREFIX}/)
  file(MAKE_DIRECTORY ${folder})
  add_custom_command(OUTPUT ${folder}/qmlcache_loader.cpp
    COMMAND Qt6::qmlcachegen --resource-name kv_compiled_scripts
      -o ${folder}/qmlcache_loader.cpp ${paths}
    VERBATIM)
  foreach(script ${arg_FILES})
    get_filename_component(name ${script} NAME_WE)
    list(APPEND sources ${folder}/${name}.cpp)
    add_custom_command(OUTPUT ${folder}/${name}.cpp
      COMMAND Qt6::qmlcachegen --only-bytecode --resource-path ${arg_PREFIX}/${script}
        -o ${folder}/${name}.cpp ${CMAKE_CURRENT_SOURCE_DIR}/${script}
      DEPENDS ${script}
      VERBATIM)
  endforeach()
  target_sources(${target} PRIVATE ${sources})
  # The tool's own code does not keep to our warnings.
  set_source_files_properties(${sources} PROPERTIES COMPILE_OPTIONS -w SKIP_AUTOGEN ON)
endfunction()
