// The general file and its settings cache: the company globals, the twelve-slot record
// cache with its read modes and once-a-minute modification check, the write-back of an
// edit, the derived global Current, and the creation of a new general file with its
// default records.
#include "General.h"

#include <cstdio>
#include <cstring>
#include <ctime>
#include <memory>
#include <new>

#include "OpenDat.h"
#include "OpenDat_internal.h"
#include "file_creation.h"

// --- Company globals ---------------------------------------------------------------------------
CompanyDataType MyCompany;
CurrentType Current;
OptionType Options;
CFixedString<6> CurVersion;  // cleared at load; the host sets it before creating a company
uint8_t CompanyIsOpen = 0;
CPathNameString CurrentDirName;
FixedString<40> CurrentLongName;
CFileNameString CurrentShortName;
const char* const csGross = "Gross";

namespace {

constexpr const char* kUnit = "Basics/General";

// Messages of this unit.
constexpr int kMsgCannotCreate = 5500;  // empty general file cannot be created
constexpr int kMsgCannotInsert = 5501;  // a default record could not be inserted (status)
constexpr int kMsgCannotRead = 5502;    // a general record cannot be read (record kind)
constexpr int kMsgFileInUse = 5503;     // the general file is already open for writing

constexpr int kSlotCount = 12;
constexpr int16_t kKeyKind = 0;

// Slot states.
enum : uint16_t {
  kStateClean = 0,               // may be handed out again without reading
  kStateLockedForEdit = 1,       // read with a lock for a mode-1 edit
  kStateLockedThroughWrite = 2,  // read with a lock through the shared write handle
  kStateStale = 3,               // must be read again before it is handed out
};

// The record cache. Slot 0 is the scratch buffer: every read lands there first and is
// copied into the kind's slot only when it succeeded, so a failed read never spoils a
// record the host still looks at, and the scratch buffer is what a failure hands out.
struct GeneralCache {
  std::unique_ptr<GeneralDataType> slot[kSlotCount];
  uint16_t state[kSlotCount] = {};
  bool initialised = false;
  bool force_reload = false;
  time_t last_check = 0;             // time of the last staleness check
  int64_t recorded_mtime = 0;        // the file's change stamp at the last read (0: none)
  BtrvFile* write_handle = nullptr;  // the shared write handle (null when not open)
};

GeneralCache g_cache;

bool AllocateSlot(int kind) {
  if (!g_cache.slot[kind]) {
    g_cache.slot[kind].reset(new (std::nothrow) GeneralDataType());
  }
  return g_cache.slot[kind] != nullptr;
}

// The change stamp of "general.dat" in the current directory, or 0 when unknown. The bare
// name is used on purpose: the host keeps the company directory current.
int64_t GeneralFileStamp() {
  struct _stat status;
  if (_stat("general.dat", &status) != 0) return 0;
  return status.st_mtime_ns;
}

// Runs the once-a-minute check: when the file changed since the stamp recorded at the last
// read, the next read marks the clean records stale.
void CheckForOutsideChanges() {
  time_t now = ClockNow();
  if (difftime(now, g_cache.last_check) <= 59.0) return;
  g_cache.last_check = now;
  int64_t stamp = GeneralFileStamp();
  if (stamp != 0 && g_cache.recorded_mtime < stamp) {
    g_cache.force_reload = true;
    g_cache.recorded_mtime = 0;
  }
}

// The full path of the general file for the read-only open: the company path, a
// backslash when it does not already end in a separator, then GeneralFileName.
void BuildGeneralPath(char* path, size_t capacity) {
  sstrcpy(path, g_szCompanyPath.c_str(), capacity);
  size_t len = Length(path);
  if (len > 0 && path[len - 1] != '\\' && path[len - 1] != '/') sstrcat(path, "\\", capacity);
  sstrcat(path, GeneralFileName.c_str(), capacity);
}

bool IsInUse(uint16_t status) { return status == kStatusRecordInUse || status == kStatusFileInUse; }

void ShowCannotRead(ModuleType kind) { MessageWithPara(MB_ICONEXCLAMATION, kMsgCannotRead, kind); }

// Asks while the shared write handle is open; answers false unless the user frees it
// and answers Retry.
bool WaitForWriteHandle() {
  while (g_cache.write_handle != nullptr) {
    if (Message(MB_RETRYCANCEL | MB_ICONEXCLAMATION, kMsgFileInUse) != IDRETRY) return false;
  }
  return true;
}

int OpenGeneralForWriting(BtrvFile** handle) {
  return BASICS_OPEN_OWNER(handle, GeneralFileName.c_str(), kOpenModeNormal, kFileNoGeneral,
                           csTheOwner.c_str(), kUnit);
}

// Closes the shared write handle; records read through it are no longer locked, so they
// become clean again.
int CloseWriteHandle() {
  int result = BASICS_CLOSE(&g_cache.write_handle, kUnit);
  g_cache.write_handle = nullptr;
  for (int i = 0; i < kSlotCount; ++i) {
    if (g_cache.state[i] == kStateLockedThroughWrite) g_cache.state[i] = kStateClean;
  }
  return result;
}

// Reads kind into buffer by key 0 (the buffer is zeroed and given the kind first).
bool ReadKind(BtrvFile* file, uint16_t lock, GeneralDataType* buffer, ModuleType kind) {
  std::memset(buffer, 0, sizeof(*buffer));
  buffer->Kind = static_cast<uint16_t>(kind);
  return GetFileEqual(file, lock, kGeneralRecordSize, buffer, kKeyKind) != 0;
}

// Mode 0: through the caller's handle or a read-only open by the full path.
bool ReadForReading(BtrvFile* file, GeneralDataType* buffer, ModuleType kind) {
  // The stamp is taken before the read, so that a change made between the two is seen
  // (at worst once too often) by the next check.
  int64_t stamp = g_cache.recorded_mtime == 0 ? GeneralFileStamp() : 0;
  BtrvFile* handle = file;
  bool ok = true;
  if (handle == nullptr) {
    char path[kMaxPathName];
    BuildGeneralPath(path, sizeof(path));
    ok = BASICS_OPEN_OWNER(&handle, path, kOpenModeReadOnly, kFileNoGeneral, csTheOwner.c_str(),
                           kUnit) != 0;
  }
  if (ok) ok = ReadKind(handle, kLockBiasNone, buffer, kind);
  if (file == nullptr) CloseIfOpen(&handle, kUnit, __LINE__);
  if (!ok) {
    ShowCannotRead(kind);
    return false;
  }
  if (g_cache.recorded_mtime == 0) g_cache.recorded_mtime = stamp;
  return true;
}

// Mode 1: a locked read through the caller's handle, or through the shared write handle
// opened here for the time of the edit.
bool ReadForUpdate(BtrvFile* file, GeneralDataType* buffer, ModuleType kind, bool no_lock_message) {
  bool opened_here = false;
  BtrvFile* handle = file;
  if (handle == nullptr) {
    if (!WaitForWriteHandle()) return false;
    if (!OpenGeneralForWriting(&g_cache.write_handle)) {
      g_cache.write_handle = nullptr;
      if (!IsInUse(GetErrorCode(nullptr))) ShowCannotRead(kind);
      return false;
    }
    handle = g_cache.write_handle;
    opened_here = true;
  }
  handle->NoLockMessageOnNextCall(no_lock_message);
  if (ReadKind(handle, kLockBiasSingleNoWait, buffer, kind)) return true;
  if (!IsInUse(GetErrorCode(handle))) ShowCannotRead(kind);
  if (opened_here) CloseWriteHandle();
  return false;
}

// Mode 2: a locked read through the handle of OpenGeneralFileForWrite.
bool ReadThroughWriteHandle(GeneralDataType* buffer, ModuleType kind, bool no_lock_message) {
  BtrvFile* handle = g_cache.write_handle;
  if (handle == nullptr) return false;
  handle->NoLockMessageOnNextCall(no_lock_message);
  if (ReadKind(handle, kLockBiasSingleNoWait, buffer, kind)) return true;
  if (GetErrorCode(handle) != kStatusRecordInUse) ShowCannotRead(kind);
  return false;
}

// --- Default records of a new general file ------------------------------------------------------

void SetAging(AgingBracket* aging) {
  static const struct {
    uint16_t days;
    const char* caption;
  } kBrackets[4] = {{30, "0 - 30"}, {60, "31 - 60"}, {90, "61 - 90"}, {999, "Over 90 days"}};
  for (int i = 0; i < 4; ++i) {
    aging[i].Days = kBrackets[i].days;
    aging[i].Caption = kBrackets[i].caption;
  }
}

// Fills the twelve periods of a block from the first period's start: each period starts a
// month after the one before and ends at the end of its starting month.
void FillYear(FromTo* calendar, int first) {
  for (int i = 2; i <= 12; ++i) {
    FromTo& period = calendar[first + i - 1];
    period.from = calendar[first + i - 2].from;
    IncDate(period.from, kStepMonth);
    period.to = period.from;
    EndOfMonth(period.to);
  }
}

void FillGeneralLedgerDefaults(GeneralLedgerRecord& gl) {
  gl.DataVersion.Set(CurVersion.c_str(), 5);
  gl.CurrentPeriod = 15;
  gl.PeriodsPerYear = 12;
  gl.LastAccount = 0;
  gl.Setting400 = 1;
  gl.FiscalYear = 1997;
  // Every new company starts with this calendar and the host changes it in its setup. The
  // history year's first period runs to the end of January 1997 on purpose, so it
  // overlaps the first open year's first period.
  MakeDate(1, 1, 1996, gl.Calendar[1].from);
  MakeDate(1, 31, 1997, gl.Calendar[1].to);
  MakeDate(1, 1, 1997, gl.Calendar[15].from);
  MakeDate(1, 31, 1997, gl.Calendar[15].to);
  MakeDate(1, 1, 1998, gl.Calendar[29].from);
  MakeDate(1, 31, 1998, gl.Calendar[29].to);
  FillYear(gl.Calendar, 1);
  FillYear(gl.Calendar, 15);
  FillYear(gl.Calendar, 29);
  gl.Setting900 = 5;
  gl.Setting902 = 0;
}

void FillPayrollDefaults(PayrollRecord& pr) {
  pr.GrossName = csGross;
  pr.Numbering1904 = "101";
  pr.PayTypes[0].Name = "Regular";
  pr.PayTypes[1].Name = "Overtime";
  pr.PayTypes[2].Name = "Special";
  pr.Setting2816 = 0;
}

void FillReceivablesDefaults(ReceivablesRecord& ar) {
  ar.ControlAccount = 0;
  SetAging(ar.Aging);
  ar.Numbering91 = "101";
  ar.Flag462 = 1;
  ar.SalesTax[0].Description = "Regular";
  ar.SalesTax[0].Taxable = 1;
  for (int t = 1; t <= 24; ++t) ar.SalesTax[t].Description = "Exempt";
  ar.SalesTax[25].Description = "Exempt - Freight";
  ar.Setting1784 = 1;
  ar.Numbering1792 = "10001";
  ar.Numbering1813 = "m101";
  ar.Numbering1834 = "m10001";
  ar.Numbering1855 = "m101";
}

void FillPayablesDefaults(PayablesRecord& ap) {
  ap.ControlAccount = 0;
  SetAging(ap.Aging);
  ap.Numbering91 = "101";
  ap.Numbering173 = "101";
  ap.Numbering309 = "m101";
}

void FillInventoryDefaults(InventoryRecord& inv) {
  for (int i = 0; i < 10; ++i) {
    char name[32];
    std::snprintf(name, sizeof(name), "Price Level %i", i + 1);
    inv.PriceLevels[i].Name = name;
    inv.PriceLevels[i].Number = static_cast<uint16_t>(i + 1);
    inv.PriceLevels[i].Value19 = 3;
    inv.PriceLevels[i].Value55 = 1;
  }
}

void FillDefaults(GeneralDataType* rec, ModuleType kind) {
  std::memset(rec, 0, sizeof(*rec));
  rec->Kind = static_cast<uint16_t>(kind);
  switch (kind) {
    case MOD_GL:
      FillGeneralLedgerDefaults(rec->GL);
      break;
    case MOD_PR:
      FillPayrollDefaults(rec->PR);
      break;
    case MOD_AR:
      FillReceivablesDefaults(rec->AR);
      break;
    case MOD_AP:
      FillPayablesDefaults(rec->AP);
      break;
    case MOD_INV:
      FillInventoryDefaults(rec->INV);
      break;
    default:  // kinds 5, 6 and 8 start with the kind only
      break;
  }
}

void SetPeriodBit(uint8_t* set, int bit) { set[bit / 8] |= static_cast<uint8_t>(1u << (bit % 8)); }

}  // namespace

// --- Reading and writing the records --------------------------------------------------------

uint8_t GetGeneralDataPtr(BtrvFile* file, GeneralDataType** out, ModuleType kind,
                          unsigned short mode, bool no_lock_message) {
  if (!g_cache.initialised) {
    if (!AllocateSlot(0)) {
      if (out != nullptr) *out = nullptr;
      return 0;
    }
    g_cache.last_check = ClockNow();
    g_cache.initialised = true;
    g_cache.force_reload = false;
  } else {
    CheckForOutsideChanges();
  }
  if (g_cache.force_reload) {
    ClearGeneralCache();
    g_cache.force_reload = false;
  }
  GeneralDataType* scratch = g_cache.slot[0].get();
  GeneralDataType* ignored = nullptr;
  if (out == nullptr) out = &ignored;

  // Kinds outside the cache have no record to read.
  if (kind < 1 || kind >= kSlotCount) {
    ShowCannotRead(kind);
    *out = scratch;
    return 0;
  }
  if (mode == kGenReadForReading && g_cache.slot[kind] && g_cache.state[kind] != kStateStale) {
    *out = g_cache.slot[kind].get();
    return 1;
  }
  if (!AllocateSlot(kind)) {
    *out = scratch;
    return 0;
  }

  bool ok = false;
  switch (mode) {
    case kGenReadForReading:
      ok = ReadForReading(file, scratch, kind);
      break;
    case kGenReadForUpdate:
      ok = ReadForUpdate(file, scratch, kind, no_lock_message);
      break;
    case kGenReadThroughWriteHandle:
      ok = ReadThroughWriteHandle(scratch, kind, no_lock_message);
      break;
    default:  // an unknown mode reads nothing and leaves the cache as it is
      *out = scratch;
      return 0;
  }
  if (!ok) {
    g_cache.state[kind] = kStateStale;
    *out = scratch;
    return 0;
  }
  // Company files kept from before the fiscal year was stored read as 1997.
  if (kind == MOD_GL && scratch->GL.FiscalYear == 0) scratch->GL.FiscalYear = 1997;
  GeneralDataType* rec = g_cache.slot[kind].get();
  std::memcpy(rec, scratch, sizeof(*rec));
  g_cache.state[kind] = mode;
  LoadCurrentData(rec);
  *out = rec;
  return 1;
}

uint8_t GetGeneralDataPtrNoOpen(BtrvFile* file, GeneralDataType** out, ModuleType kind,
                                unsigned short mode) {
  if (file == nullptr) return 0;
  return GetGeneralDataPtr(file, out, kind, mode, false);
}

uint8_t WrtGeneralDataPtr(BtrvFile* file, GeneralDataType* rec, uint8_t update,
                          uint8_t through_write_handle) {
  if (rec == nullptr) return 0;
  int kind = rec->Kind;
  bool cached_kind = kind >= 1 && kind < kSlotCount;

  bool ok = true;
  bool written = false;  // the record reached the file
  if (through_write_handle && g_cache.write_handle != nullptr) {
    BtrvFile* handle = g_cache.write_handle;
    if (update) {
      // Re-reading by key (no lock) makes the record current on the handle for the update;
      // the lock taken by the mode-2 read is kept until the update releases it.
      GeneralDataType copy;
      std::memset(&copy, 0, sizeof(copy));
      copy.Kind = rec->Kind;
      ok = GetFileEqual(handle, kLockBiasNone, kGeneralRecordSize, &copy, kKeyKind) != 0 &&
           UpdateFile(handle, kGeneralRecordSize, rec, kKeyKind) != 0;
      written = ok;
    } else {
      // An edit given up writes nothing here either: the lock is only released.
      UnlockOneRecord(handle);
    }
  } else {
    BtrvFile* handle = file != nullptr ? file : g_cache.write_handle;
    if (!update) {
      if (file != nullptr) UnlockOneRecord(file);
    } else if (handle == nullptr) {
      ok = false;  // a write asked for with no handle to write through
    } else {
      ok = UpdateFile(handle, kGeneralRecordSize, rec, kKeyKind) != 0;
      written = ok;
    }
    if (file == nullptr && g_cache.write_handle != nullptr) CloseWriteHandle();
  }

  // The host edits the cache's own buffer in place: unless the edit reached the file, that
  // buffer holds changes nobody saved, so the kind is read from the file next time.
  if (cached_kind) g_cache.state[kind] = written ? kStateClean : kStateStale;
  if (!written) return ok ? 1 : 0;

  if (cached_kind && rec != g_cache.slot[kind].get() && AllocateSlot(kind)) {
    std::memcpy(g_cache.slot[kind].get(), rec, kGeneralRecordSize);
  }
  // The file keeps what was written; the cached copy reads as every read would.
  GeneralDataType* cached = cached_kind ? g_cache.slot[kind].get() : nullptr;
  if (cached != nullptr && kind == MOD_GL && cached->GL.FiscalYear == 0) {
    cached->GL.FiscalYear = 1997;
  }
  LoadCurrentData(cached != nullptr ? cached : rec);
  return 1;
}

uint8_t WrtGeneralDataPtrNoClose(BtrvFile* file, GeneralDataType* rec, uint8_t update) {
  if (file == nullptr) return 0;
  return WrtGeneralDataPtr(file, rec, update, 0);
}

uint8_t OpenGeneralFileForWrite() {
  if (!WaitForWriteHandle()) return 0;
  if (!OpenGeneralForWriting(&g_cache.write_handle)) {
    g_cache.write_handle = nullptr;
    return 0;
  }
  return 1;
}

uint8_t CloseGeneralFile() {
  if (g_cache.write_handle == nullptr) return 0;
  return CloseWriteHandle() != 0 ? 1 : 0;
}

uint8_t GenFileInUse() { return g_cache.write_handle != nullptr ? 1 : 0; }

void LoadCurrentData(GeneralDataType* rec) {
  if (rec == nullptr) return;
  switch (rec->Kind) {
    case MOD_GL: {
      const GeneralLedgerRecord& gl = rec->GL;
      Current.CurrentPeriod = gl.CurrentPeriod;
      Current.FiscalYear = gl.FiscalYear;
      if (gl.CurrentPeriod < 42) {
        Current.CurrentPeriodRange = gl.Calendar[gl.CurrentPeriod];
      } else {
        Current.CurrentPeriodRange = FromTo{};
      }
      Current.PeriodsPerYear = gl.PeriodsPerYear;
      std::memset(Current.PeriodSets, 0, sizeof(Current.PeriodSets));
      // A damaged count must not set bits past the 48 of a set.
      int n = gl.PeriodsPerYear > 13 ? 13 : gl.PeriodsPerYear;
      for (int i = 1; i <= n; ++i) {
        SetPeriodBit(Current.PeriodSets[0], i);
        SetPeriodBit(Current.PeriodSets[1], i + 14);
        SetPeriodBit(Current.PeriodSets[2], i + 28);
      }
      break;
    }
    case MOD_5:
      Current.Kind5Loaded = 1;
      std::memcpy(Current.Kind5Values, rec->M5.Values, sizeof(Current.Kind5Values));
      break;
    case MOD_AR:
      Current.ARTermsLoaded = 1;
      Current.ARTerms = rec->AR.StdTerms;
      break;
    case MOD_AP:
      Current.APTermsLoaded = 1;
      Current.APTerms = rec->AP.StdTerms;
      break;
    default:
      break;
  }
}

void ClearGeneralCache() {
  for (int i = 1; i < kSlotCount; ++i) {
    if (g_cache.slot[i] && g_cache.state[i] == kStateClean) g_cache.state[i] = kStateStale;
  }
}

void ForceReadGeneralRecord() {
  g_cache.force_reload = true;
  g_cache.recorded_mtime = 0;
}

void DeallocGeneralRecReadPtr() {
  for (int i = 0; i < kSlotCount; ++i) {
    g_cache.slot[i].reset();
    g_cache.state[i] = kStateClean;
  }
  g_cache.initialised = false;
  // The stamp belongs to the company being closed; the next company records its own.
  g_cache.recorded_mtime = 0;
}

uint8_t CreateGeneralFile() {
  if (CreateNewGeneralFile(nullptr) != 0) return 1;
  Message(MB_ICONEXCLAMATION, kMsgCannotCreate);
  return 0;
}

uint8_t InitGeneralFile() {
  std::unique_ptr<GeneralDataType> rec(new (std::nothrow) GeneralDataType());
  if (!rec) return 0;
  BtrvFile* file = nullptr;
  if (!OpenGeneralForWriting(&file)) return 0;
  // One batch: a company whose general file holds only some of its records could be opened
  // but not worked with, so a failed insert leaves the file empty for another try.
  uint8_t result = bBeginBatchUpdate(file) ? 1 : 0;
  static const ModuleType kOrder[] = {MOD_GL, MOD_PR, MOD_5, MOD_AR, MOD_AP, MOD_6, MOD_INV, MOD_8};
  for (ModuleType kind : kOrder) {
    if (!result) break;
    FillDefaults(rec.get(), kind);
    if (!InsertRecord(file, kGeneralRecordSize, rec.get())) {
      MessageWithPara(MB_ICONEXCLAMATION, kMsgCannotInsert, GetErrorCode(file));
      bAbortBatchUpdate(file);
      result = 0;
    }
  }
  if (result) result = bEndBatchUpdate(file) ? 1 : 0;
  BASICS_CLOSE(&file, kUnit);
  return result;
}
