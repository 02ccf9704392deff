# The rules that every target follows: which headers it may see, and which flags it is built with.

add_library(kv_flags INTERFACE)
target_compile_options(kv_flags INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wconversion -Wnon-virtual-dtor -Woverloaded-virtual
  $<$<BOOL:${KV_WERROR}>:-Werror>)
# False alarms of GCC 12 in the headers of the library, of fmt and of Qt, at -O3 only.
set(no_false_alarms $<$<AND:$<CXX_COMPILER_ID:GNU>,$<CONFIG:Release>>:
  -Wno-restrict -Wno-stringop-overflow -Wno-alloc-size-larger-than>)
target_compile_options(kv_flags INTERFACE ${no_false_alarms})
# One operation of the logging framework has C linkage so that its name is plain, not for C.
target_compile_options(kv_flags INTERFACE
  $<$<CXX_COMPILER_ID:Clang>:-Wno-return-type-c-linkage>)
if(KV_SANITIZE)
  target_compile_options(kv_flags INTERFACE
    -fsanitize=${KV_SANITIZE} -fno-omit-frame-pointer -fno-sanitize-recover=all)
  target_link_options(kv_flags INTERFACE -fsanitize=${KV_SANITIZE})
else()
  include(${CMAKE_CURRENT_LIST_DIR}/Hardening.cmake)
endif()
if(KV_LTO)
  # The objects hold plain code too, for those who link the library without this, and for modules:
  # it would make code for programs of all.
  target_compile_options(kv_flags INTERFACE -flto=auto -ffat-lto-objects)
  target_link_options(kv_flags INTERFACE
    $<IF:$<STREQUAL:$<TARGET_PROPERTY:TYPE>,EXECUTABLE>,-flto=auto,-fno-lto> ${no_false_alarms})
endif()
if(KV_COVERAGE)
  # Up to four files for each program, into which its processes add what they have counted,
  # whatever folder and environment they run in.
  set(count_lines -fprofile-instr-generate=${CMAKE_BINARY_DIR}/profiles/%4m.profraw)
  target_compile_options(kv_flags INTERFACE ${count_lines} -fcoverage-mapping)
  target_link_options(kv_flags INTERFACE ${count_lines})
endif()
# Assertions stay on in every build type: a broken invariant must stop where it broke.
foreach(type RELEASE RELWITHDEBINFO MINSIZEREL)
  string(REPLACE "-DNDEBUG" "" CMAKE_CXX_FLAGS_${type} "${CMAKE_CXX_FLAGS_${type}}")
endforeach()

# kv_header_root(TARGET FOLDER SCOPE [PATTERN])
#
# Lets those who link TARGET include FOLDER/*.h, written with the folder's name, and nothing else
# of the tree: the headers are linked into a root of the target's own, so that including a folder
# that is not linked does not compile.
function(kv_header_root target folder scope)
  set(pattern ${ARGN})
  if(NOT pattern)
    set(pattern *.h)
  endif()
  set(root ${CMAKE_BINARY_DIR}/header-roots/${target})
  file(GLOB headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${folder}/${pattern})
  file(REMOVE_RECURSE ${root})
  file(MAKE_DIRECTORY ${root}/${folder})
  foreach(header ${headers})
    get_filename_component(name ${header} NAME)
    file(CREATE_LINK ${header} ${root}/${folder}/${name} SYMBOLIC)
  endforeach()
  target_include_directories(${target} ${scope} $<BUILD_INTERFACE:${root}>)
endfunction()

# kv_library(NAME FOLDER folder SOURCES … [USES …] [PRIVATELY_USES …])
#
# One static library per folder, known to others as kv::NAME.
function(kv_library name)
  cmake_parse_arguments(arg "" "FOLDER" "SOURCES;USES;PRIVATELY_USES" ${ARGN})
  add_library(kv_${name} STATIC ${arg_SOURCES})
  add_library(kv::${name} ALIAS kv_${name})
  kv_header_root(kv_${name} ${arg_FOLDER} PUBLIC)
  target_link_libraries(kv_${name} PUBLIC ${arg_USES}
                        PRIVATE ${arg_PRIVATELY_USES} $<BUILD_INTERFACE:kv_flags>)
endfunction()

# kv_runs_once(SOURCE…)
#
# Code that runs once in a program's life, command lines above all. Instrumented, it takes longer to
# optimise than ever to run.
function(kv_runs_once)
  if(KV_SANITIZE)
    set_source_files_properties(${ARGN} PROPERTIES COMPILE_OPTIONS -O0)
  endif()
endfunction()

# kv_install_library(NAME FOLDER folder)
#
# Makes a library of kv_library() part of the installed package `kv`, for other programs: the
# archive, the headers under the folder's name, and the target kv::NAME.
function(kv_install_library name)
  cmake_parse_arguments(arg "" "FOLDER" "" ${ARGN})
  file(GLOB headers CONFIGURE_DEPENDS ${PROJECT_SOURCE_DIR}/${arg_FOLDER}/*.h)
  set_target_properties(kv_${name} PROPERTIES EXPORT_NAME ${name})
  target_compile_features(kv_${name} PUBLIC cxx_std_20)
  target_include_directories(kv_${name}
    INTERFACE $<INSTALL_INTERFACE:${CMAKE_INSTALL_INCLUDEDIR}/kv>)
  install(TARGETS kv_${name} EXPORT kvTargets
          ARCHIVE DESTINATION ${CMAKE_INSTALL_LIBDIR} COMPONENT logging)
  install(FILES ${headers} DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/kv/${arg_FOLDER}
          COMPONENT logging)
endfunction()

# kv_program(NAME SOURCES … USES …)
function(kv_program name)
  cmake_parse_arguments(arg "" "" "SOURCES;USES" ${ARGN})
  add_executable(${name} ${arg_SOURCES})
  target_link_libraries(${name} PRIVATE ${arg_USES} kv_flags)
endfunction()

# kv_test(NAME SOURCES … USES …): a GoogleTest program whose cases CTest knows one by one.
function(kv_test name)
  kv_program(${name} ${ARGN})
  target_link_libraries(${name} PRIVATE GTest::gmock_main)
  target_include_directories(${name} PRIVATE ${PROJECT_SOURCE_DIR})
  add_dependencies(all_tests ${name})
  if(KV_SANITIZE)
    # Instrumented code takes long to optimise, and that of the tests runs once.
    target_compile_options(${name} PRIVATE -O0)
  endif()
  gtest_discover_tests(${name} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 120)
endfunction()
