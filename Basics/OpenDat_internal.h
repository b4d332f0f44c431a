// What the library's units share about opening files and that hosts must not call: the
// source-location helpers passed to the record manager for its diagnostics.
#ifndef BASICS_OPENDAT_INTERNAL_H_
#define BASICS_OPENDAT_INTERNAL_H_

#include <cstring>

#include "record_manager.h"
#include "zor_types.h"

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

// A master file's private read-only lookup handle (opened on first use) and its reads by
// ID, record number and GUID. Each read clears the record, sets the one key field and reads
// equal on that key, so a failed read leaves the record-number field 0. The customer,
// vendor and employee records name those three fields alike.
template <typename Record>
class MasterLookup {
 public:
  constexpr MasterLookup(int (*open)(BtrvFile**, uint16_t), const char* unit, int16_t id_key,
                         int16_t number_key, int16_t guid_key)
      : open_(open), unit_(unit), id_key_(id_key), number_key_(number_key), guid_key_(guid_key) {}

  static void KeyById(Record* record, const FixedString<21>& id) {
    std::memset(record, 0, sizeof(Record));
    record->ID = id;
  }
  static void KeyByNumber(Record* record, int32_t record_number) {
    std::memset(record, 0, sizeof(Record));
    record->RecordNumber = record_number;
  }

  bool ReadById(const FixedString<21>& id, Record* record) {
    KeyById(record, id);
    return Read(record, id_key_);
  }
  bool ReadByNumber(int32_t record_number, Record* record) {
    KeyByNumber(record, record_number);
    return Read(record, number_key_);
  }
  bool ReadByGuid(const GUID& guid, Record* record) {
    std::memset(record, 0, sizeof(Record));
    record->Guid = guid;
    return Read(record, guid_key_);
  }
  // The lookup handle, opened when needed; null when the file cannot be opened.
  BtrvFile* Handle() { return EnsureLookupHandle(&file_, open_) ? file_ : nullptr; }
  void Close() { CloseIfOpen(&file_, unit_, __LINE__); }

 private:
  bool Read(Record* record, int16_t key) {
    BtrvFile* file = Handle();
    return file != nullptr && ReadEqual(file, record, key);
  }

  int (*open_)(BtrvFile**, uint16_t);
  const char* unit_;
  int16_t id_key_;
  int16_t number_key_;
  int16_t guid_key_;
  BtrvFile* file_ = nullptr;
};

#endif  // BASICS_OPENDAT_INTERNAL_H_
