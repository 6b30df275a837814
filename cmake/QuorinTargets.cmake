# One library target per folder. A folder's headers are published through a directory of their own, so that a
# target finds exactly the headers of the folders on its link line and no others: an include that
# docs/architecture.md forbids does not compile.

# quorin_library(NAME <target> [FOLDER <folder>] [SOURCES ...] [PUBLIC ...] [PRIVATE ...])
#   The library of a folder: of the current one, or of FOLDER below it, to which SOURCES are relative. Publishes the
#   folder's headers (not those of its subfolders) under the folder's path as seen from the project or from platform/.
#   The target is named for that path: platform/quillo/tables is quillo_tables, included as "quillo/tables/Header.h".
function(quorin_library)
  cmake_parse_arguments(ARG "" "NAME;FOLDER" "SOURCES;PUBLIC;PRIVATE" ${ARGN})
  set(folder ${CMAKE_CURRENT_SOURCE_DIR}/${ARG_FOLDER})
  cmake_path(NORMAL_PATH folder)
  cmake_path(RELATIVE_PATH folder BASE_DIRECTORY ${PROJECT_SOURCE_DIR} OUTPUT_VARIABLE prefix)
  string(REGEX REPLACE "^platform/|/$" "" prefix ${prefix})
  string(REPLACE "/" "_" expected ${prefix})
  if(NOT ARG_NAME STREQUAL expected)
    message(FATAL_ERROR "The library of ${folder} must be named ${expected}, not ${ARG_NAME}")
  endif()
  set(include_root ${CMAKE_BINARY_DIR}/include/${ARG_NAME})
  file(GLOB headers CONFIGURE_DEPENDS ${folder}/*.h)
  file(MAKE_DIRECTORY ${include_root}/${prefix})
  foreach(header IN LISTS headers)
    get_filename_component(file_name ${header} NAME)
    file(CREATE_LINK ${header} ${include_root}/${prefix}/${file_name} SYMBOLIC)
  endforeach()
  if(ARG_SOURCES)
    list(TRANSFORM ARG_SOURCES PREPEND ${folder}/)
    add_library(${ARG_NAME} STATIC ${ARG_SOURCES})
    set(scope PUBLIC)
    target_link_libraries(${ARG_NAME} PRIVATE quorin_options ${ARG_PRIVATE})
  else()
    add_library(${ARG_NAME} INTERFACE)
    set(scope INTERFACE)
  endif()
  target_include_directories(${ARG_NAME} ${scope} ${include_root})
  target_link_libraries(${ARG_NAME} ${scope} ${ARG_PUBLIC})
endfunction()

# quorin_testing(NAME <target> [SOURCES ...] LIBRARIES ...): the fakes, models and fixtures in testing/ of the current
# folder, as a library like the others. Only tests link it, so no production source can include them.
function(quorin_testing)
  cmake_parse_arguments(ARG "" "NAME" "SOURCES;LIBRARIES" ${ARGN})
  if(QUORIN_TESTS)
    quorin_library(NAME ${ARG_NAME} FOLDER testing SOURCES ${ARG_SOURCES} PUBLIC ${ARG_LIBRARIES} GTest::gmock)
  endif()
endfunction()

# quorin_test(NAME <target> SOURCES ... LIBRARIES ...): one GoogleTest program beside the code it tests.
function(quorin_test)
  cmake_parse_arguments(ARG "" "NAME" "SOURCES;LIBRARIES" ${ARGN})
  if(NOT QUORIN_TESTS)
    return()
  endif()
  add_executable(${ARG_NAME} ${ARG_SOURCES})
  target_link_libraries(${ARG_NAME} PRIVATE quorin_options ${ARG_LIBRARIES} GTest::gmock GTest::gtest_main)
  gtest_discover_tests(${ARG_NAME} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 600)
endfunction()

# All that is installed, and the benchmarks: everything but the tests.
add_custom_target(programs)

# quorin_program(NAME <target> [INSTALL_TO <directory>] SOURCES ... LIBRARIES ...): a program that lands in bin/ of the
# build. Without INSTALL_TO, such as ${CMAKE_INSTALL_SBINDIR}, it is not installed.
function(quorin_program)
  cmake_parse_arguments(ARG "" "NAME;INSTALL_TO" "SOURCES;LIBRARIES" ${ARGN})
  add_executable(${ARG_NAME} ${ARG_SOURCES})
  target_link_libraries(${ARG_NAME} PRIVATE quorin_options ${ARG_LIBRARIES})
  set_target_properties(${ARG_NAME} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
  if(ARG_INSTALL_TO)
    install(TARGETS ${ARG_NAME} RUNTIME DESTINATION ${ARG_INSTALL_TO})
  endif()
  add_dependencies(programs ${ARG_NAME})
endfunction()
