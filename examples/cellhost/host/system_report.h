// The system report: what the library knows of the machine, the clocks, the process and the
// modules that have registered.
#ifndef CELLHOST_HOST_SYSTEM_REPORT_H
#define CELLHOST_HOST_SYSTEM_REPORT_H

namespace cellhost {

// Prints the report. What cannot be had is said in its place, with status and OS error.
//
// Whether everything could be had. On a thread with a record.
bool PrintSystemReport();

// `cellhost report`: the program's exit code.
int ReportCommand();

}  // namespace cellhost

#endif
