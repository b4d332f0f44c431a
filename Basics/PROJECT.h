// Projects (jobs): the open function of the project file. Builds on OpenDat.
#ifndef BASICS_PROJECT_H_
#define BASICS_PROJECT_H_

#include <cstdint>

#include "record_manager.h"

// Opens the project file (file number 13); non-zero on success.
uint8_t OpenProjFile(BtrvFile** file, uint16_t mode);

#endif  // BASICS_PROJECT_H_
