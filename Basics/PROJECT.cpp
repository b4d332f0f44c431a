// Projects: the open function of the file.
#include "PROJECT.h"

#include "OpenDat.h"
#include "OpenDat_internal.h"

uint8_t OpenProjFile(BtrvFile** file, uint16_t mode) {
  return BASICS_OPEN_OWNER(file, ProjectName, mode, kFileNoProject, csTheOwner.c_str(),
                           "Basics/PROJECT") != 0
             ? 1
             : 0;
}
