// Vendor lookups: between vendor IDs, record numbers, GUIDs and names, on the vendor
// file maintained by the host. Owns a private read-only lookup handle (opened on first
// use) and closes it with VendFile. Builds on OpenDat. Not thread-safe.
#ifndef BASICS_VENDORDCL_H_
#define BASICS_VENDORDCL_H_

#include <cstddef>
#include <cstdint>

#include "zor_types.h"

// VendorRecord, 1810 bytes. Fields the library touches; every other byte is carried.
//   offset  size  field
//        0    21  vendor ID; key 0
//       21    16  GUID; key 7
//       37    40  vendor name (39 characters and terminator)
//     1477     4  record number (s32); key 5
#pragma pack(push, 1)
struct VendorRecord {
  FixedString<21> ID;
  GUID Guid;
  FixedString<40> Name;
  uint8_t reserved77[1400];
  int32_t RecordNumber;
  uint8_t reserved1481[329];
};
#pragma pack(pop)
static_assert(sizeof(VendorRecord) == 1810, "VendorRecord is 1810 bytes");
static_assert(offsetof(VendorRecord, Guid) == 21, "vendor GUID at 21");
static_assert(offsetof(VendorRecord, Name) == 37, "vendor name at 37");
static_assert(offsetof(VendorRecord, RecordNumber) == 1477, "record number at 1477");

// Key numbers of the vendor file.
enum : int16_t { kVendKeyID = 0, kVendKeyRecordNumber = 5, kVendKeyGUID = 7 };

// Lookups show no message; a vendor file that cannot be opened answers not found.

// Record number of a vendor ID; 0 for an empty or unknown ID.
int32_t GetRecordNumberFromVendorID(const FixedString<21>& id);
// Clears id, then fills it; false, id empty, for record number 0 or an unknown number.
bool GetVendorIDFromRecordNumber(int32_t record_number, FixedString<21>& id);
// Record number of the vendor with that GUID; 0 when none.
int32_t GetVendorRecordNumberFromGUID(const GUID& guid);
// Clears guid to 16 zero bytes first; false for number 0 or an unknown number.
bool GetVendorGUIDFromRecordNumber(int32_t record_number, GUID& guid);
// Clears name, then fills it with the vendor's name (30 characters); empty for number 0
// or an unknown number.
void GetVendorNameFromRecordNumber(int32_t record_number, FixedString<31>& name);
// Existence by a key-only read; 0 for number 0. Never a message.
uint8_t VendExistQuietByRecNum(int32_t record_number);
// Sets number 0 and name := the ID (30 characters) first; true with the vendor's number
// and name, false for an empty or unknown ID (the number stays 0, the name the ID).
bool GetRecordNumberAndNameFromVendorID(const FixedString<21>& id, int32_t& record_number,
                                        FixedString<31>& name);
// Clears the record, puts the key in it and reads it; false for an empty ID / number 0 or
// an unknown one, with the record cleared but for the key (false for a null record).
bool GetVendorInfo(const FixedString<21>& id, VendorRecord* record);
bool GetVendorInfo(int32_t record_number, VendorRecord* record);
// Closes VendFile, then the lookup handle, each only when open.
void CloseInternalVendFile();

#endif  // BASICS_VENDORDCL_H_
