// Record caches offered to the host: CRecordCache keeps every master record it has read,
// CRecordIDCache only the last one plus every record-number-to-ID pair it has met, each
// for accounts, customers, vendors, employees, items and projects. Each cache owns a
// read-only handle of its own for positioned reads (opened on first use) and reads single
// records through the master lookups. Nothing invalidates a cache: the host calls Clear
// whenever the file may have changed. Builds on OpenDat, CHART, CustDcl, VendorDcl,
// EmployeeDcl, LineItemDcl and PROJECT. A cache belongs to one thread at a time.
#ifndef BASICS_RECORDCACHE_H_
#define BASICS_RECORDCACHE_H_

#include <cstdint>
#include <memory>

#include "CHART.h"
#include "CustDcl.h"
#include "EmployeeDcl.h"
#include "LineItemDcl.h"
#include "PROJECT.h"
#include "VendorDcl.h"
#include "zor_types.h"

// Copying or assigning a cache shares its state: reads through one copy are seen through
// all, Clear on one clears them all, and the state (with its handle) goes with the last
// copy. IDs are compared over their first 20 characters as CompareStr compares them.
// Results are copied into the caller's buffers; the cache keeps its own copies.
//
// Common to both templates:
//   GetFirst, GetNext, GetEqual, GetGE (buffer, key number): a read without lock on the
//   cache's own handle into the caller's buffer (for GetEqual and GetGE the caller has set
//   the key value in it). false when the handle cannot be opened or the read fails (the
//   buffer then holds what the record manager left); false for a null buffer.
//   Clear: forgets every record and ID, and closes the handle.
template <typename T, typename Key>
class CRecordCache {
 public:
  CRecordCache();
  ~CRecordCache();
  CRecordCache(const CRecordCache&) = default;
  CRecordCache& operator=(const CRecordCache&) = default;

  // Copies the record's ID into id; false, id cleared, for number 0 or an unknown number.
  bool GetID(int32_t record_number, Key& id);
  // Copies the record's GUID; on failure only the first 4 bytes of guid are cleared.
  bool GetGUID(int32_t record_number, GUID& guid);
  // The record number of the record with that ID; 0 for an empty or unknown ID.
  int32_t GetRecordNumber(const Key& id);
  // Copies the whole record; false, *record cleared, for number 0 or an unknown number
  // (false for a null record).
  bool GetRecord(int32_t record_number, T* record);
  // Positioned reads; a record read is also kept when its number is not cached yet (a
  // cached copy is not replaced).
  bool GetFirst(T* buffer, int16_t key);
  bool GetNext(T* buffer, int16_t key);
  bool GetEqual(T* buffer, int16_t key);
  bool GetGE(T* buffer, int16_t key);
  void Clear();

 private:
  struct State;
  bool Positioned(T* buffer, int16_t key, int op);
  std::shared_ptr<State> state_;
};

template <typename T, typename Key>
class CRecordIDCache {
 public:
  CRecordIDCache();
  ~CRecordIDCache();
  CRecordIDCache(const CRecordIDCache&) = default;
  CRecordIDCache& operator=(const CRecordIDCache&) = default;

  // Copies the record's ID into id; false, id cleared, for number 0 or an unknown number.
  bool GetID(int32_t record_number, Key& id);
  // Copies the GUID of the last record read, or reads the record afresh (not kept); on
  // failure only the first 4 bytes of guid are cleared.
  bool GetGUID(int32_t record_number, GUID& guid);
  // The record number of the record with that ID; 0 for an empty or unknown ID.
  int32_t GetRecordNumber(const Key& id);
  // Copies the last record read when it has this number, else reads the record straight
  // into *record without keeping it; false for number 0 (*record cleared), an unknown
  // number (*record cleared but for the number) or a null record.
  bool GetRecord(int32_t record_number, T* record);
  // Positioned reads; a record read becomes the last record read.
  bool GetFirst(T* buffer, int16_t key);
  bool GetNext(T* buffer, int16_t key);
  bool GetEqual(T* buffer, int16_t key);
  bool GetGE(T* buffer, int16_t key);
  void Clear();

 private:
  struct State;
  bool Positioned(T* buffer, int16_t key, int op);
  std::shared_ptr<State> state_;
};

// The instantiations the library provides; no others exist.
extern template class CRecordCache<AccountType, FixedString<16>>;
extern template class CRecordCache<CustomerRecord, FixedString<21>>;
extern template class CRecordCache<VendorRecord, FixedString<21>>;
extern template class CRecordCache<EmpType, FixedString<21>>;
extern template class CRecordCache<LineItemRecord, FixedString<21>>;
extern template class CRecordCache<ProjectRecord, FixedString<21>>;
extern template class CRecordIDCache<AccountType, FixedString<16>>;
extern template class CRecordIDCache<CustomerRecord, FixedString<21>>;
extern template class CRecordIDCache<VendorRecord, FixedString<21>>;
extern template class CRecordIDCache<EmpType, FixedString<21>>;
extern template class CRecordIDCache<LineItemRecord, FixedString<21>>;
extern template class CRecordIDCache<ProjectRecord, FixedString<21>>;

// The named caches: each behaves as its template and is empty when built; copies share
// state as the template's do.
class CRecordCacheAccount : public CRecordCache<AccountType, FixedString<16>> {
 public:
  CRecordCacheAccount();
  ~CRecordCacheAccount();
};
class CRecordCacheCustomer : public CRecordCache<CustomerRecord, FixedString<21>> {
 public:
  CRecordCacheCustomer();
  ~CRecordCacheCustomer();
};
class CRecordCacheVendor : public CRecordCache<VendorRecord, FixedString<21>> {
 public:
  CRecordCacheVendor();
  ~CRecordCacheVendor();
};
class CRecordCacheEmployee : public CRecordCache<EmpType, FixedString<21>> {
 public:
  CRecordCacheEmployee();
  ~CRecordCacheEmployee();
};
class CRecordCacheLineItem : public CRecordCache<LineItemRecord, FixedString<21>> {
 public:
  CRecordCacheLineItem();
  ~CRecordCacheLineItem();
};
class CRecordCacheProject : public CRecordCache<ProjectRecord, FixedString<21>> {
 public:
  CRecordCacheProject();
  ~CRecordCacheProject();
};
class CRecordIDCacheAccount : public CRecordIDCache<AccountType, FixedString<16>> {
 public:
  CRecordIDCacheAccount();
  ~CRecordIDCacheAccount();
};
class CRecordIDCacheCustomer : public CRecordIDCache<CustomerRecord, FixedString<21>> {
 public:
  CRecordIDCacheCustomer();
  ~CRecordIDCacheCustomer();
};
class CRecordIDCacheVendor : public CRecordIDCache<VendorRecord, FixedString<21>> {
 public:
  CRecordIDCacheVendor();
  ~CRecordIDCacheVendor();
};
class CRecordIDCacheEmployee : public CRecordIDCache<EmpType, FixedString<21>> {
 public:
  CRecordIDCacheEmployee();
  ~CRecordIDCacheEmployee();
};
class CRecordIDCacheLineItem : public CRecordIDCache<LineItemRecord, FixedString<21>> {
 public:
  CRecordIDCacheLineItem();
  ~CRecordIDCacheLineItem();
};
class CRecordIDCacheProject : public CRecordIDCache<ProjectRecord, FixedString<21>> {
 public:
  CRecordIDCacheProject();
  ~CRecordIDCacheProject();
};

#endif  // BASICS_RECORDCACHE_H_
