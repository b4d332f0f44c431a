// What the library's units share about opening files and that hosts must not call: the
// source-location helpers passed to the record manager for its diagnostics.
#ifndef BASICS_OPENDAT_INTERNAL_H_
#define BASICS_OPENDAT_INTERNAL_H_

#include "record_manager.h"

// Opens and closes made by a library unit, passing the unit's source name and line.
#define BASICS_OPEN_OWNER(handle, name, mode, number, owner, unit) \
  RealOpenBFileOwner((handle), (name), (mode), (number), (owner), (unit), __LINE__)
#define BASICS_OPEN_NO_OWNER(handle, name, mode, number, unit) \
  RealOpenBFile((handle), (name), (mode), (number), (unit), __LINE__)
#define BASICS_CLOSE(handle, unit) RealCloseFile((handle), (unit), __LINE__)

// Closes a handle when open; a null handle is left alone.
inline void CloseIfOpen(BtrvFile** handle, const char* unit, int line) {
  if (handle != nullptr && *handle != nullptr) RealCloseFile(handle, unit, line);
}

#endif  // BASICS_OPENDAT_INTERNAL_H_
