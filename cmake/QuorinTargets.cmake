# One library target per folder. A folder's headers are published through a directory of their own, so that a
# target finds exactly the headers of the folders on its link line and no others: an include that
# docs/architecture.md forbids does not compile.

# quorin_library(NAME <target> [PREFIX <include prefix>] [SOURCES ...] [PUBLIC ...] [PRIVATE ...])
#   Collects the headers of the current folder (not of its subfolders). They are included as "<prefix>/Header.h".
function(quorin_library)
  cmake_parse_arguments(ARG "" "NAME;PREFIX" "SOURCES;PUBLIC;PRIVATE" ${ARGN})
  if(NOT ARG_PREFIX)
    set(ARG_PREFIX ${ARG_NAME})
  endif()
  set(include_root ${CMAKE_BINARY_DIR}/include/${ARG_NAME})
  file(GLOB headers CONFIGURE_DEPENDS ${CMAKE_CURRENT_SOURCE_DIR}/*.h)
  file(MAKE_DIRECTORY ${include_root}/${ARG_PREFIX})
  foreach(header IN LISTS headers)
    get_filename_component(file_name ${header} NAME)
    file(CREATE_LINK ${header} ${include_root}/${ARG_PREFIX}/${file_name} SYMBOLIC)
  endforeach()
  if(ARG_SOURCES)
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

# quorin_test(NAME <target> SOURCES ... LIBRARIES ...): one GoogleTest program beside the code it tests.
function(quorin_test)
  cmake_parse_arguments(ARG "" "NAME" "SOURCES;LIBRARIES" ${ARGN})
  add_executable(${ARG_NAME} ${ARG_SOURCES})
  target_link_libraries(${ARG_NAME} PRIVATE quorin_options ${ARG_LIBRARIES} GTest::gmock GTest::gtest_main)
  gtest_discover_tests(${ARG_NAME} DISCOVERY_TIMEOUT 60 PROPERTIES TIMEOUT 120)
endfunction()

# All that is installed, and the benchmarks: everything but the tests.
add_custom_target(programs)

# quorin_program(NAME <target> SOURCES ... LIBRARIES ...): a program that lands in bin/.
function(quorin_program)
  cmake_parse_arguments(ARG "" "NAME" "SOURCES;LIBRARIES" ${ARGN})
  add_executable(${ARG_NAME} ${ARG_SOURCES})
  target_link_libraries(${ARG_NAME} PRIVATE quorin_options ${ARG_LIBRARIES})
  set_target_properties(${ARG_NAME} PROPERTIES RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/bin)
  install(TARGETS ${ARG_NAME} RUNTIME DESTINATION bin)
  add_dependencies(programs ${ARG_NAME})
endfunction()
