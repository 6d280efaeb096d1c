# Runs CMD; passes when it exits non-zero and its output matches REGEX.
execute_process(COMMAND ${CMD} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(rc EQUAL 0)
    message(FATAL_ERROR "expected a failure, got exit 0:\n${out}${err}")
endif()
if(NOT "${out}${err}" MATCHES "${REGEX}")
    message(FATAL_ERROR "output does not match '${REGEX}':\n${out}${err}")
endif()
