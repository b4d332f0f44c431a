// Projects (jobs): the open function of the project file. Builds on OpenDat.
#ifndef BASICS_PROJECT_H_
#define BASICS_PROJECT_H_

#include <cstdint>

#include "record_manager.h"

// Opens the project file (file number 13); 1 on success, the handle then the caller's to
// close. On failure 0 with *file null, shown to the user only for a file in use (the record
// manager's prompt); *file must not hold an open handle on entry.
uint8_t OpenProjFile(BtrvFile** file, uint16_t mode);

#endif  // BASICS_PROJECT_H_
