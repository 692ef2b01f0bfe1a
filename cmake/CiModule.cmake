# ci_module(<target> <symbol>=<replacement> ...)
#
# The whole module as one relocatable object, with symbols that it calls replaced: what a platform
# does that brings its own printf or malloc. The module's own objects stay as they are.
# CI_OBJECTS names another build of them.
function(ci_module target)
  set(object ${CMAKE_CURRENT_BINARY_DIR}/${target}.o)
  set(module ci_objects)
  if(CI_OBJECTS)
    set(module ${CI_OBJECTS})
  endif()
  set(renames)
  foreach(rename IN LISTS ARGN)
    list(APPEND renames --redefine-sym ${rename})
  endforeach()
  add_custom_command(
    OUTPUT ${object}
    COMMAND ${CMAKE_LINKER} -r -o ${object} $<TARGET_OBJECTS:${module}>
    COMMAND ${CMAKE_OBJCOPY} ${renames} ${object}
    DEPENDS ${module} $<TARGET_OBJECTS:${module}>
    COMMAND_EXPAND_LISTS VERBATIM)
  add_custom_target(${target}_object DEPENDS ${object})
  add_library(${target} INTERFACE)
  add_dependencies(${target} ${target}_object)
  target_link_libraries(${target} INTERFACE ${object})
  target_include_directories(${target} INTERFACE ${CMAKE_SOURCE_DIR}/ci/include)
endfunction()
