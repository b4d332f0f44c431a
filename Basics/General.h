// Company settings: the general file (one 3066-byte record per module kind), its
// twelve-slot cache with the once-a-minute modification check, the derived global
// Current, the company globals, the settings accessors and printed flags, accounting
// periods and date ranges, and the assertion reporter. Builds on OpenDat, the chart and
// the utility library. Single-threaded: the host's user-interface thread.
#ifndef BASICS_GENERAL_H_
#define BASICS_GENERAL_H_

#include <cstddef>
#include <cstdint>

#include "record_manager.h"
#include "utility.h"
#include "zor_types.h"

// The program's module numbers, also the record kinds of the general file.
enum ModuleType : int16_t {
  MOD_AR = 1,  // receivables
  MOD_AP = 2,  // payables
  MOD_PR = 3,  // payroll
  MOD_GL = 4,  // general ledger (company)
  MOD_5 = 5,
  MOD_6 = 6,
  MOD_INV = 7,  // inventory
  MOD_8 = 8,
  MOD_PR_CASH = 10,  // chooses the payroll default cash account
};

constexpr size_t kGeneralRecordSize = 3066;

#pragma pack(push, 1)

// Standard payment terms: 32 bytes copied whole; the inner fields are the host's.
struct TermsType {
  uint8_t raw[32];
};

// An aging bracket: upper day limit and caption.
struct AgingBracket {
  uint16_t Days;
  FixedString<16> Caption;
};

// A sales-tax type: description, taxable flag, one further byte.
struct SalesTaxType {
  FixedString<21> Description;
  uint8_t Taxable;
  uint8_t Extra;
};

// A custom-field definition: label (16 characters) and enabled flag.
struct CustomFieldDef {
  char Label[17];
  uint8_t Enabled;
};

// An item-field definition (price level) of the inventory record, 59 bytes.
struct ItemdataType {
  FixedString<15> Name;
  uint16_t Number;  // stored level number, i + 1 for slot i
  uint16_t Value17;
  uint16_t Value19;  // price-level calculation setting (3 by default)
  uint8_t reserved21[34];
  uint32_t Value55;  // price-level calculation setting (1 by default)
};

// Kind 4, general ledger (company).
//   offset  size    field
//        0     2    kind
//        2     6    data version (CurVersion)
//        8     2    current period, internal number
//      130     2    periods per fiscal year (1 to 13)
//      332     4    last account used (record number)
//      400     2    setting kept for the host (1)
//      402     2    fiscal year of the first open year (a stored 0 reads as 1997)
//      426  42x8    period calendar: entry p holds internal period p's from and to
//      762  15x6    journal not-printed bit sets, journal j at 762 + 6j
//      852     6    general-ledger not-printed bit set
//      896     4    default cash account of the general ledger (record number)
//      900     2    setting kept for the host (5)
//      902     2    setting kept for the host (0)
struct GeneralLedgerRecord {
  uint16_t Kind;
  FixedString<6> DataVersion;
  uint16_t CurrentPeriod;
  uint8_t reserved10[120];
  uint16_t PeriodsPerYear;
  uint8_t reserved132[200];
  int32_t LastAccount;
  uint8_t reserved336[64];
  uint16_t Setting400;
  uint16_t FiscalYear;
  uint8_t reserved404[22];
  FromTo Calendar[42];
  uint8_t JournalNotPrinted[15][6];
  uint8_t GLNotPrinted[6];
  uint8_t reserved858[38];
  int32_t DefaultCashAccount;
  uint16_t Setting900;
  uint16_t Setting902;
  uint8_t reserved904[2162];
};

// Kind 1, receivables.
//   offset  size    field
//        2     4    receivables control account (record number)
//        6     4    default cash account (record number)
//       18  4x18    aging brackets
//       91    21    numbering default ("101")
//      462     1    flag kept for the host (1)
//      478    32    standard customer terms
//      639  26x23   sales-tax types
//     1237  5x18    custom-field definitions
//     1784     4    setting kept for the host (1)
//     1792  4x21    numbering defaults ("10001", "m101", "m10001", "m101")
struct ReceivablesRecord {
  uint16_t Kind;
  int32_t ControlAccount;
  int32_t DefaultCashAccount;
  uint8_t reserved10[8];
  AgingBracket Aging[4];
  uint8_t reserved90[1];
  FixedString<21> Numbering91;
  uint8_t reserved112[350];
  uint8_t Flag462;
  uint8_t reserved463[15];
  TermsType StdTerms;
  uint8_t reserved510[129];
  SalesTaxType SalesTax[26];
  CustomFieldDef CustomFields[5];
  uint8_t reserved1327[457];
  uint32_t Setting1784;
  uint8_t reserved1788[4];
  FixedString<21> Numbering1792;
  FixedString<21> Numbering1813;
  FixedString<21> Numbering1834;
  FixedString<21> Numbering1855;
  uint8_t reserved1876[1190];
};

// Kind 2, payables.
//   offset  size    field
//        2     4    payables control account (record number)
//        6     4    default cash account (record number)
//       18  4x18    aging brackets
//       91    21    numbering default ("101")
//      132    32    standard vendor terms
//      173    21    numbering default ("101")
//      194  5x18    custom-field definitions
//      309    21    numbering default ("m101")
struct PayablesRecord {
  uint16_t Kind;
  int32_t ControlAccount;
  int32_t DefaultCashAccount;
  uint8_t reserved10[8];
  AgingBracket Aging[4];
  uint8_t reserved90[1];
  FixedString<21> Numbering91;
  uint8_t reserved112[20];
  TermsType StdTerms;
  uint8_t reserved164[9];
  FixedString<21> Numbering173;
  CustomFieldDef CustomFields[5];
  uint8_t reserved284[25];
  FixedString<21> Numbering309;
  uint8_t reserved330[2736];
};

// A pay-type name in its 20-byte slot.
struct PayTypeName {
  FixedString<16> Name;
  uint8_t reserved[4];
};

// Kind 3, payroll.
//   offset  size    field
//       60    12    name of the gross-pay field (csGross)
//     1900     4    default cash account of payroll (record number)
//     1904    21    numbering default ("101")
//     2326  3x20    pay-type names
//     2726  5x18    custom-field definitions
//     2816     4    setting kept for the host (0)
struct PayrollRecord {
  uint16_t Kind;
  uint8_t reserved2[58];
  FixedString<12> GrossName;
  uint8_t reserved72[1828];
  int32_t DefaultCashAccount;
  FixedString<21> Numbering1904;
  uint8_t reserved1925[401];
  PayTypeName PayTypes[3];
  uint8_t reserved2386[340];
  CustomFieldDef CustomFields[5];
  uint32_t Setting2816;
  uint8_t reserved2820[246];
};

// Kind 5: three 32-bit values at 104, 108 and 112 are copied into Current.
struct Module5Record {
  uint16_t Kind;
  uint8_t reserved2[102];
  int32_t Values[3];
  uint8_t reserved116[2950];
};

// Kind 7, inventory.
//   offset  size    field
//        2  5x18    custom-field definitions
//      466  10x59   price levels (item-field definitions)
//     1056     1    check for duplicate UPC/SKU codes
//     1057     1    option shown as a check box
//     1058     2    three-way choice (0, 1, 2)
//     1060     2    second three-way choice (0, 1, 2)
struct InventoryRecord {
  uint16_t Kind;
  CustomFieldDef CustomFields[5];
  uint8_t reserved92[374];
  ItemdataType PriceLevels[10];
  uint8_t CheckDupUpcSku;
  uint8_t Option1057;
  uint16_t Choice1058;
  uint16_t Choice1060;
  uint8_t reserved1062[2004];
};

// Kind 8: custom-field definitions at 2.
struct Module8Record {
  uint16_t Kind;
  CustomFieldDef CustomFields[5];
  uint8_t reserved92[2974];
};

// One record of the general file, 3066 bytes, seen through the layout of its kind.
union GeneralDataType {
  uint16_t Kind;
  GeneralLedgerRecord GL;
  ReceivablesRecord AR;
  PayablesRecord AP;
  PayrollRecord PR;
  Module5Record M5;
  InventoryRecord INV;
  Module8Record M8;
  uint8_t raw[kGeneralRecordSize];
};

#pragma pack(pop)

static_assert(sizeof(TermsType) == 32, "TermsType is 32 bytes");
static_assert(sizeof(AgingBracket) == 18, "aging bracket is 18 bytes");
static_assert(sizeof(SalesTaxType) == 23, "sales-tax type is 23 bytes");
static_assert(sizeof(CustomFieldDef) == 18, "custom field is 18 bytes");
static_assert(sizeof(ItemdataType) == 59, "price level is 59 bytes");
static_assert(offsetof(ItemdataType, Number) == 15 && offsetof(ItemdataType, Value19) == 19 &&
                  offsetof(ItemdataType, Value55) == 55,
              "price-level offsets");
static_assert(sizeof(GeneralDataType) == kGeneralRecordSize, "general record is 3066 bytes");
static_assert(sizeof(GeneralLedgerRecord) == kGeneralRecordSize, "kind 4 size");
static_assert(offsetof(GeneralLedgerRecord, DataVersion) == 2, "version at 2");
static_assert(offsetof(GeneralLedgerRecord, CurrentPeriod) == 8, "current period at 8");
static_assert(offsetof(GeneralLedgerRecord, PeriodsPerYear) == 130, "periods at 130");
static_assert(offsetof(GeneralLedgerRecord, LastAccount) == 332, "last account at 332");
static_assert(offsetof(GeneralLedgerRecord, Setting400) == 400, "setting at 400");
static_assert(offsetof(GeneralLedgerRecord, FiscalYear) == 402, "fiscal year at 402");
static_assert(offsetof(GeneralLedgerRecord, Calendar) == 426, "calendar at 426");
static_assert(offsetof(GeneralLedgerRecord, JournalNotPrinted) == 762, "journal bits at 762");
static_assert(offsetof(GeneralLedgerRecord, GLNotPrinted) == 852, "GL bits at 852");
static_assert(offsetof(GeneralLedgerRecord, DefaultCashAccount) == 896, "GL cash at 896");
static_assert(offsetof(GeneralLedgerRecord, Setting900) == 900, "setting at 900");
static_assert(offsetof(GeneralLedgerRecord, Setting902) == 902, "setting at 902");
static_assert(sizeof(ReceivablesRecord) == kGeneralRecordSize, "kind 1 size");
static_assert(offsetof(ReceivablesRecord, ControlAccount) == 2, "AR account at 2");
static_assert(offsetof(ReceivablesRecord, DefaultCashAccount) == 6, "AR cash at 6");
static_assert(offsetof(ReceivablesRecord, Aging) == 18, "aging at 18");
static_assert(offsetof(ReceivablesRecord, Numbering91) == 91, "numbering at 91");
static_assert(offsetof(ReceivablesRecord, Flag462) == 462, "flag at 462");
static_assert(offsetof(ReceivablesRecord, StdTerms) == 478, "customer terms at 478");
static_assert(offsetof(ReceivablesRecord, SalesTax) == 639, "sales tax at 639");
static_assert(offsetof(ReceivablesRecord, CustomFields) == 1237, "AR custom fields at 1237");
static_assert(offsetof(ReceivablesRecord, Setting1784) == 1784, "setting at 1784");
static_assert(offsetof(ReceivablesRecord, Numbering1792) == 1792, "numbering at 1792");
static_assert(offsetof(ReceivablesRecord, Numbering1855) == 1855, "numbering at 1855");
static_assert(sizeof(PayablesRecord) == kGeneralRecordSize, "kind 2 size");
static_assert(offsetof(PayablesRecord, ControlAccount) == 2, "AP account at 2");
static_assert(offsetof(PayablesRecord, DefaultCashAccount) == 6, "AP cash at 6");
static_assert(offsetof(PayablesRecord, Aging) == 18, "aging at 18");
static_assert(offsetof(PayablesRecord, Numbering91) == 91, "numbering at 91");
static_assert(offsetof(PayablesRecord, StdTerms) == 132, "vendor terms at 132");
static_assert(offsetof(PayablesRecord, Numbering173) == 173, "numbering at 173");
static_assert(offsetof(PayablesRecord, CustomFields) == 194, "AP custom fields at 194");
static_assert(offsetof(PayablesRecord, Numbering309) == 309, "numbering at 309");
static_assert(sizeof(PayrollRecord) == kGeneralRecordSize, "kind 3 size");
static_assert(offsetof(PayrollRecord, GrossName) == 60, "gross name at 60");
static_assert(offsetof(PayrollRecord, DefaultCashAccount) == 1900, "payroll cash at 1900");
static_assert(offsetof(PayrollRecord, Numbering1904) == 1904, "numbering at 1904");
static_assert(offsetof(PayrollRecord, PayTypes) == 2326, "pay types at 2326");
static_assert(offsetof(PayrollRecord, CustomFields) == 2726, "PR custom fields at 2726");
static_assert(offsetof(PayrollRecord, Setting2816) == 2816, "setting at 2816");
static_assert(sizeof(Module5Record) == kGeneralRecordSize, "kind 5 size");
static_assert(offsetof(Module5Record, Values) == 104, "kind 5 values at 104");
static_assert(sizeof(InventoryRecord) == kGeneralRecordSize, "kind 7 size");
static_assert(offsetof(InventoryRecord, CustomFields) == 2, "INV custom fields at 2");
static_assert(offsetof(InventoryRecord, PriceLevels) == 466, "price levels at 466");
static_assert(offsetof(InventoryRecord, CheckDupUpcSku) == 1056, "option at 1056");
static_assert(offsetof(InventoryRecord, Option1057) == 1057, "option at 1057");
static_assert(offsetof(InventoryRecord, Choice1058) == 1058, "choice at 1058");
static_assert(offsetof(InventoryRecord, Choice1060) == 1060, "choice at 1060");
static_assert(sizeof(Module8Record) == kGeneralRecordSize, "kind 8 size");

// The derived copy of the most used general settings.
struct CurrentType {
  uint16_t CurrentPeriod;  // internal number
  uint16_t FiscalYear;
  FromTo CurrentPeriodRange;  // calendar entry of the current period
  uint16_t PeriodsPerYear;
  uint8_t PeriodSets[3][6];  // set 1 bits 1..n, set 2 bits 15..14+n, set 3 bits 29..28+n
  uint8_t Kind5Loaded;
  int32_t Kind5Values[3];
  uint8_t ARTermsLoaded;
  TermsType ARTerms;
  uint8_t APTermsLoaded;
  TermsType APTerms;
};

// The company's data record, kept for the host. The library reads one byte of it: the
// cash-basis switch at offset 235.
struct CompanyDataType {
  uint8_t raw[235];
  uint8_t CashBasis;
  uint8_t raw236[276];
};
static_assert(offsetof(CompanyDataType, CashBasis) == 235, "cash-basis switch at 235");

// The company's option switches, kept for the host. The transaction alarms read the event
// switches: for the eleven event types 1, 2, 4, 5, 7, 8, 9, 10, 11, 12 and 13 (in that order)
// a run of alarm switches, a run of alarm-kind switches and a run of creation switches, then
// further on their alarm lead values; event types 3 and 6 keep theirs later, each as alarm,
// kind and creation switch and lead value. Every other byte is the host's, carried unchanged.
constexpr int kOptionEventCount = 11;
#pragma pack(push, 1)
struct OptionEventSwitches {  // event types 3 and 6
  uint8_t Alarm;
  uint8_t AlarmKind;
  uint8_t Create;
  uint16_t Lead;
};
struct OptionType {
  uint8_t raw0[64];
  uint8_t EventAlarm[kOptionEventCount];
  uint8_t EventAlarmKind[kOptionEventCount];
  uint8_t EventCreate[kOptionEventCount];
  uint8_t raw97[3];
  uint16_t EventLead[kOptionEventCount];
  uint8_t raw122[6];
  OptionEventSwitches Event3;
  OptionEventSwitches Event6;
  uint8_t raw138[374];
};
#pragma pack(pop)
static_assert(sizeof(OptionType) == 512, "OptionType is 512 bytes");
static_assert(offsetof(OptionType, EventAlarm) == 64 &&
                  offsetof(OptionType, EventAlarmKind) == 75 &&
                  offsetof(OptionType, EventCreate) == 86 &&
                  offsetof(OptionType, EventLead) == 100 && offsetof(OptionType, Event3) == 128 &&
                  offsetof(OptionType, Event6) == 133,
              "event switches of the options");

// --- Company globals -----------------------------------------------------------------------
extern CompanyDataType MyCompany;
extern CurrentType Current;
extern OptionType Options;
extern CFixedString<6> CurVersion;  // version string written into new general files
extern uint8_t CompanyIsOpen;
extern CPathNameString CurrentDirName;
extern FixedString<40> CurrentLongName;
extern CFileNameString CurrentShortName;
// The host's name of the gross-pay field, copied into a new payroll record.
extern const char* const csGross;

// --- Reading and writing the records --------------------------------------------------------
// Read modes of GetGeneralDataPtr.
enum : uint16_t {
  kGenReadForReading = 0,          // served from the cache when clean
  kGenReadForUpdate = 1,           // read and lock, opening the file for the edit
  kGenReadThroughWriteHandle = 2,  // read and lock through OpenGeneralFileForWrite's handle
};

// Hands out in *out the cache's record of kind and answers 1. Mode 0 serves a clean cached
// record without touching the file; modes 1 and 2 read it with a single-record lock held
// until WrtGeneralDataPtr (mode 1 through file, or through a handle opened for the edit
// when file is null). *out stays at the same address until DeallocGeneralRecReadPtr; any
// later read of the kind from the file rewrites it. The caller never frees it.
// On failure 0: *out is the scratch buffer (contents meaningless; null only when the very
// first call cannot allocate), the kind is read again next time, and no lock is taken (a
// handle opened for the edit is closed again). A record or file in use shows only the
// record manager's Retry prompt (none with no_lock_message), mode 2 without the shared
// write handle nothing, a mode-1 edit without file while that handle is open 5503, any
// other failure 5502. out may be null.
uint8_t GetGeneralDataPtr(BtrvFile* file, GeneralDataType** out, ModuleType kind,
                          unsigned short mode, bool no_lock_message);
// GetGeneralDataPtr through file; a null file answers 0 at once and leaves *out alone.
uint8_t GetGeneralDataPtrNoOpen(BtrvFile* file, GeneralDataType** out, ModuleType kind,
                                unsigned short mode);
// Ends an edit begun with mode 1 or 2: writes rec back when update is non-zero, else only
// releases the lock; with file null the handle a mode-1 edit opened is closed in any case.
// Answers 1 when rec was written (the cache and Current then hold it) or no write was asked.
// Unless rec reached the file the kind is read from the file next time, so an edit made
// in the cache's buffer is never handed out as saved. On a failed write (0) the lock stays
// with the caller's file or the shared write handle, so the write may be tried again (the
// change made anew: a read meanwhile rewrites the buffer) or given up with update 0. An
// update with no handle to write through fails too. rec stays the caller's (or cache's).
uint8_t WrtGeneralDataPtr(BtrvFile* file, GeneralDataType* rec, uint8_t update,
                          uint8_t through_write_handle);
// WrtGeneralDataPtr through file; a null file answers 0 and changes nothing.
uint8_t WrtGeneralDataPtrNoClose(BtrvFile* file, GeneralDataType* rec, uint8_t update);
// Opens the shared write handle for mode-2 edits; answers 1 when open. While it is open
// already, message 5503 is asked and 0 answered unless Retry finds it closed. A failed open
// answers 0 silently (but for the record manager's prompt on a file in use).
uint8_t OpenGeneralFileForWrite();
// Closes the shared write handle, dropping its lock; records read through it become clean.
// Answers 0 when it was not open, else 1.
uint8_t CloseGeneralFile();
// 1 while the shared write handle is open.
uint8_t GenFileInUse();
// Refreshes Current from a record of kind 1, 2, 4 or 5 (other kinds and null are ignored).
void LoadCurrentData(GeneralDataType* rec);
// Marks every clean cached record stale; records being edited are left alone. No file I/O.
void ClearGeneralCache();
// Makes the next GetGeneralDataPtr mark the clean records stale.
void ForceReadGeneralRecord();
// Frees all twelve slots (the host calls it when it closes a company): every record
// GetGeneralDataPtr handed out is gone. The shared write handle is left as it is.
void DeallocGeneralRecReadPtr();
// Creates an empty general file; 0 after message 5500 (an existing file is not replaced).
uint8_t CreateGeneralFile();
// Fills an empty general file with its eight default records in one batch. Answers 1, or
// 0 with none of them written: after message 5501 with the record manager's status when
// an insert fails, silently when the file cannot be opened or the batch begun or committed.
uint8_t InitGeneralFile();

// --- Accessors -------------------------------------------------------------------------------
// Each reads its record through the cache (mode 0, or mode 1 for the writers); a record
// that cannot be read shows 5502 as GetGeneralDataPtr does.

// Copies the kind's 32 bytes of standard terms from Current into out (zeros when never
// loaded) and answers 1 when they were loaded or could be read now, else 0. Kinds other
// than 1 and 2 answer 0 and leave out alone.
uint8_t GetStdTerms(TermsType* out, ModuleType kind);
// Clears id; 1 with the ID of the receivables (payables) control account, 0 with id empty
// when the record cannot be read or the account is not set or no longer exists.
uint8_t GetARAcnt(FixedString<16>& id);
uint8_t GetAPAcnt(FixedString<16>& id);
// Zero-based type (0 to 25): the type's taxable flag; 0 for other types or no record.
uint8_t IsSalesTaxTaxable(int16_t type);
// One-based type (1 to 25): 1 when the type has a description; 0 otherwise.
uint8_t IsValidSalesTaxableType(uint16_t type);
// One-based type (1 to 25): copies the type's description (at most 20 characters) into
// description and answers 1; a type without one gets string 4406, which the cached record
// then keeps (the file does not). 0 with description unchanged for other types or no record.
uint8_t SetItemTaxDesc(int16_t type, FixedString<31>& description);
// account := the last account used, or when none the bank-reconciliation cash account
// (GetCashAccountForBankRec: message 1913 and 0 when there is no cash account).
void vGetLastAcct(int32_t& account);
// The writers below lock the general-ledger record (mode 1), change it and write it back.
// When the record cannot be locked or written nothing changes; they answer nothing.
// Stores account as the last account used (0 is ignored: nothing is read or written).
void vSetLastAcct(int32_t account);
// printed: clears the period's general-ledger not-printed bit; else sets it for the
// period and every later one through the second open year.
void SetGLPrintedEx(uint8_t printed, uint16_t period);
// Clears the general-ledger not-printed bits of periods from to to - 1.
void SetGLRangePrintedEx(uint16_t from, uint16_t to);
// Sets (clears) the journal's not-printed bit for the period; writes only when it changes.
void SetJrnlNotPrinted(int16_t journal, uint16_t period);
void SetJrnlPrinted(int16_t journal, uint16_t period);
// Clears every journal's not-printed bits of periods from to to - 1.
void SetJrnlRangePrinted(uint16_t from, uint16_t to);
// The slot (0 to 9) of the ten definitions in data whose number is number + 1, or -1
// (also for null data).
int16_t IndexItemDefData(int number, ItemdataType* data);

// The assertion reporter: shows the failure (Abort, Retry, Ignore). Retry answers true,
// Ignore false, Abort ends the process with exit code -1.
bool ZORAssertFailed(const char* file, int line, const char* code);

// --- Accounting periods and date ranges --------------------------------------------------------
// Internal period numbers: 0 before the history year, 1-13 history year, 15-27 first open
// year, 29-41 second open year, 42 none; 14 and 28 are never periods.
constexpr uint16_t kNoPeriod = 42;

// Steps *period to the next (previous) period of Current's period sets, from the history
// year through the two open years. false at either end or for a period not in the sets,
// with *period unchanged, except that IncPeriod past the second open year's last period
// advances it by one and DecPeriod from 1 leaves 0: callers stop on false.
bool IncPeriod(unsigned short* period);
bool DecPeriod(unsigned short* period);
// The user's number (1 to 2n) of an internal period of the open years; 0 for any other.
unsigned short UserPeriod(unsigned short internal, unsigned short periods_per_year);
// The internal number of a user period; one outside 1 to 2n answers n + 1, never a period.
unsigned short InternalPeriod(unsigned short user, unsigned short periods_per_year);
// Whether date lies in the period's calendar entry of gl_record (period 0: before period
// 1 begins); false for a null record or a period past the calendar.
bool IsCurPeriod(GeneralDataType* gl_record, DatesType date, unsigned short period);
// The internal period whose calendar entry holds date (the open years first, where they
// overlap the history year), 0 before the history year, kNoPeriod when none holds it or
// the general-ledger record cannot be read.
unsigned short WhichGLperiod(DatesType date);
// The first (last) date of the period; the zero date for a period past the calendar or
// when the record cannot be read.
DatesType GetPeriodFrom(unsigned short period);
DatesType GetPeriodTo(unsigned short period);
// Fills range by a date-range code (0 to 19; codes the host fills itself keep range).
// When the general-ledger record cannot be read, range is the current period's. Null
// range is ignored.
void SetDateRange(int16_t code, FromTo* range);

#endif  // BASICS_GENERAL_H_
