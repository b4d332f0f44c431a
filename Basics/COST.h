// Cost codes: the open function of the cost-code file. Builds on OpenDat.
#ifndef BASICS_COST_H_
#define BASICS_COST_H_

#include <cstdint>

#include "record_manager.h"

// Opens the cost-code file (file number 39); non-zero on success.
uint8_t OpenCostFile(BtrvFile** file, uint16_t mode);

#endif  // BASICS_COST_H_
