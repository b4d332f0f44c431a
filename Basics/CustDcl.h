// Customer lookups: between customer IDs, record numbers, GUIDs and names, on the
// customer file maintained by the host. Owns a private read-only lookup handle (opened on
// first use) and closes it with CustFile. Builds on OpenDat. Not thread-safe.
#ifndef BASICS_CUSTDCL_H_
#define BASICS_CUSTDCL_H_

#include <cstddef>
#include <cstdint>

#include "zor_types.h"

// CustomerRecord, 3355 bytes. Fields the library touches; every other byte belongs to
// the host's maintenance screens and is carried unchanged.
//   offset  size  field
//        0    21  customer ID (20 characters and terminator); key 0
//      141    16  GUID; key 6
//      923    40  customer name (39 characters and terminator)
//     2863     4  record number (s32); key 4
#pragma pack(push, 1)
struct CustomerRecord {
  FixedString<21> ID;
  uint8_t reserved21[120];
  GUID Guid;
  uint8_t reserved157[766];
  FixedString<40> Name;
  uint8_t reserved963[1900];
  int32_t RecordNumber;
  uint8_t reserved2867[488];
};
#pragma pack(pop)
static_assert(sizeof(CustomerRecord) == 3355, "CustomerRecord is 3355 bytes");
static_assert(offsetof(CustomerRecord, Guid) == 141, "customer GUID at 141");
static_assert(offsetof(CustomerRecord, Name) == 923, "customer name at 923");
static_assert(offsetof(CustomerRecord, RecordNumber) == 2863, "record number at 2863");

// Key numbers of the customer file.
enum : int16_t { kCustKeyID = 0, kCustKeyRecordNumber = 4, kCustKeyGUID = 6 };

// Lookups show no message; a customer file that cannot be opened answers not found.

// Record number of a customer ID; 0 for an empty or unknown ID.
int32_t GetRecordNumberFromCustomerID(const FixedString<21>& id);
// Clears id, then fills it; false, id empty, for record number 0 or an unknown number.
bool GetCustomerIDFromRecordNumber(int32_t record_number, FixedString<21>& id);
// Record number of the customer with that GUID; 0 when none.
int32_t GetRecordNumberFromCustomerGUID(const GUID& guid);
// 1 with the GUID copied out; 0 with guid untouched.
int GetCustomerGUIDFromRecordNumber(int32_t record_number, GUID& guid);
// Sets number 0 and name := the ID (30 characters) first; true with the customer's number
// and name, false for an empty or unknown ID (the number stays 0, the name the ID).
bool GetRecordNumberAndNameFromCustomerID(const FixedString<21>& id, int32_t& record_number,
                                          FixedString<31>& name);
// Clears the record, puts the key in it and reads it; false for an empty ID / number 0 or
// an unknown one, with the record cleared but for the key (false for a null record).
bool GetCustomerInfo(const FixedString<21>& id, CustomerRecord* record);
bool GetCustomerInfo(int32_t record_number, CustomerRecord* record);
// Closes CustFile, then the lookup handle, each only when open.
void CloseInternalCustFile();

#endif  // BASICS_CUSTDCL_H_
