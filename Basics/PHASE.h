// Phases: the open function of the phase file. Builds on OpenDat.
#ifndef BASICS_PHASE_H_
#define BASICS_PHASE_H_

#include <cstdint>

#include "record_manager.h"

// Opens the phase file (file number 38); non-zero on success.
uint8_t OpenPhaseFile(BtrvFile** file, uint16_t mode);

#endif  // BASICS_PHASE_H_
