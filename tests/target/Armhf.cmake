# Builds the module and its unit tests for 32-bit ARM and runs them under emulation.
set(configure ${CMAKE_COMMAND} -S ${SOURCE} -B ${BINARY} -G Ninja -DCI_CHASSIS=OFF
              -DCMAKE_TOOLCHAIN_FILE=${SOURCE}/cmake/armhf.cmake -DCMAKE_BUILD_TYPE=MinSizeRel)
foreach(step "${configure}" "${CMAKE_COMMAND};--build;${BINARY};-j2"
             "${CTEST};--test-dir;${BINARY};-j2;--output-on-failure;--no-tests=error")
  execute_process(COMMAND ${step} COMMAND_ERROR_IS_FATAL ANY)
endforeach()
