// Job estimates: the open function of the estimate file. Builds on OpenDat.
#ifndef BASICS_JOBEST_H_
#define BASICS_JOBEST_H_

#include <cstdint>

#include "record_manager.h"

// Opens the estimate file: read-only (254) without an owner name and file number 0,
// any other mode with number 40 and the standard owner. 1 on success, the handle then the
// caller's to close; on failure 0 with *file null, shown to the user only for a file in
// use (the record manager's prompt). *file must not hold an open handle on entry.
uint8_t OpenJobEstFile(BtrvFile** file, uint16_t mode);

#endif  // BASICS_JOBEST_H_
