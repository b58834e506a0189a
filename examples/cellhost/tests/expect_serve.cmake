# Runs a server and its clients at the same time. The server is RUN, a command as a list, with
# `serve` on the pipe PIPE. The clients are run by this script in a second process, with CLIENTS
# set. execute_process runs two commands at once only if one reads the other's output.
#
# Output goes into the file LOG and not through pipes: Wine's services inherit the output of the
# program that starts them, and a reader of that pipe would wait for their end, too.
#
# RUDE is the command of a client that breaks the rules; FACTS, QUERIES and ANSWERS are files.

if(NOT CLIENTS)
  # Starts Wine's services with LOG as their output.
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

# expect(EXIT TEXT ARGUMENT ...): runs the program as a client and reports what is unexpected. Never
# ends the script, because the server must be stopped in any case.
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

# --wait, because the server first loads its facts and measures the machine.
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

# Refused commands change nothing.
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
# A connection may not have noticed yet that its client was lost. Repeat STATS until all have.
foreach(try RANGE 20)
  execute_process(COMMAND ${RUN} send --pipe ${PIPE} STATS OUTPUT_VARIABLE stats)
  if(stats MATCHES "lost 10,")
    break()
  endif()
endforeach()
expect_reply(0 "cells 7, clients [0-9]+, lost 10, queries 14, puts 2," STATS)
expect_reply(0 "stopping" STOP)

# This script is the reader of the server's output, and a signal would end a server that prints after
# its reader has ended. Windows has no such signal.
if(NOT RUN MATCHES "\\.exe$")
  execute_process(COMMAND cat OUTPUT_QUIET)
endif()
