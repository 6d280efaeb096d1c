# Installs the build into a scratch prefix, then configures and builds a consumer project that finds
# the library with find_package(VideoAIProc), built with the same flags (sanitizers), and runs the
# first example. The installed tool must start from its install location, and the host stand-ins'
# headers must stay out of the package. EXAMPLES is a list of sources separated by "|".
file(REMOVE_RECURSE ${WORK_DIR})
execute_process(COMMAND ${CMAKE_COMMAND} --install ${BUILD_DIR} --prefix ${WORK_DIR}/prefix
                RESULT_VARIABLE rc OUTPUT_QUIET)
if(NOT rc EQUAL 0)
    message(FATAL_ERROR "cmake --install failed")
endif()
if(EXISTS ${WORK_DIR}/prefix/include/VideoAIProc/host OR EXISTS ${WORK_DIR}/prefix/include/VideoAIProc/android)
    message(FATAL_ERROR "the host platform's headers were installed")
endif()
foreach(step
        "${CMAKE_COMMAND};-S;${CONSUMER};-B;${WORK_DIR}/build;-DCMAKE_PREFIX_PATH=${WORK_DIR}/prefix;-DEXAMPLES=${EXAMPLES};-DCMAKE_CXX_FLAGS=${CXX_FLAGS};-DCMAKE_EXE_LINKER_FLAGS=${LINK_FLAGS}"
        "${CMAKE_COMMAND};--build;${WORK_DIR}/build"
        "${WORK_DIR}/build/hal_consumer_0"
        "${WORK_DIR}/prefix/bin/vaitool;--version")
    execute_process(COMMAND ${step} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
    if(NOT rc EQUAL 0)
        message(FATAL_ERROR "step failed: ${step}\n${out}\n${err}")
    endif()
endforeach()
