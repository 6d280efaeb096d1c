# Installs the build into a scratch prefix, then configures, builds and runs a consumer project
# that finds the library with find_package(VideoAIProc), built with the same flags (sanitizers).
file(REMOVE_RECURSE ${WORK_DIR})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${WORK_DIR}/prefix
                RESULT_VARIABLE rc OUTPUT_QUIET)
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "cmake --install failed")
endif()
foreach(step
        "${CMAKE_COMMAND};-S;${CONSUMER};-B;${WORK_DIR}/build;-DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix;-DEXAMPLE=${EXAMPLE};-DCMAKE_CXX_FLAGS=${CXX_FLAGS};-DCMAKE_EXE_LINKER_FLAGS=${LINK_FLAGS}"
        "${CMAKE_COMMAND};--build;${WORK_DIR}/build"
        "${WORK_DIR}/build/hal_consumer")
    execute_process(COMMAND ${step} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
    if(NOT rc EQUAL 0)
        message(FATAL_ERROR "step failed: ${step}\n${out}\n${err}")
    endif()
endforeach()
