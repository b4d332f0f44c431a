// The record identifier union: conversions through the master lookups and comparisons.
#include "RecIDUnion.h"

#include <cstring>

#include "CHART.h"
#include "COST.h"
#include "CustDcl.h"
#include "EmployeeDcl.h"
#include "LineItemDcl.h"
#include "OpenDat.h"
#include "PHASE.h"
#include "PROJECT.h"
#include "VendorDcl.h"
#include "utility.h"
#include "zor_types.h"

namespace {

// Kind k (1 to 8) lives in file kFileOfKind[k]; index 0 is "no kind".
constexpr uint16_t kFileOfKind[] = {
    0,
    kFileNoCustomer,
    kFileNoVendor,
    kFileNoEmployee,
    kFileNoLineItem,
    kFileNoProject,
    kFileNoChart,
    kFileNoPhase,
    kFileNoCost,
};
constexpr uint16_t kKindCount = sizeof kFileOfKind / sizeof kFileOfKind[0];

// Work areas of the store-form and ID conversions.
constexpr int kStoreArea = 121;
constexpr int kTextArea = 120;

template <size_t N>
FixedString<N> KeyOf(const std::string& id) {
  FixedString<N> key{};
  key.Set(id.c_str());
  return key;
}

int Compare(const std::string& a, const char* b) { return std::strcmp(a.c_str(), b ? b : ""); }

}  // namespace

S_L_RecIDUnion::S_L_RecIDUnion() { Init(); }

S_L_RecIDUnion::S_L_RecIDUnion(const S_L_RecIDUnion& other)
    : kind_(other.kind_), record_number_(other.record_number_), id_(other.id_) {}

S_L_RecIDUnion::S_L_RecIDUnion(const char* id) {
  Init();
  id_ = id ? id : "";
}

S_L_RecIDUnion::S_L_RecIDUnion(int32_t record_number) {
  Init();
  record_number_ = record_number;
}

S_L_RecIDUnion& S_L_RecIDUnion::operator=(const S_L_RecIDUnion& other) {
  if (this == &other) return *this;
  kind_ = other.kind_;
  record_number_ = other.record_number_;
  id_ = other.id_;
  return *this;
}

S_L_RecIDUnion& S_L_RecIDUnion::operator=(const char* id) {
  id_ = id ? id : "";
  record_number_ = -1;
  return *this;
}

S_L_RecIDUnion& S_L_RecIDUnion::operator=(int32_t record_number) {
  record_number_ = record_number;
  id_.clear();
  return *this;
}

S_L_RecIDUnion& S_L_RecIDUnion::operator=(const unsigned char* store_form) {
  if (kind_ == eNone || store_form == nullptr) return *this;
  record_number_ = -1;
  id_.clear();
  if (UsesRecNbrInFile()) {
    int32_t number;
    std::memcpy(&number, store_form, sizeof number);
    record_number_ = number;
  } else {
    const char* text = reinterpret_cast<const char*>(store_form);
    id_.assign(text, ::strnlen(text, kMaxIdText));
  }
  return *this;
}

void S_L_RecIDUnion::Init() {
  kind_ = eNone;
  record_number_ = -1;
  id_.clear();
}

void S_L_RecIDUnion::ResetRecNbr() { record_number_ = -1; }

void S_L_RecIDUnion::ResetId() { id_.clear(); }

int S_L_RecIDUnion::ByteBufferLth() const {
  return UsesRecNbrInFile() ? static_cast<int>(sizeof(int32_t)) : static_cast<int>(id_.size());
}

uint16_t S_L_RecIDUnion::GetFileNumber(uint16_t kind) {
  return kind < kKindCount ? kFileOfKind[kind] : 0;
}

uint16_t S_L_RecIDUnion::GeteWhatType_FromFile(uint16_t file_number) {
  for (uint16_t kind = 1; kind < kKindCount; ++kind) {
    if (kFileOfKind[kind] == file_number) return kind;
  }
  return eNone;
}

bool S_L_RecIDUnion::NumberFromId() const {
  switch (kind_) {
    case eCustomer:
      record_number_ = GetRecordNumberFromCustomerID(KeyOf<21>(id_));
      break;
    case eVendor:
      record_number_ = GetRecordNumberFromVendorID(KeyOf<21>(id_));
      break;
    case eEmployee:
      record_number_ = GetEmployeeRecNo(KeyOf<21>(id_));
      break;
    case eLineItem:
      record_number_ = GetRecordNumberFromLineItemID(KeyOf<21>(id_));
      break;
    case eProject:
      record_number_ = GetProjNumFromID(KeyOf<21>(id_));
      break;
    case eAccount:
      record_number_ = GetAcctRecNumFromID(KeyOf<16>(id_));
      break;
    case ePhase:
      record_number_ = GetPhaseNumFromID(KeyOf<21>(id_));
      break;
    case eCostCode:
      record_number_ = GetCostNumFromID(KeyOf<21>(id_));
      break;
    default:
      return false;
  }
  return record_number_ >= 1;
}

bool S_L_RecIDUnion::IdFromNumber() const {
  // The lookups clear their key when nothing is found, so an unknown number leaves the ID
  // empty; that still counts as a conversion made.
  FixedString<21> key{};
  FixedString<16> account{};
  switch (kind_) {
    case eCustomer:
      GetCustomerIDFromRecordNumber(record_number_, key);
      break;
    case eVendor:
      GetVendorIDFromRecordNumber(record_number_, key);
      break;
    case eEmployee:
      GetEmployeeID(record_number_, &key);
      break;
    case eLineItem:
      GetLineItemIDFromRecordNumber(record_number_, key);
      break;
    case eProject:
      GetProjIDFromNum(record_number_, key);
      break;
    case eAccount:
      GetAcctIDFromRecordNumber(record_number_, account);
      id_ = account.c_str();
      return true;
    case ePhase:
      GetPhaseIDFromNum(record_number_, key);
      break;
    case eCostCode:
      GetCostIDFromNum(record_number_, key);
      break;
    default:
      return false;
  }
  id_ = key.c_str();
  return true;
}

void S_L_RecIDUnion::ResolveNumber() const {
  if (record_number_ == -1 && IdExists()) NumberFromId();
}

void S_L_RecIDUnion::ResolveId() const {
  if (!IdExists() && record_number_ != -1) IdFromNumber();
}

bool S_L_RecIDUnion::GetRecNbr(int32_t& record_number, bool reset) const {
  if (!UsesRecNbrInFile()) return false;
  record_number = -1;
  if (reset) record_number_ = -1;
  if (record_number_ == -1) {
    if (!IdExists()) return false;  // nothing to hand out
    const bool found = NumberFromId();
    record_number = record_number_;
    return found;
  }
  record_number = record_number_;
  return IdExists() || IdFromNumber();
}

bool S_L_RecIDUnion::GetId(char* buffer, int& size, bool reset) const {
  if (buffer == nullptr) return false;
  bool converted = true;
  if (UsesRecNbrInFile()) {
    if (reset) id_.clear();
    if (IdExists() && record_number_ == -1) {
      converted = NumberFromId();
    } else if (!IdExists() && record_number_ != -1) {
      converted = IdFromNumber();
    }
  }
  const int needed = static_cast<int>(id_.size()) + 1;
  if (size < needed) {
    size = needed;
    return false;
  }
  std::memcpy(buffer, id_.c_str(), static_cast<size_t>(needed));
  return converted;
}

bool S_L_RecIDUnion::GetRecNbrId(unsigned char* buffer, int& size, bool reset) const {
  if (buffer == nullptr) return false;
  if (size > 0) std::memset(buffer, 0, static_cast<size_t>(size));
  if (UsesRecNbrInFile()) {
    if (size < static_cast<int>(sizeof(int32_t))) {
      size = sizeof(int32_t);
      return false;
    }
    int32_t number = -1;
    const bool ok = GetRecNbr(number, reset);
    std::memcpy(buffer, &number, sizeof number);
    return ok;
  }
  char text[kStoreArea] = {};
  int text_size = kStoreArea;
  const bool ok = GetId(text, text_size, reset);
  const int needed = static_cast<int>(::strnlen(text, kStoreArea - 1)) + 1;
  if (size < needed) {
    size = needed;
    return false;
  }
  std::memcpy(buffer, text, static_cast<size_t>(needed));
  return ok;
}

bool S_L_RecIDUnion::ConvertToDataStoreType(bool reset) const {
  unsigned char area[kStoreArea];
  int size = kStoreArea;
  return GetRecNbrId(area, size, reset);
}

bool S_L_RecIDUnion::ConvertToId(bool reset) const {
  char area[kStoreArea];
  int size = kStoreArea;
  return GetId(area, size, reset);
}

S_L_RecIDUnion::operator const char*() const {
  if (!IdExists() && UsesRecNbrInFile()) {
    char area[kTextArea];
    int size = kTextArea;
    GetId(area, size, false);
  }
  return id_.c_str();
}

S_L_RecIDUnion::operator const unsigned char*() const {
  if (UsesRecNbrInFile()) ResolveNumber();
  return reinterpret_cast<const unsigned char*>(&record_number_);
}

bool S_L_RecIDUnion::operator==(const S_L_RecIDUnion& other) const {
  if (this == &other) return true;
  if (kind_ != other.kind_) return false;
  other.ResolveId();
  return *this == other.id_.c_str();
}

bool S_L_RecIDUnion::operator==(const char* id) const {
  if (UsesRecNbrInFile()) ResolveId();
  return Compare(id_, id) == 0;
}

bool S_L_RecIDUnion::operator==(int32_t record_number) const {
  if (!UsesRecNbrInFile()) return false;
  ResolveNumber();
  return record_number_ == record_number;
}

bool S_L_RecIDUnion::RecNbr_Equal(const S_L_RecIDUnion& other) const {
  if (this == &other) return true;
  if (kind_ != other.kind_) return false;
  if (!UsesRecNbrInFile()) return true;
  other.ResolveNumber();
  return record_number_ == other.record_number_;
}

bool S_L_RecIDUnion::RecID_Equal(const S_L_RecIDUnion& other) const {
  if (this == &other) return true;
  if (kind_ != other.kind_) return false;
  bool equal = true;
  if (UsesRecNbrInFile()) {
    other.ResolveNumber();
    equal = record_number_ == other.record_number_;
  }
  if (equal) {
    other.ResolveId();
    equal = id_ == other.id_;
  }
  return equal;
}

bool S_L_RecIDUnion::operator<(const char* id) const {
  if (UsesRecNbrInFile()) ResolveId();
  return Compare(id_, id) < 0;
}

bool S_L_RecIDUnion::operator<(int32_t record_number) const {
  if (!UsesRecNbrInFile()) return false;
  ResolveNumber();
  return record_number_ < record_number;
}

bool S_L_RecIDUnion::operator<(const S_L_RecIDUnion& other) const {
  if (this == &other) return false;
  if (kind_ != other.kind_) return false;
  other.ResolveId();
  return *this < other.id_.c_str();
}
