// Phases: the open function of the file.
#include "PHASE.h"

#include "OpenDat.h"
#include "OpenDat_internal.h"

uint8_t OpenPhaseFile(BtrvFile** file, uint16_t mode) {
  return BASICS_OPEN_OWNER(file, PhaseName, mode, kFileNoPhase, csTheOwner.c_str(),
                           "Basics/PHASE") != 0
             ? 1
             : 0;
}
