# Writes what `TOOL --help` prints into OUTPUT; a tool that cannot print its help fails the build.
get_filename_component(folder ${OUTPUT} DIRECTORY)
file(MAKE_DIRECTORY ${folder})
execute_process(COMMAND ${TOOL} --help OUTPUT_FILE ${OUTPUT} RESULT_VARIABLE status)
if(NOT status EQUAL 0)
  file(REMOVE ${OUTPUT})
  message(FATAL_ERROR "${TOOL} --help failed: ${status}")
endif()
