# Coverage: what is measured is built once more with gcov's counters, and the unit tests, whose own
# objects are shared, are linked against that. `counted` builds it; nothing of it is in `all`.

if(NOT TARGET counted)
  add_custom_target(counted)
endif()

# counted(<library>): the library once more as <library>_counted.
function(counted library)
  get_target_property(type ${library} TYPE)
  string(REPLACE "_LIBRARY" "" type ${type})
  get_target_property(folder ${library} SOURCE_DIR)
  get_target_property(sources ${library} SOURCES)
  foreach(source IN LISTS sources)
    cmake_path(ABSOLUTE_PATH source BASE_DIRECTORY ${folder} OUTPUT_VARIABLE absolute)
    list(APPEND absolutes ${absolute})
  endforeach()
  add_library(${library}_counted ${type} EXCLUDE_FROM_ALL ${absolutes})
  foreach(property COMPILE_OPTIONS INCLUDE_DIRECTORIES LINK_LIBRARIES INTERFACE_INCLUDE_DIRECTORIES
                   INTERFACE_LINK_LIBRARIES)
    get_target_property(value ${library} ${property})
    if(value)
      set_property(TARGET ${library}_counted PROPERTY ${property} ${value})
    endif()
  endforeach()
  target_compile_options(${library}_counted PRIVATE -O0 -g0 --coverage)
  if(type STREQUAL STATIC)
    together(${library}_counted)
  endif()
endfunction()

# counted_test(<test program> <library> ...): its objects, linked with these libraries or, where there
# is one, the counted build of them.
function(counted_test program)
  set(libraries)
  foreach(library IN LISTS ARGN)
    if(TARGET ${library}_counted)
      set(library ${library}_counted)
    endif()
    list(APPEND libraries ${library})
  endforeach()
  add_executable(counted_${program} EXCLUDE_FROM_ALL $<TARGET_OBJECTS:${program}>)
  set_target_properties(counted_${program} PROPERTIES
                        RUNTIME_OUTPUT_DIRECTORY ${CMAKE_BINARY_DIR}/counted)
  # A case ends without taking its program apart, and writes its counters then.
  target_link_libraries(counted_${program} PRIVATE ${libraries} unit_main --coverage
                                                   -Wl,--undefined=__gcov_dump)
  add_dependencies(counted counted_${program})
endfunction()
