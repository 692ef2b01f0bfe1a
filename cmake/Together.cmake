# together(<library>): the sources of each folder are compiled as one. For builds beside the plain one,
# which shows that each source includes what it needs. Of app and console the tools take parts that do
# without the module.
function(together library)
  get_target_property(sources ${library} SOURCES)
  foreach(source IN LISTS sources)
    cmake_path(ABSOLUTE_PATH source OUTPUT_VARIABLE folder)
    cmake_path(GET folder PARENT_PATH folder)
    cmake_path(GET folder FILENAME folder)
    if(folder MATCHES "^(app|console)$")
      set_property(SOURCE ${source} PROPERTY SKIP_UNITY_BUILD_INCLUSION ON)
    else()
      set_property(SOURCE ${source} PROPERTY UNITY_GROUP ${folder})
    endif()
  endforeach()
  set_target_properties(${library} PROPERTIES UNITY_BUILD ON UNITY_BUILD_MODE GROUP)
  # What a source keeps to itself is seen by others here.
  target_compile_options(${library} PRIVATE -Wno-shadow
                         $<$<CXX_COMPILER_ID:GNU>:-Wno-subobject-linkage>)
endfunction()
