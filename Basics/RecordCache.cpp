// Record caches: the two templates, their six record types and the named classes.
#include "RecordCache.h"

#include <cstring>
#include <map>

#include "OpenDat.h"
#include "OpenDat_internal.h"
#include "record_manager.h"
#include "utility.h"

namespace {

constexpr const char* kUnit = "Basics/RecordCache";

// What differs between the record types: where the ID lies, which lookups read a record
// and which function opens the file. Record number and GUID have the same names in all.
template <typename T>
struct CacheTraits;

template <>
struct CacheTraits<AccountType> {
  static const FixedString<16>& Id(const AccountType& r) { return r.ID; }
  static bool Read(int32_t number, AccountType* r) { return GetAccountInfo(number, r); }
  static bool Read(const FixedString<16>& id, AccountType* r) { return GetAccountInfo(id, r); }
  static bool Open(BtrvFile** file) { return OpenChartFile(file, kOpenModeReadOnly) != 0; }
};
template <>
struct CacheTraits<CustomerRecord> {
  static const FixedString<21>& Id(const CustomerRecord& r) { return r.ID; }
  static bool Read(int32_t number, CustomerRecord* r) { return GetCustomerInfo(number, r); }
  static bool Read(const FixedString<21>& id, CustomerRecord* r) { return GetCustomerInfo(id, r); }
  static bool Open(BtrvFile** file) { return OpenCustFile(file, kOpenModeReadOnly) != 0; }
};
template <>
struct CacheTraits<VendorRecord> {
  static const FixedString<21>& Id(const VendorRecord& r) { return r.ID; }
  static bool Read(int32_t number, VendorRecord* r) { return GetVendorInfo(number, r); }
  static bool Read(const FixedString<21>& id, VendorRecord* r) { return GetVendorInfo(id, r); }
  static bool Open(BtrvFile** file) { return OpenVendFile(file, kOpenModeReadOnly) != 0; }
};
template <>
struct CacheTraits<EmpType> {
  static const FixedString<21>& Id(const EmpType& r) { return r.ID; }
  static bool Read(int32_t number, EmpType* r) { return GetEmployeeInfo(number, r); }
  static bool Read(const FixedString<21>& id, EmpType* r) { return GetEmployeeInfo(id, r); }
  static bool Open(BtrvFile** file) { return OpenEmployeeFile(file, kOpenModeReadOnly) != 0; }
};
template <>
struct CacheTraits<LineItemRecord> {
  static const FixedString<21>& Id(const LineItemRecord& r) { return r.ItemID; }
  static bool Read(int32_t number, LineItemRecord* r) { return GetLineItemInfo(number, r) != 0; }
  static bool Read(const FixedString<21>& id, LineItemRecord* r) {
    return GetLineItemInfo(id, r) != 0;
  }
  static bool Open(BtrvFile** file) { return OpenLineItemFile(file, kOpenModeReadOnly) != 0; }
};
template <>
struct CacheTraits<ProjectRecord> {
  static const FixedString<21>& Id(const ProjectRecord& r) { return r.ID; }
  static bool Read(int32_t number, ProjectRecord* r) { return GetProjectInfo(number, r); }
  static bool Read(const FixedString<21>& id, ProjectRecord* r) { return GetProjectInfo(id, r); }
  static bool Open(BtrvFile** file) { return OpenProjFile(file, kOpenModeReadOnly) != 0; }
};

// IDs match over their first 20 characters, as the ID keys order them.
template <size_t N>
bool SameId(const FixedString<N>& a, const FixedString<N>& b) {
  return CompareStr(a.s, b.s, 20) == 0;
}

// The positioned reads, by the op number the templates pass.
enum PositionedOp { kFirst, kNext, kEqual, kGE };
uint8_t ReadPositioned(int op, BtrvFile* file, uint32_t length, void* buffer, int16_t key) {
  switch (op) {
    case kFirst:
      return GetFileLowest(file, kLockBiasNone, length, buffer, key);
    case kNext:
      return GetFileNext(file, kLockBiasNone, length, buffer, key);
    case kEqual:
      return GetFileEqual(file, kLockBiasNone, length, buffer, key);
    default:
      return GetFileGE(file, kLockBiasNone, length, buffer, key);
  }
}

// Opens the cache's own handle read-only when it is still closed; true when open.
template <typename T>
bool EnsureOpen(BtrvFile** file) {
  if (*file == nullptr && !CacheTraits<T>::Open(file)) *file = nullptr;
  return *file != nullptr;
}

}  // namespace

// --- CRecordCache ------------------------------------------------------------------------

template <typename T, typename Key>
struct CRecordCache<T, Key>::State {
  ~State() { CloseIfOpen(&file, kUnit, __LINE__); }

  // The cached record of that number (which becomes current), or null.
  T* Find(int32_t number) {
    if (current != nullptr && current->RecordNumber == number) return current;
    auto it = records.find(number);
    if (it == records.end()) return nullptr;
    current = it->second.get();
    return current;
  }
  // Keeps a record just read under its number, unless a copy is cached already; the
  // cached copy becomes current either way.
  T* Keep(std::unique_ptr<T> record) {
    const int32_t number = record->RecordNumber;  // a copy: the field is unaligned
    auto [it, inserted] = records.try_emplace(number, std::move(record));
    current = it->second.get();
    return current;
  }
  // The record of that number, cached or read now; null (nothing current) when absent.
  T* Get(int32_t number) {
    if (T* found = Find(number)) return found;
    auto record = std::make_unique<T>();
    if (!CacheTraits<T>::Read(number, record.get())) {
      current = nullptr;
      return nullptr;
    }
    return Keep(std::move(record));
  }

  BtrvFile* file = nullptr;
  T* current = nullptr;  // always one of records, or null
  std::map<int32_t, std::unique_ptr<T>> records;
};

template <typename T, typename Key>
CRecordCache<T, Key>::CRecordCache() : state_(std::make_shared<State>()) {}

template <typename T, typename Key>
CRecordCache<T, Key>::~CRecordCache() = default;

template <typename T, typename Key>
bool CRecordCache<T, Key>::GetID(int32_t record_number, Key& id) {
  const T* record = record_number == 0 ? nullptr : state_->Get(record_number);
  if (record == nullptr) {
    id.Clear();
    return false;
  }
  id = CacheTraits<T>::Id(*record);
  return true;
}

template <typename T, typename Key>
bool CRecordCache<T, Key>::GetGUID(int32_t record_number, GUID& guid) {
  const T* record = record_number == 0 ? nullptr : state_->Get(record_number);
  if (record == nullptr) {
    guid.Data1 = 0;  // the rest of the caller's GUID is left as it was
    return false;
  }
  guid = record->Guid;
  return true;
}

template <typename T, typename Key>
int32_t CRecordCache<T, Key>::GetRecordNumber(const Key& id) {
  if (id.IsEmpty()) return 0;
  State& s = *state_;
  if (s.current != nullptr && SameId(CacheTraits<T>::Id(*s.current), id)) {
    return s.current->RecordNumber;
  }
  for (const auto& [number, record] : s.records) {
    if (SameId(CacheTraits<T>::Id(*record), id)) return number;
  }
  auto record = std::make_unique<T>();
  if (!CacheTraits<T>::Read(id, record.get())) return 0;
  return s.Keep(std::move(record))->RecordNumber;
}

template <typename T, typename Key>
bool CRecordCache<T, Key>::GetRecord(int32_t record_number, T* record) {
  if (record == nullptr) return false;
  const T* found = record_number == 0 ? nullptr : state_->Get(record_number);
  if (found == nullptr) {
    std::memset(record, 0, sizeof(T));
    return false;
  }
  std::memcpy(record, found, sizeof(T));
  return true;
}

template <typename T, typename Key>
bool CRecordCache<T, Key>::Positioned(T* buffer, int16_t key, int op) {
  State& s = *state_;
  if (buffer == nullptr || !EnsureOpen<T>(&s.file)) return false;
  if (ReadPositioned(op, s.file, sizeof(T), buffer, key) == 0) return false;
  const int32_t number = buffer->RecordNumber;
  if (s.records.find(number) == s.records.end()) {
    s.Keep(std::make_unique<T>(*buffer));
  }
  return true;
}

template <typename T, typename Key>
bool CRecordCache<T, Key>::GetFirst(T* buffer, int16_t key) {
  return Positioned(buffer, key, kFirst);
}
template <typename T, typename Key>
bool CRecordCache<T, Key>::GetNext(T* buffer, int16_t key) {
  return Positioned(buffer, key, kNext);
}
template <typename T, typename Key>
bool CRecordCache<T, Key>::GetEqual(T* buffer, int16_t key) {
  return Positioned(buffer, key, kEqual);
}
template <typename T, typename Key>
bool CRecordCache<T, Key>::GetGE(T* buffer, int16_t key) {
  return Positioned(buffer, key, kGE);
}

template <typename T, typename Key>
void CRecordCache<T, Key>::Clear() {
  State& s = *state_;
  s.records.clear();
  s.current = nullptr;
  CloseIfOpen(&s.file, kUnit, __LINE__);
}

// --- CRecordIDCache ----------------------------------------------------------------------

template <typename T, typename Key>
struct CRecordIDCache<T, Key>::State {
  State() { std::memset(&current, 0, sizeof current); }
  ~State() { CloseIfOpen(&file, kUnit, __LINE__); }

  BtrvFile* file = nullptr;
  T current;  // the last record read; all zero when none
  std::map<int32_t, Key> ids;
};

template <typename T, typename Key>
CRecordIDCache<T, Key>::CRecordIDCache() : state_(std::make_shared<State>()) {}

template <typename T, typename Key>
CRecordIDCache<T, Key>::~CRecordIDCache() = default;

template <typename T, typename Key>
bool CRecordIDCache<T, Key>::GetID(int32_t record_number, Key& id) {
  State& s = *state_;
  if (record_number == 0) {
    id.Clear();
    return false;
  }
  if (s.current.RecordNumber == record_number) {
    id = CacheTraits<T>::Id(s.current);
    return true;
  }
  auto it = s.ids.find(record_number);
  if (it != s.ids.end()) {
    id = it->second;
    return true;
  }
  if (!CacheTraits<T>::Read(record_number, &s.current)) {
    std::memset(&s.current, 0, sizeof(T));
    id.Clear();
    return false;
  }
  id = CacheTraits<T>::Id(s.current);
  s.ids.try_emplace(int32_t{s.current.RecordNumber}, id);
  return true;
}

template <typename T, typename Key>
bool CRecordIDCache<T, Key>::GetGUID(int32_t record_number, GUID& guid) {
  State& s = *state_;
  if (record_number != 0 && s.current.RecordNumber == record_number) {
    guid = s.current.Guid;
    return true;
  }
  T record;
  if (record_number == 0 || !CacheTraits<T>::Read(record_number, &record)) {
    guid.Data1 = 0;  // the rest of the caller's GUID is left as it was
    return false;
  }
  guid = record.Guid;
  return true;
}

template <typename T, typename Key>
int32_t CRecordIDCache<T, Key>::GetRecordNumber(const Key& id) {
  if (id.IsEmpty()) return 0;
  State& s = *state_;
  if (SameId(CacheTraits<T>::Id(s.current), id)) return s.current.RecordNumber;
  for (const auto& [number, known] : s.ids) {
    if (SameId(known, id)) return number;
  }
  if (!CacheTraits<T>::Read(id, &s.current)) {
    std::memset(&s.current, 0, sizeof(T));
    return 0;
  }
  s.ids.try_emplace(int32_t{s.current.RecordNumber}, CacheTraits<T>::Id(s.current));
  return s.current.RecordNumber;
}

template <typename T, typename Key>
bool CRecordIDCache<T, Key>::GetRecord(int32_t record_number, T* record) {
  if (record == nullptr) return false;
  State& s = *state_;
  if (record_number == 0) {
    std::memset(record, 0, sizeof(T));
    return false;
  }
  if (s.current.RecordNumber == record_number) {
    std::memcpy(record, &s.current, sizeof(T));
    return true;
  }
  return CacheTraits<T>::Read(record_number, record);
}

template <typename T, typename Key>
bool CRecordIDCache<T, Key>::Positioned(T* buffer, int16_t key, int op) {
  State& s = *state_;
  if (buffer == nullptr || !EnsureOpen<T>(&s.file)) return false;
  if (ReadPositioned(op, s.file, sizeof(T), buffer, key) == 0) return false;
  std::memcpy(&s.current, buffer, sizeof(T));
  return true;
}

template <typename T, typename Key>
bool CRecordIDCache<T, Key>::GetFirst(T* buffer, int16_t key) {
  return Positioned(buffer, key, kFirst);
}
template <typename T, typename Key>
bool CRecordIDCache<T, Key>::GetNext(T* buffer, int16_t key) {
  return Positioned(buffer, key, kNext);
}
template <typename T, typename Key>
bool CRecordIDCache<T, Key>::GetEqual(T* buffer, int16_t key) {
  return Positioned(buffer, key, kEqual);
}
template <typename T, typename Key>
bool CRecordIDCache<T, Key>::GetGE(T* buffer, int16_t key) {
  return Positioned(buffer, key, kGE);
}

template <typename T, typename Key>
void CRecordIDCache<T, Key>::Clear() {
  State& s = *state_;
  s.ids.clear();
  std::memset(&s.current, 0, sizeof(T));
  CloseIfOpen(&s.file, kUnit, __LINE__);
}

// --- Instantiations and named classes ----------------------------------------------------

template class CRecordCache<AccountType, FixedString<16>>;
template class CRecordCache<CustomerRecord, FixedString<21>>;
template class CRecordCache<VendorRecord, FixedString<21>>;
template class CRecordCache<EmpType, FixedString<21>>;
template class CRecordCache<LineItemRecord, FixedString<21>>;
template class CRecordCache<ProjectRecord, FixedString<21>>;
template class CRecordIDCache<AccountType, FixedString<16>>;
template class CRecordIDCache<CustomerRecord, FixedString<21>>;
template class CRecordIDCache<VendorRecord, FixedString<21>>;
template class CRecordIDCache<EmpType, FixedString<21>>;
template class CRecordIDCache<LineItemRecord, FixedString<21>>;
template class CRecordIDCache<ProjectRecord, FixedString<21>>;

#define BASICS_NAMED_CACHE(Name) \
  Name::Name() = default;        \
  Name::~Name() = default;
BASICS_NAMED_CACHE(CRecordCacheAccount)
BASICS_NAMED_CACHE(CRecordCacheCustomer)
BASICS_NAMED_CACHE(CRecordCacheVendor)
BASICS_NAMED_CACHE(CRecordCacheEmployee)
BASICS_NAMED_CACHE(CRecordCacheLineItem)
BASICS_NAMED_CACHE(CRecordCacheProject)
BASICS_NAMED_CACHE(CRecordIDCacheAccount)
BASICS_NAMED_CACHE(CRecordIDCacheCustomer)
BASICS_NAMED_CACHE(CRecordIDCacheVendor)
BASICS_NAMED_CACHE(CRecordIDCacheEmployee)
BASICS_NAMED_CACHE(CRecordIDCacheLineItem)
BASICS_NAMED_CACHE(CRecordIDCacheProject)
#undef BASICS_NAMED_CACHE
