# Makes the answers anew with AWK from the files in DATA, into MADE, and fails unless they are the
# ones in DATA.
set(ENV{LC_ALL} C)
execute_process(COMMAND ${AWK} -f ${DATA}/make-answers.awk ${DATA}/facts.csv ${DATA}/queries.txt
                OUTPUT_FILE ${MADE} COMMAND_ERROR_IS_FATAL ANY)
execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${MADE} ${DATA}/answers.txt
                RESULT_VARIABLE differs)
if(differs)
  message(FATAL_ERROR "${DATA}/answers.txt is not what make-answers.awk makes; see ${MADE}")
endif()
