// Cost codes: the open function of the file.
#include "COST.h"

#include "OpenDat.h"
#include "OpenDat_internal.h"

uint8_t OpenCostFile(BtrvFile** file, uint16_t mode) {
  return BASICS_OPEN_OWNER(file, CostName, mode, kFileNoCost, csTheOwner.c_str(), "Basics/COST") !=
                 0
             ? 1
             : 0;
}
