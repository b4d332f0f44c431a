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

// The internal-handle pattern of the lookups: opens *handle read-only with open when it
// is still closed. Answers whether the handle is open; a failed open stays silent (the
// caller gives its not-found answer).
inline bool EnsureLookupHandle(BtrvFile** handle, int (*open)(BtrvFile**, uint16_t)) {
  if (*handle == nullptr && open(handle, kOpenModeReadOnly) == 0) return false;
  return *handle != nullptr;
}

// An equal read without lock of a whole record on key; the key fields are already set.
template <typename Record>
bool ReadEqual(BtrvFile* file, Record* record, int16_t key) {
  return GetFileEqual(file, kLockBiasNone, sizeof(Record), record, key) != 0;
}

#endif  // BASICS_OPENDAT_INTERNAL_H_
