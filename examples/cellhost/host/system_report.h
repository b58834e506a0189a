// The system report: the machine, the clocks, the process and the registered modules, as the
// library describes them.
#ifndef CELLHOST_HOST_SYSTEM_REPORT_H
#define CELLHOST_HOST_SYSTEM_REPORT_H

namespace cellhost {

// Prints the report. Where a value is not available, prints the status and the OS error instead.
//
// Returns whether all values were available. The thread must have a record.
bool PrintSystemReport();

// `cellhost report`. Returns the program's exit code.
int ReportCommand();

}  // namespace cellhost

#endif
