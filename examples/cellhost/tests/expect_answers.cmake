# Computes the answers with AWK from the files in DATA, before and after the PUTs, into MADE. Fails
# unless they equal the answers in DATA.
set(ENV{LC_ALL} C)

# expect_answers(ANSWERS FILE ...)
function(expect_answers answers)
  list(TRANSFORM ARGN PREPEND ${DATA}/)
  execute_process(COMMAND ${AWK} -f ${DATA}/make-answers.awk ${ARGN}
                  OUTPUT_FILE ${MADE} COMMAND_ERROR_IS_FATAL ANY)
  execute_process(COMMAND ${CMAKE_COMMAND} -E compare_files ${MADE} ${DATA}/${answers}
                  RESULT_VARIABLE differs)
  if(differs)
    message(SEND_ERROR "${DATA}/${answers} is not what make-answers.awk makes; see ${MADE}")
  endif()
endfunction()

expect_answers(answers.txt facts.csv queries.txt)
expect_answers(answers-after.txt facts.csv puts.txt queries.txt)
