// Cost codes: the open function of the cost-code file. Builds on OpenDat.
#ifndef BASICS_COST_H_
#define BASICS_COST_H_

#include <cstdint>

#include "record_manager.h"

// Opens the cost-code file (file number 39); 1 on success, the handle then the caller's to
// close. On failure 0 with *file null, shown to the user only for a file in use (the record
// manager's prompt); *file must not hold an open handle on entry.
uint8_t OpenCostFile(BtrvFile** file, uint16_t mode);

#endif  // BASICS_COST_H_
