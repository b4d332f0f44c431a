// Settings accessors built on the general-file cache: standard terms, control accounts,
// sales-tax types, the last account used, the not-printed flags of the journals and the
// general ledger, the price-level lookup, and the assertion reporter.
#include <cstdlib>
#include <cstring>

#include "CHART.h"
#include "General.h"
#include "dialog.h"

namespace {

// String shown for a sales-tax type that has no description of its own.
constexpr unsigned kStrUnnamedTaxType = 4406;
constexpr int kSalesTaxTypes = 26;
constexpr int kJournalSets = 15;
constexpr unsigned kPeriodBits = 48;  // six bytes per set

bool TestBit(const uint8_t* set, unsigned bit) {
  return bit < kPeriodBits && (set[bit / 8] & (1u << (bit % 8))) != 0;
}
void SetBit(uint8_t* set, unsigned bit) {
  if (bit < kPeriodBits) set[bit / 8] |= static_cast<uint8_t>(1u << (bit % 8));
}
void ClearBit(uint8_t* set, unsigned bit) {
  if (bit < kPeriodBits) set[bit / 8] &= static_cast<uint8_t>(~(1u << (bit % 8)));
}

// The receivables record from the cache, or null.
GeneralDataType* ReadReceivables() {
  GeneralDataType* rec = nullptr;
  return GetGeneralDataPtr(nullptr, &rec, MOD_AR, kGenReadForReading, false) ? rec : nullptr;
}

// Begins an edit of the general-ledger record (locked); null when it cannot be had.
GeneralDataType* LockGeneralLedger() {
  GeneralDataType* rec = nullptr;
  return GetGeneralDataPtr(nullptr, &rec, MOD_GL, kGenReadForUpdate, false) ? rec : nullptr;
}

uint8_t ControlAccountId(ModuleType kind, FixedString<16>& id) {
  id.Clear();
  GeneralDataType* rec = nullptr;
  if (!GetGeneralDataPtr(nullptr, &rec, kind, kGenReadForReading, false)) return 0;
  int32_t number = kind == MOD_AR ? rec->AR.ControlAccount : rec->AP.ControlAccount;
  return GetAcctIDFromRecordNumber(number, id) ? 1 : 0;
}

}  // namespace

uint8_t GetStdTerms(TermsType* out, ModuleType kind) {
  if (kind != MOD_AR && kind != MOD_AP) return 0;
  uint8_t loaded = kind == MOD_AR ? Current.ARTermsLoaded : Current.APTermsLoaded;
  GeneralDataType* rec = nullptr;
  uint8_t result = loaded || GetGeneralDataPtr(nullptr, &rec, kind, kGenReadForReading, false);
  // Copied from Current either way: zeros when the terms were never loaded.
  if (out != nullptr) *out = kind == MOD_AR ? Current.ARTerms : Current.APTerms;
  return result ? 1 : 0;
}

uint8_t GetARAcnt(FixedString<16>& id) { return ControlAccountId(MOD_AR, id); }

uint8_t GetAPAcnt(FixedString<16>& id) { return ControlAccountId(MOD_AP, id); }

// Zero-based, unlike the two below: callers pass a type index here and a one-based type
// number there.
uint8_t IsSalesTaxTaxable(int16_t type) {
  if (type < 0 || type >= kSalesTaxTypes) return 0;
  GeneralDataType* rec = ReadReceivables();
  return rec != nullptr ? rec->AR.SalesTax[type].Taxable : 0;
}

uint8_t IsValidSalesTaxableType(uint16_t type) {
  if (type < 1 || type >= kSalesTaxTypes) return 0;
  GeneralDataType* rec = ReadReceivables();
  return rec != nullptr && !rec->AR.SalesTax[type - 1].Description.IsEmpty() ? 1 : 0;
}

uint8_t SetItemTaxDesc(int16_t type, FixedString<31>& description) {
  if (type < 1 || type >= kSalesTaxTypes) return 0;
  GeneralDataType* rec = ReadReceivables();
  if (rec == nullptr) return 0;
  FixedString<21>& entry = rec->AR.SalesTax[type - 1].Description;
  if (entry.IsEmpty()) {
    // Only the cached copy gets the standard text; the file keeps the empty entry.
    char text[21] = {};
    LoadStringA(nullptr, kStrUnnamedTaxType, text, sizeof(text));
    entry.Set(text, 20);
  }
  description.Set(entry.c_str(), 20);
  return 1;
}

void vGetLastAcct(int32_t& account) {
  account = 0;
  GeneralDataType* rec = nullptr;
  if (GetGeneralDataPtr(nullptr, &rec, MOD_GL, kGenReadForReading, false)) {
    account = rec->GL.LastAccount;
  }
  if (account == 0) GetCashAccountForBankRec(account);
}

void vSetLastAcct(int32_t account) {
  if (account == 0) return;
  GeneralDataType* rec = LockGeneralLedger();
  if (rec == nullptr) return;
  rec->GL.LastAccount = account;
  WrtGeneralDataPtr(nullptr, rec, 1, 0);
}

void SetGLPrintedEx(uint8_t printed, uint16_t period) {
  GeneralDataType* rec = LockGeneralLedger();
  if (rec == nullptr) return;
  uint8_t* set = rec->GL.GLNotPrinted;
  if (printed) {
    ClearBit(set, period);
  } else {
    // New entries in a period leave every later report unprinted as well, through the
    // rest of that fiscal year and the later open years.
    unsigned short p = period;
    do {
      SetBit(set, p);
    } while (IncPeriod(&p));
  }
  WrtGeneralDataPtr(nullptr, rec, 1, 0);
}

void SetGLRangePrintedEx(uint16_t from, uint16_t to) {
  GeneralDataType* rec = LockGeneralLedger();
  if (rec == nullptr) return;
  for (unsigned p = from; p < to && p < kPeriodBits; ++p) ClearBit(rec->GL.GLNotPrinted, p);
  WrtGeneralDataPtr(nullptr, rec, 1, 0);
}

void SetJrnlNotPrinted(int16_t journal, uint16_t period) {
  GeneralDataType* rec = LockGeneralLedger();
  if (rec == nullptr) return;
  bool change = journal >= 0 && journal < kJournalSets && period < kPeriodBits &&
                !TestBit(rec->GL.JournalNotPrinted[journal], period);
  if (change) SetBit(rec->GL.JournalNotPrinted[journal], period);
  WrtGeneralDataPtr(nullptr, rec, change ? 1 : 0, 0);
}

void SetJrnlPrinted(int16_t journal, uint16_t period) {
  GeneralDataType* rec = LockGeneralLedger();
  if (rec == nullptr) return;
  bool change = journal >= 0 && journal < kJournalSets && period < kPeriodBits &&
                TestBit(rec->GL.JournalNotPrinted[journal], period);
  if (change) ClearBit(rec->GL.JournalNotPrinted[journal], period);
  WrtGeneralDataPtr(nullptr, rec, change ? 1 : 0, 0);
}

void SetJrnlRangePrinted(uint16_t from, uint16_t to) {
  GeneralDataType* rec = LockGeneralLedger();
  if (rec == nullptr) return;
  for (unsigned p = from; p < to && p < kPeriodBits; ++p) {
    for (int j = 0; j < kJournalSets; ++j) ClearBit(rec->GL.JournalNotPrinted[j], p);
  }
  WrtGeneralDataPtr(nullptr, rec, 1, 0);
}

int16_t IndexItemDefData(int number, ItemdataType* data) {
  if (data == nullptr) return -1;
  for (int16_t i = 0; i < 10; ++i) {
    if (static_cast<int>(data[i].Number) == number + 1) return i;
  }
  return -1;
}

bool ZORAssertFailed(const char* file, int line, const char* code) {
  DWORD error = GetLastError();
  char* system_text = nullptr;
  FormatMessageA(FORMAT_MESSAGE_ALLOCATE_BUFFER | FORMAT_MESSAGE_FROM_SYSTEM, nullptr, error, 0,
                 reinterpret_cast<char*>(&system_text), 0, nullptr);
  CString text;
  text.FormatMessage(
      "Debug Assertion Failed!%n%nFile:\t%2%nLine:\t%3!d!%nCode:\t%4%n%nGetLastError: "
      "%1%n(Press Retry to debug the application)",
      system_text != nullptr ? system_text : "", file != nullptr ? file : "", line,
      code != nullptr ? code : "");
  if (system_text != nullptr) LocalFree(system_text);
  int answer = MessageBoxText(MB_ABORTRETRYIGNORE | MB_ICONSTOP, text.GetString());
  // Abort ends the process at once: no destructors, no flushing, exit code -1.
  if (answer == IDABORT) std::_Exit(-1);
  return answer == IDRETRY;
}
