// The file-creation library: one creation description per data file of a company (the
// key catalogue) and the functions that make each file empty. Key numbers are the ones
// the record layouts give; numbers a layout does not name are left unused, so a lookup
// on them answers "invalid key" instead of silently ordering by something else.
#include "file_creation.h"

#include <cstring>
#include <string>
#include <vector>

#include "utility.h"

namespace {

// Offsets below are zero-based, as in the record layouts; the description wants them
// one-based, which Seg() adds.
struct Seg {
  uint16_t offset;
  uint16_t length;
  uint8_t type;
  uint16_t extra_flags = 0;  // kKeyDescending, kKeyNoCase
};

struct Key {
  uint8_t number;
  std::vector<Seg> segments;
  bool duplicates;
  bool modifiable = true;
};

// Builds a description. Every key carries a manual number so that gaps stay gaps.
class SpecBuilder {
 public:
  SpecBuilder(uint16_t record_length, uint16_t page_size) {
    std::memset(&spec_, 0, sizeof spec_);
    spec_.recordLength = record_length;
    spec_.pageSize = page_size;
  }

  SpecBuilder& Add(const Key& key) {
    for (size_t i = 0; i < key.segments.size(); ++i) {
      const Seg& s = key.segments[i];
      KeySegmentSpec& out = spec_.segments[spec_.numberOfSegments++];
      out.position = static_cast<uint16_t>(s.offset + 1);
      out.length = s.length;
      out.extendedType = s.type;
      out.flags = static_cast<uint16_t>(kKeyExtendedType | s.extra_flags);
      if (key.duplicates) out.flags |= kKeyDuplicates;
      if (key.modifiable) out.flags |= kKeyModifiable;
      if (i + 1 < key.segments.size()) out.flags |= kKeySegmented;
      if (i == 0) {
        out.flags |= kKeyManualNumber;
        out.keyNumber = key.number;
      }
    }
    return *this;
  }

  const FileSpec& spec() const { return spec_; }

 private:
  FileSpec spec_;
};

// Segment shorthands.
Seg Str(uint16_t offset, uint16_t length) { return {offset, length, kExtZString}; }
Seg Bytes(uint16_t offset, uint16_t length) { return {offset, length, kExtString}; }
Seg Int(uint16_t offset, uint16_t length) { return {offset, length, kExtInteger}; }
Seg UInt(uint16_t offset, uint16_t length) { return {offset, length, kExtUnsignedBinary}; }
Seg Date(uint16_t offset) { return {offset, 4, kExtDate}; }
Seg AutoInc(uint16_t offset) { return {offset, 4, kExtAutoIncrement}; }

// A record-number key: auto-increment, unique, never changed by an update.
Key RecordNumberKey(uint8_t number, uint16_t offset) {
  return {number, {AutoInc(offset)}, false, false};
}
Key IdKey(uint8_t number, uint16_t offset, uint16_t length) {
  return {number, {Str(offset, length)}, false};
}
Key GuidKey(uint8_t number, uint16_t offset) { return {number, {Bytes(offset, 16)}, false}; }

// The transaction key (JournalKey1Type at header offset 0) ordered so that the numbers of
// one journal and period are contiguous: journal type, period, partner flag, number,
// shadow byte. Finding the next transaction number relies on this order.
std::vector<Seg> TransactionKeySegments() {
  return {Int(7, 2), UInt(5, 2), UInt(0, 1), Int(1, 4), UInt(9, 1)};
}
// JournalKey2Type at header offset 10: qualifier letter, card record number, date.
std::vector<Seg> CardDateKeySegments(bool newest_first = false) {
  Seg date = Date(15);
  if (newest_first) date.extra_flags = kKeyDescending;
  return {Bytes(10, 1), Int(11, 4), date};
}

std::vector<Seg> Concat(std::vector<Seg> a, const std::vector<Seg>& b) {
  a.insert(a.end(), b.begin(), b.end());
  return a;
}

FileSpec General() {
  SpecBuilder b(kGeneralRecordLength, 4096);
  b.Add({0, {UInt(0, 2)}, false});
  return b.spec();
}

FileSpec Chart() {
  SpecBuilder b(kChartRecordLength, 4096);
  b.Add(IdKey(0, 0, 16));
  b.Add({1, {Int(16, 2), Str(0, 16)}, false});  // type, then ID
  b.Add(RecordNumberKey(3, 66));
  b.Add(GuidKey(5, 50));
  return b.spec();
}

FileSpec Customer() {
  SpecBuilder b(kCustomerRecordLength, 4096);
  b.Add(IdKey(0, 0, 21));
  b.Add(RecordNumberKey(4, 2863));
  b.Add(GuidKey(6, 141));
  return b.spec();
}

FileSpec Vendor() {
  SpecBuilder b(kVendorRecordLength, 4096);
  b.Add(IdKey(0, 0, 21));
  b.Add(RecordNumberKey(5, 1477));
  b.Add(GuidKey(7, 21));
  return b.spec();
}

FileSpec Employee() {
  SpecBuilder b(kEmployeeRecordLength, 4096);
  b.Add(IdKey(0, 0, 21));
  b.Add(RecordNumberKey(4, 21));
  b.Add(GuidKey(5, 25));
  return b.spec();
}

FileSpec LineItem() {
  SpecBuilder b(kLineItemRecordLength, 4096);
  b.Add(IdKey(0, 0, 21));
  b.Add(RecordNumberKey(2, 68));
  b.Add({5, {Str(73, 21)}, true});                // UPC/SKU; many items have none
  b.Add({6, {Int(94, 4)}, true});                 // parent record number of a sub-item
  b.Add({10, {Int(119, 2), Int(121, 2)}, true});  // item class, component count
  b.Add(GuidKey(13, 21));
  return b.spec();
}

FileSpec JournalHeader() {
  SpecBuilder b(kJrnlHdrRecordLength, 4096);
  const std::vector<Seg> trx = TransactionKeySegments();
  b.Add({0, trx, false});
  b.Add({1, CardDateKeySegments(), true});
  b.Add({2, {Str(78, 21)}, true});  // reference
  b.Add({3, {Date(15)}, true});
  // Saved (not yet posted) transactions first, then by date and post order.
  b.Add({4, {UInt(99, 1), Date(15), UInt(35, 4)}, true});
  b.Add({5, {UInt(35, 4)}, false});  // post order number: the link to the rows
  b.Add({6, Concat(trx, CardDateKeySegments()), false});
  b.Add({7, Concat(trx, {Str(78, 21)}), false});
  b.Add({8, {Int(116, 4)}, true});  // customer, vendor or employee record number
  b.Add({9, Concat({Int(7, 2)}, CardDateKeySegments()), true});
  b.Add({10, {Bytes(19, 16)}, false});  // transaction GUID
  b.Add({11, CardDateKeySegments(/*newest_first=*/true), true});
  b.Add({12, {Int(7, 2), Str(78, 21)}, true});
  b.Add({14, {Str(602, 21)}, true});  // receipt number
  return b.spec();
}

FileSpec JournalRow() {
  SpecBuilder b(kJrnlRowRecordLength, 4096);
  b.Add({0, {UInt(4, 4)}, true});                                     // post order number
  b.Add({1, {UInt(4, 4), UInt(8, 2)}, true});                         // post order, line number
  b.Add({2, {Int(0, 4), Date(70), UInt(4, 4)}, true});                // account, date, post order
  b.Add({3, {Int(10, 4), Date(70), UInt(4, 4), UInt(8, 2)}, true});   // item, date, ...
  b.Add({4, {Bytes(318, 16)}, false});                                // row GUID
  b.Add({5, {UInt(60, 4), Date(70)}, true});                          // applied invoice, date
  b.Add({6, {Int(14, 4), Date(70)}, true});                           // job, date
  b.Add({7, {Int(10, 4), Int(66, 4), Date(70), UInt(74, 1)}, true});  // item, journal, ...
  return b.spec();
}

FileSpec Project() {
  SpecBuilder b(kProjectRecordLength, 4096);
  b.Add(IdKey(0, 0, 21));
  b.Add(RecordNumberKey(1, 21));
  b.Add(GuidKey(5, 606));
  return b.spec();
}

FileSpec Phase() {
  SpecBuilder b(kPhaseRecordLength, 1024);
  b.Add(IdKey(0, 0, 21));
  b.Add(RecordNumberKey(1, 21));
  return b.spec();
}

FileSpec Cost() {
  SpecBuilder b(kCostRecordLength, 1024);
  b.Add(IdKey(0, 0, 21));
  b.Add(RecordNumberKey(1, 21));
  return b.spec();
}

FileSpec JobEst() {
  SpecBuilder b(kJobEstRecordLength, 1024);
  b.Add({0, {Int(0, 4), Int(4, 4), Int(8, 4)}, true});  // project, phase, cost code
  return b.spec();
}

FileSpec InvTag() {
  SpecBuilder b(kInvTagRecordLength, 1024);
  // Item, date, tag type, then the post order's bytes as stored and the distribution
  // index: a search for the last record of a day puts 255 in the byte after the type.
  b.Add({0, {Int(0, 4), Date(4), Int(10, 1), Bytes(11, 4), Int(8, 2)}, true});
  b.Add({1, {UInt(11, 4), Int(8, 2)}, true});  // post order, distribution index
  return b.spec();
}

FileSpec InvCost() {
  SpecBuilder b(kInvCostRecordLength, 1024);
  b.Add({0, {Int(0, 4), Date(4)}, true});  // item, date
  return b.spec();
}

FileSpec RecptTag() {
  SpecBuilder b(kRecptTagRecordLength, 1024);
  b.Add({1, {Bytes(0, 10)}, true});                // sale key
  b.Add({2, {UInt(24, 4), UInt(28, 2)}, true});    // receipt post order, row offset
  b.Add({3, {Bytes(10, 10), UInt(28, 2)}, true});  // receipt key, row offset
  return b.spec();
}

FileSpec EventLog() {
  SpecBuilder b(kEventLogRecordLength, 1024);
  b.Add({0, {Int(0, 4), Int(4, 2), UInt(6, 2), UInt(8, 2)}, false});  // card, type, log, series
  b.Add({1, {Date(10), Int(30, 2)}, true});                           // date, event type
  b.Add({3, {Bytes(32, 10)}, true});                                  // journal key
  return b.spec();
}

// The audit trail's own layout: entry number (auto-increment) at 0, date at 4, the post
// order number of the transaction an entry belongs to at 8 (0 once detached).
FileSpec AuditTrail() {
  SpecBuilder b(kAuditTrailRecordLength, 1024);
  b.Add(RecordNumberKey(0, 0));
  b.Add({1, {Date(4)}, true});
  b.Add({2, {UInt(8, 4)}, true});
  return b.spec();
}

FileSpec TaxAuthority() {
  SpecBuilder b(kTaxAuthorityRecordLength, 1024);
  b.Add(IdKey(0, 0, 21));
  return b.spec();
}

FileSpec RaiseHistory() {
  SpecBuilder b(kRaiseHistoryRecordLength, 1024);
  b.Add({0, {Int(0, 4), Date(4)}, true});  // employee record number, date
  return b.spec();
}

// The temporary ledger sort file, exactly as the sorted iteration describes it: account
// ID (zero-terminated), the row date as legacy unsigned binary, the post order number.
FileSpec Sort() {
  FileSpec spec;
  std::memset(&spec, 0, sizeof spec);
  spec.recordLength = kSortRecordLength;
  spec.pageSize = 1024;
  spec.numberOfSegments = 3;
  spec.segments[0] = {1, 16, kKeyExtendedType | kKeySegmented | kKeyDuplicates, kExtZString, 0};
  spec.segments[1] = {87, 4, kKeyBinary | kKeySegmented | kKeyDuplicates, 0, 0};
  spec.segments[2] = {21, 4, kKeyExtendedType | kKeyBinary | kKeyDuplicates, kExtUnsignedBinary, 0};
  return spec;
}

struct Entry {
  DataFileKind kind;
  FileSpec (*describe)();
  const char* standard_name;     // literal for the library's own names
  CFileNameString* name_global;  // the utility library's global, when it has one
  bool standard_owner;           // csStdTheOwner instead of csTheOwner
};

const Entry kEntries[] = {
    {DataFileKind::kGeneral, General, nullptr, &GeneralFileName, false},
    {DataFileKind::kChart, Chart, nullptr, &ChartName, false},
    {DataFileKind::kCustomer, Customer, nullptr, &CustomerName, false},
    {DataFileKind::kVendor, Vendor, nullptr, &VendorName, false},
    {DataFileKind::kLineItem, LineItem, nullptr, &LineItemName, false},
    {DataFileKind::kEmployee, Employee, nullptr, &EmpFileName, false},
    {DataFileKind::kJrnlHdr, JournalHeader, nullptr, &JrnlHdrFileName, false},
    {DataFileKind::kJrnlRow, JournalRow, nullptr, &JrnlRowFileName, false},
    {DataFileKind::kProject, Project, "PROJECT.DAT", nullptr, false},
    {DataFileKind::kPhase, Phase, "PHASE.DAT", nullptr, false},
    {DataFileKind::kCost, Cost, "COST.DAT", nullptr, false},
    {DataFileKind::kJobEst, JobEst, "JOBEST.DAT", nullptr, true},
    {DataFileKind::kInvTag, InvTag, nullptr, &InvTagName, false},
    {DataFileKind::kInvCost, InvCost, nullptr, &InvLFName, false},
    {DataFileKind::kRecptTag, RecptTag, nullptr, &RecptTagName, false},
    {DataFileKind::kEventLog, EventLog, nullptr, &EventLogFileName, false},
    {DataFileKind::kAuditTrail, AuditTrail, nullptr, &AuditTrailName, false},
    {DataFileKind::kTaxAuthority, TaxAuthority, nullptr, &TaxAuthorityName, true},
    {DataFileKind::kRaiseHistory, RaiseHistory, nullptr, &RaiseHistoryFileName, false},
};

const Entry* Find(DataFileKind kind) {
  for (const Entry& e : kEntries) {
    if (e.kind == kind) return &e;
  }
  return nullptr;
}

const char* StandardName(const Entry& e) {
  return e.name_global != nullptr ? e.name_global->c_str() : e.standard_name;
}

int Create(DataFileKind kind, const char* name) {
  const Entry* e = Find(kind);
  if (e == nullptr) return 0;
  FileSpec spec = e->describe();
  const char* owner = e->standard_owner ? csStdTheOwner.c_str() : csTheOwner.c_str();
  return ZORCreateFileWithOwner(&spec, 0, name != nullptr ? name : StandardName(*e), owner);
}

}  // namespace

bool DescribeDataFile(DataFileKind kind, FileSpec* spec) {
  if (spec == nullptr) return false;
  if (kind == DataFileKind::kSort) {
    *spec = Sort();
    return true;
  }
  const Entry* e = Find(kind);
  if (e == nullptr) return false;
  *spec = e->describe();
  return true;
}

int CreateNewGeneralFile(const char* name) { return Create(DataFileKind::kGeneral, name); }
int CreateNewChartFile(const char* name) { return Create(DataFileKind::kChart, name); }
int CreateNewCustomerFile(const char* name) { return Create(DataFileKind::kCustomer, name); }
int CreateNewVendorFile(const char* name) { return Create(DataFileKind::kVendor, name); }
int CreateNewLineItemFile(const char* name) { return Create(DataFileKind::kLineItem, name); }
int CreateNewEmployeeFile(const char* name) { return Create(DataFileKind::kEmployee, name); }
int CreateNewJournalHdrFile(const char* name) { return Create(DataFileKind::kJrnlHdr, name); }
int CreateNewJournalRowFile(const char* name) { return Create(DataFileKind::kJrnlRow, name); }
int CreateNewProjectFile(const char* name) { return Create(DataFileKind::kProject, name); }
int CreateNewPhaseFile(const char* name) { return Create(DataFileKind::kPhase, name); }
int CreateNewCostFile(const char* name) { return Create(DataFileKind::kCost, name); }
int CreateNewJobEstFile(const char* name) { return Create(DataFileKind::kJobEst, name); }
int CreateNewInvTagFile(const char* name) { return Create(DataFileKind::kInvTag, name); }
int CreateNewInvCostFile(const char* name) { return Create(DataFileKind::kInvCost, name); }
int CreateNewRecptTagFile(const char* name) { return Create(DataFileKind::kRecptTag, name); }
int CreateNewEventLogFile(const char* name) { return Create(DataFileKind::kEventLog, name); }
int CreateNewAuditTrailFile(const char* name) { return Create(DataFileKind::kAuditTrail, name); }
int CreateNewTaxAuthorityFile(const char* name) {
  return Create(DataFileKind::kTaxAuthority, name);
}
int CreateNewRaiseHistoryFile(const char* name) {
  return Create(DataFileKind::kRaiseHistory, name);
}

int CreateNewSortFile(const char* name) {
  if (name == nullptr) return 0;
  FileSpec spec = Sort();
  return ZORCreateFile(&spec, 0, name);
}

int CreateNewCompany(const char* directory) {
  if (directory == nullptr || *directory == '\0') return 0;
  std::string dir = directory;
  if (dir.back() != '/' && dir.back() != '\\') dir += '/';
  std::vector<std::string> made;
  for (const Entry& e : kEntries) {
    std::string name = dir + StandardName(e);
    if (Create(e.kind, name.c_str()) == 0) {
      for (const std::string& m : made) ZORDeleteFile(m.c_str());
      return 0;
    }
    made.push_back(name);
  }
  return 1;
}
