// Phases: the open function of the phase file. Builds on OpenDat.
#ifndef BASICS_PHASE_H_
#define BASICS_PHASE_H_

#include <cstdint>

#include "record_manager.h"

// Opens the phase file (file number 38); 1 on success, the handle then the caller's to
// close. On failure 0 with *file null, shown to the user only for a file in use (the record
// manager's prompt); *file must not hold an open handle on entry.
uint8_t OpenPhaseFile(BtrvFile** file, uint16_t mode);

#endif  // BASICS_PHASE_H_
