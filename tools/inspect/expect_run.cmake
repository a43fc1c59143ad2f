# cmake -DCOMMAND=<list> -DEXPECTED_RC=<n> -DEXPECTED_REGEX=<re> -P expect_run.cmake
# Runs COMMAND and fails unless it exits with EXPECTED_RC and its output matches EXPECTED_REGEX.
list(FILTER COMMAND EXCLUDE REGEX "^$")
execute_process(COMMAND ${COMMAND} RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT rc STREQUAL EXPECTED_RC)
  message(FATAL_ERROR "exit status ${rc}, expected ${EXPECTED_RC}\nstdout: ${out}\nstderr: ${err}")
endif()
if(NOT out MATCHES "${EXPECTED_REGEX}")
  message(FATAL_ERROR "output does not match '${EXPECTED_REGEX}':\n${out}")
endif()
message(STATUS "${out}")
