// Job estimates: the open function of the estimate file.
#include "JOBEST.h"

#include "OpenDat.h"
#include "OpenDat_internal.h"

uint8_t OpenJobEstFile(BtrvFile** file, uint16_t mode) {
  // A read-only open goes without owner name and with file number 0; writers name the
  // file's owner and its number. Both forms are kept as callers expect them.
  int result = mode == kOpenModeReadOnly
                   ? BASICS_OPEN_NO_OWNER(file, JobEstName, mode, 0, "Basics/JOBEST")
                   : BASICS_OPEN_OWNER(file, JobEstName, mode, kFileNoJobEst, csStdTheOwner.c_str(),
                                       "Basics/JOBEST");
  return result != 0 ? 1 : 0;
}
