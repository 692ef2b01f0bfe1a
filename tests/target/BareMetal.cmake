# Compiles the module for a machine without an operating system and looks at what it needs there.
# The list of symbols holds none of the compiler's own helpers: the module does without them.
file(REMOVE ${BINARY}/whole_module.o)
foreach(step
    "${CMAKE_COMMAND};-S;${SOURCE};-B;${BINARY};-G;Ninja;-DCI_CHASSIS=OFF;-DBUILD_TESTING=OFF;-DCMAKE_TOOLCHAIN_FILE=${SOURCE}/cmake/arm-none-eabi.cmake;-DCMAKE_BUILD_TYPE=MinSizeRel"
    "${CMAKE_COMMAND};--build;${BINARY};--target;ci;-j2"
    "arm-none-eabi-ld;-r;--whole-archive;-o;${BINARY}/whole_module.o;${BINARY}/ci/libci.a")
  execute_process(COMMAND ${step} COMMAND_ERROR_IS_FATAL ANY)
endforeach()

foreach(check Undefined Defined)
  execute_process(
    COMMAND ${CMAKE_COMMAND} -DNM=arm-none-eabi-nm -DOBJECT=${BINARY}/whole_module.o
            -P ${SOURCE}/tests/module/${check}Symbols.cmake
    COMMAND_ERROR_IS_FATAL ANY)
endforeach()

# Nothing runs before main: a firmware need not call constructors for the module.
execute_process(COMMAND arm-none-eabi-objdump -h ${BINARY}/whole_module.o
                OUTPUT_VARIABLE sections COMMAND_ERROR_IS_FATAL ANY)
if(NOT sections MATCHES "\\.text" OR sections MATCHES "\\.(init_array|ctors)")
  message(FATAL_ERROR "the module has constructors:\n${sections}")
endif()
