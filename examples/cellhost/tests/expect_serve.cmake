# Runs a server and clients of it at the same time. The server is RUN, a command as a list, with
# `serve` on the pipe PIPE; the clients are this script again, with CLIENTS set. The server's
# output goes into the clients' script, which is how execute_process runs two commands at once.
#
# Outputs go into the file LOG, not through pipes: Wine's own services inherit the outputs of the
# program that starts them, and who reads a pipe to its end would wait for them too.
#
# RUDE is the command of a client that keeps no rule; FACTS, QUERIES and ANSWERS are files.

if(NOT CLIENTS)
  # From here on the services run, and have this output.
  execute_process(COMMAND ${RUN} --version OUTPUT_FILE ${LOG} ERROR_FILE ${LOG})
  execute_process(
    COMMAND ${RUN} serve --facts ${FACTS} --pipe ${PIPE}
    COMMAND ${CMAKE_COMMAND} "-DRUN=${RUN}" -DPIPE=${PIPE} "-DRUDE=${RUDE}" -DFACTS=${FACTS}
            -DQUERIES=${QUERIES} -DANSWERS=${ANSWERS} -DCLIENTS=ON -P ${CMAKE_CURRENT_LIST_FILE}
    RESULTS_VARIABLE exits OUTPUT_FILE ${LOG} ERROR_FILE ${LOG} TIMEOUT 170)
  file(READ ${LOG} log)
  message("${log}")
  if(NOT exits STREQUAL "0;0")
    message(FATAL_ERROR "exit codes of server and clients: ${exits} instead of 0;0")
  endif()
  return()
endif()

# expect(EXIT TEXT ARGUMENT ...): runs the program as a client and notes what is not as expected.
# The server is to be stopped in any case, so that nothing ends the script before.
function(expect exit_expected text)
  execute_process(COMMAND ${RUN} ${ARGN} RESULT_VARIABLE exit OUTPUT_VARIABLE output
                  ERROR_VARIABLE errors)
  string(REPLACE "\r" "" printed "${output}${errors}")
  message("${ARGN}: ${printed}")
  if(NOT exit STREQUAL exit_expected OR NOT printed MATCHES "${text}")
    message(SEND_ERROR "exit code ${exit}, expected ${exit_expected} and: ${text}")
  endif()
endfunction()

function(expect_reply exit_expected text command)
  expect(${exit_expected} "${text}" send --pipe ${PIPE} ${command})
endfunction()

# The server first loads its facts and measures the machine.
expect(0 "^1\n" send --pipe ${PIPE} --wait 60 CHUNK)
expect_reply(2 "no such command; send CHUNK, STATS, QUERY" NONSENSE)
expect_reply(2 "no such command" chunk)
expect_reply(2 "the query is empty; write SUM, TOP or CELL" QUERY)
expect_reply(2 "'DROP' is no query; write SUM, TOP or CELL in capitals" "QUERY DROP cube")
expect_reply(2 "write TOP dimension count, with a whole number from 1 on" "QUERY TOP fruit none")
expect_reply(0 "SUM fruit=quince: unknown member" "QUERY SUM fruit=quince")
expect(2 "could not make the pipe '${PIPE}'.*give another with --pipe"
       serve --facts ${FACTS} --pipe ${PIPE})

execute_process(COMMAND ${RUDE} ${PIPE} RESULT_VARIABLE rude)
if(rude)
  message(SEND_ERROR "the rude client was not answered as it should be")
endif()

# What is refused changes nothing.
expect_reply(2 "write PUT, a member of each dimension, and a number" PUT)
expect_reply(2 "write PUT, a member of each dimension, and a number" "PUT 5")
expect_reply(2 "'five' is not a number; write it as in 12 or -3.5" "PUT apple Lima five")
expect_reply(2 "'inf' is not a number" "PUT apple Lima inf")
expect_reply(2 "a quote is not closed" "PUT apple \"Lima 5")
expect_reply(2 "nothing stored: 'sold in' has no member 'Rome'" "PUT apple Rome 5")
expect_reply(2 "nothing stored: a cell has 2 members, one of each dimension, not 1" "PUT apple 5")
expect_reply(2 "write HOG and how many MiB, a whole number from 1 to 1024" HOG)
expect_reply(2 "write HOG and how many MiB, a whole number from 1 to 1024" "HOG 2000")
foreach(seconds 0 21 -1 1.5 "2 3" x)
  expect_reply(2 "write BACKUP, or BACKUP and how many seconds PUTs may wait, 1 to 20"
               "BACKUP ${seconds}")
endforeach()
expect_reply(2 "the server has no files; start it with --data and a folder" BACKUP)
expect_reply(2 "the server has no files" "BACKUP 20")
expect_reply(0 "^took 3 MiB; no warning; totals not counted\n" "HOG 3")
expect(0 "12 of 12 answers agree" ask --pipe ${PIPE} --queries ${QUERIES} --answers ${ANSWERS})

expect_reply(0 "^stored\n" "PUT apple Oslo -2.5")
expect_reply(0 "^stored\n" "PUT apple Lima 3")
expect_reply(0 "SUM fruit=apple: 7.5\n" "QUERY SUM fruit=apple")
# The worker of a client that was lost may still be about to notice it: asked until it has.
foreach(try RANGE 20)
  execute_process(COMMAND ${RUN} send --pipe ${PIPE} STATS OUTPUT_VARIABLE stats)
  if(stats MATCHES "lost 10,")
    break()
  endif()
endforeach()
expect_reply(0 "cells 7, clients [0-9]+, lost 10, queries 14, puts 2," STATS)
expect_reply(0 "stopping" STOP)
