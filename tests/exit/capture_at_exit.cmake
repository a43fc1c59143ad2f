# cmake "-DEMULATOR=<list>" -DEXIT_TEST=<program> -DINSPECT=<orbperix-inspect> -DFILE=<capture>
#       -P capture_at_exit.cmake
# Runs the live-providers-at-exit host with a capture switched on by ORBPERIX_CAPTURE and no
# Finalize, then checks that process exit flushed and closed the capture (statistics block).
# Under wine (EMULATOR set) the host is given the file's Windows name (drive Z: is /).
file(REMOVE ${FILE})
set(name ${FILE})
if(EMULATOR)
  string(REPLACE "/" "\\" name "Z:${FILE}")
endif()
execute_process(COMMAND ${CMAKE_COMMAND} -E env ORBPERIX_CAPTURE=${name} ${EMULATOR} ${EXIT_TEST}
  RESULT_VARIABLE rc OUTPUT_VARIABLE out ERROR_VARIABLE err)
if(NOT rc STREQUAL "0")
  message(FATAL_ERROR "the host exited with ${rc}\n${out}${err}")
endif()
execute_process(COMMAND ${EMULATOR} ${INSPECT} --capture ${FILE} RESULT_VARIABLE rc OUTPUT_VARIABLE out)
if(NOT rc STREQUAL "0" OR NOT out MATCHES "the writer reports [1-9][0-9]* written, 0 dropped"
   OR NOT out MATCHES "Main.PERIXStartService +2 ")
  message(FATAL_ERROR "the capture was not closed at exit (rc ${rc}):\n${out}")
endif()
message(STATUS "${out}")
