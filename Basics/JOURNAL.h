// Journal model: journal types, the two transaction keys, the open header/row file pair
// that every journal store and posting function takes, the on-disk layouts of the journal
// header file (JrnlHdrType) and row file (JrnlRowType), the in-memory transaction
// (JournalRecord) and the key and name functions. Builds on the utility library and the
// period functions of General. No state of its own: safe from any thread, except that key
// strings read the company's period settings and item names the item file.
#ifndef BASICS_JOURNAL_H_
#define BASICS_JOURNAL_H_

#include <cstddef>
#include <cstdint>

#include "record_manager.h"
#include "zor_types.h"

// The signed 16-bit journal number.
enum JournalTypes : int16_t {
  GENJ = 0,   // general journal
  CRJ = 1,    // cash receipts
  CDJ = 2,    // cash disbursements
  SJ = 3,     // sales
  PJ = 4,     // purchases
  PRJ = 5,    // payroll
  COGSJ = 6,  // cost of goods
  INAJ = 7,   // inventory adjustment
  ASBYJ = 8,  // assembly build
  INAJ2 = 9,  // second inventory adjustment (system cost adjustments)
  POJ = 10,   // purchase orders
  SOJ = 11,   // sales orders
  SJ2 = 12,   // second sales journal (on disk and in keys only)
};

// The open journal pair: header file, then row file. Passed by value.
struct JrnlDBFilesType {
  BtrvFile* HdrFile;
  BtrvFile* RowFile;
};

#pragma pack(push, 1)

// JournalKey1Type, the transaction key (10 bytes; header key 0).
//   offset  size  field
//        0     1  partner flag: 1 when made by MakePartnerOfJournalKey
//        1     4  transaction number, s32
//        5     2  accounting period, u16 (internal period number)
//        7     2  journal type, s16 (12 on disk for the second sales journal)
//        9     1  shadow byte: 0 ordinary; 1 a receipt's or disbursement's shadow key;
//                 2 the shadow transactions that posting writes
struct JournalKey1Type {
  uint8_t PartnerFlag;
  int32_t TrxNumber;
  uint16_t Period;
  int16_t JournalType;
  uint8_t Shadow;
};

// JournalKey2Type, the card and date (9 bytes; header key 1).
//   offset  size  field
//        0     1  qualifier: 'R' the customer side, 'P' the vendor side
//        1     4  card: record number of the customer, vendor or employee (of the item
//                 for inventory adjustments and assemblies), s32
//        5     4  transaction date
struct JournalKey2Type {
  char Qualifier;
  int32_t Card;
  DatesType Date;
};

// JrnlHdrType, the journal header record (5950 bytes).
//   offset  size  field
//        0    10  JournalKey1Type (journal 3 with the journal-12 flag stored as 12)
//       10     9  JournalKey2Type; the date is at 15
//       19    16  transaction GUID (key 10)
//       35     4  post order number, u32: the link to the rows (key 5)
//       39    31  transaction description
//       70     8  (carried unchanged; the header amount lives on the main row)
//       78    21  reference, 20 characters at most (keys 2, 7, 12)
//       99     1  ledger flag: 1 when posted
//      100     1  second flag
//      101     1  third flag
//      102     1  beginning-balance flag
//      103     4  (carried unchanged; the date cleared lives on the main row)
//      107     9  short code text, 8 characters at most
//      116     4  record number, s32 (key 8)
//      120     2  16-bit value kept with it
//      122     4  employee record number, s32
//      126     1  flag
//      127     1  flag
//      128     1  (carried unchanged)
//      129     1  general journal only: one-byte flag
//      130    44  journal-specific bytes (see the journal's own layout)
//      174     4  header account record number, s32
//      178  2728  journal-specific bytes; for receipts and disbursements 354 (second-card
//                 flag, u16), 356 (second card record number, s32) and 602 (receipt
//                 number, 21) lie in them
//     2906     4  32-bit value copied to the in-memory header
//     2910  3035  journal-specific bytes
//     5945     4  32-bit value
//     5949     1  flag
// The journal-specific bytes are given a layout by the journal store; whatever no journal
// uses is carried unchanged.
struct JrnlHdrType {
  JournalKey1Type Key1;
  JournalKey2Type Key2;
  GUID Guid;
  uint32_t PostOrder;
  char Description[31];
  uint8_t Bytes70[8];
  char Reference[21];
  uint8_t LedgerFlag;
  uint8_t SecondFlag;
  uint8_t ThirdFlag;
  uint8_t BegBalFlag;
  uint8_t Bytes103[4];
  char ShortCode[9];
  int32_t Key8RecordNumber;
  int16_t Key8Value;
  int32_t EmployeeRecordNumber;
  uint8_t Flag126;
  uint8_t Flag127;
  uint8_t Byte128;
  uint8_t GenJrnlFlag;
  uint8_t Specific130[44];
  int32_t HdrAccount;
  uint8_t Specific178[2728];
  int32_t Value2906;
  uint8_t Specific2910[3035];
  int32_t Value5945;
  uint8_t Flag5949;
};

// JrnlRowType, the journal row record (373 bytes).
//   offset  size  field
//        0     4  account record number, s32 (key 2 with date and post order)
//        4     4  post order number of the owning header, u32 (key 0; key 1 with line)
//        8     2  line number, u16: 0 the main row, i + 1 distribution line i and its
//                 counter-account rows
//       10     4  item record number, s32, 0 when none (keys 3 and 7)
//       14     4  job record number, s32 (key 6)
//       18    21  phase ID text
//       39    21  cost code ID text
//       60     4  applied-invoice link: post order number of the invoice paid, u32 (key 5)
//       64     1  1 when the invoice reference is formatted from the link number
//       65     1  distribution lines: 1 when the line applies to an invoice
//       66     4  journal type as stored, s32 (12 for the second sales journal)
//       70     4  transaction date
//       74     1  flag: 0 on the order rows that the item-quantity scan counts
//       75     1  ledger flag: 1 when the row posts to the general ledger
//       76     3  (carried unchanged)
//       79     4  inventory adjustments and assemblies: 1 on the main row and the kind 10
//                 row, 0 on the kind 9 row; its first byte is the below-zero row flag
//       83     4  row kind, s32
//       87     8  amount, double
//       95     8  quantity, double
//      103     8  unit price or cost, double
//      111    16  (carried unchanged)
//      127     8  order lines: first quantity, double
//      135     8  order lines: second quantity, double
//      143     2  (carried unchanged)
//      145   161  line description
//      306     4  customer record number, s32
//      310     4  vendor record number, s32
//      314     4  employee record number, s32
//      318    16  row GUID (key 4)
//      334     1  flag
//      335     9  short code text (payroll field code)
//      344     2  16-bit value: payroll field index, or job-entry index on a job row
//      346     2  (carried unchanged)
//      348    21  applied-invoice reference text
//      369     4  date cleared; 0 when not cleared
struct JrnlRowType {
  int32_t Account;
  uint32_t PostOrder;
  uint16_t LineNumber;
  int32_t Item;
  int32_t Job;
  char Phase[21];
  char CostCode[21];
  uint32_t AppliedLink;
  uint8_t LinkFormatted;
  uint8_t Byte65;
  int32_t JournalType;
  DatesType Date;
  uint8_t OrderFlag;
  uint8_t LedgerFlag;
  uint8_t Bytes76[3];
  int32_t ItemAccountFlag;
  int32_t Kind;
  double Amount;
  double Quantity;
  double UnitPrice;
  uint8_t Bytes111[16];
  double OrderQuantity1;
  double OrderQuantity2;
  uint8_t Bytes143[2];
  char Description[161];
  int32_t Customer;
  int32_t Vendor;
  int32_t Employee;
  GUID Guid;
  uint8_t Flag334;
  char ShortCode[9];
  int16_t Value344;
  uint8_t Bytes346[2];
  char InvoiceReference[21];
  DatesType DateCleared;
};

#pragma pack(pop)

static_assert(sizeof(JournalKey1Type) == 10 && offsetof(JournalKey1Type, TrxNumber) == 1 &&
                  offsetof(JournalKey1Type, Period) == 5 &&
                  offsetof(JournalKey1Type, JournalType) == 7 &&
                  offsetof(JournalKey1Type, Shadow) == 9,
              "JournalKey1Type layout");
static_assert(sizeof(JournalKey2Type) == 9 && offsetof(JournalKey2Type, Card) == 1 &&
                  offsetof(JournalKey2Type, Date) == 5,
              "JournalKey2Type layout");

static_assert(sizeof(JrnlHdrType) == 5950, "JrnlHdrType is 5950 bytes");
static_assert(offsetof(JrnlHdrType, Key2) == 10 && offsetof(JrnlHdrType, Key2.Date) == 15,
              "header key 2 at 10, its date at 15");
static_assert(offsetof(JrnlHdrType, Guid) == 19, "header GUID at 19");
static_assert(offsetof(JrnlHdrType, PostOrder) == 35, "header post order at 35");
static_assert(offsetof(JrnlHdrType, Description) == 39, "header description at 39");
static_assert(offsetof(JrnlHdrType, Reference) == 78, "header reference at 78");
static_assert(offsetof(JrnlHdrType, LedgerFlag) == 99 && offsetof(JrnlHdrType, SecondFlag) == 100 &&
                  offsetof(JrnlHdrType, ThirdFlag) == 101 &&
                  offsetof(JrnlHdrType, BegBalFlag) == 102,
              "header flags at 99 to 102");
static_assert(offsetof(JrnlHdrType, ShortCode) == 107, "header short code at 107");
static_assert(offsetof(JrnlHdrType, Key8RecordNumber) == 116 &&
                  offsetof(JrnlHdrType, Key8Value) == 120,
              "header key-8 record number at 116");
static_assert(offsetof(JrnlHdrType, EmployeeRecordNumber) == 122, "header employee at 122");
static_assert(offsetof(JrnlHdrType, Flag126) == 126 && offsetof(JrnlHdrType, Flag127) == 127 &&
                  offsetof(JrnlHdrType, GenJrnlFlag) == 129,
              "header flags at 126, 127 and 129");
static_assert(offsetof(JrnlHdrType, HdrAccount) == 174, "header account at 174");
static_assert(offsetof(JrnlHdrType, Value2906) == 2906, "header value at 2906");
static_assert(offsetof(JrnlHdrType, Value5945) == 5945 && offsetof(JrnlHdrType, Flag5949) == 5949,
              "header tail at 5945");

// Header offsets inside the journal-specific bytes that other units read directly.
constexpr size_t kHdrSecondCardFlagOffset = 354;  // receipts, disbursements: u16
constexpr size_t kHdrSecondCardOffset = 356;      // receipts, disbursements: s32
constexpr size_t kHdrReceiptNumberOffset = 602;   // receipts: 21 characters (key 14)
constexpr size_t kHdrReceiptNumberLength = 21;

static_assert(sizeof(JrnlRowType) == 373, "JrnlRowType is 373 bytes");
static_assert(offsetof(JrnlRowType, PostOrder) == 4 && offsetof(JrnlRowType, LineNumber) == 8 &&
                  offsetof(JrnlRowType, Item) == 10 && offsetof(JrnlRowType, Job) == 14 &&
                  offsetof(JrnlRowType, Phase) == 18 && offsetof(JrnlRowType, CostCode) == 39,
              "row identity fields");
static_assert(offsetof(JrnlRowType, AppliedLink) == 60 &&
                  offsetof(JrnlRowType, LinkFormatted) == 64 &&
                  offsetof(JrnlRowType, JournalType) == 66 && offsetof(JrnlRowType, Date) == 70,
              "row link, journal and date");
static_assert(offsetof(JrnlRowType, OrderFlag) == 74 && offsetof(JrnlRowType, LedgerFlag) == 75 &&
                  offsetof(JrnlRowType, ItemAccountFlag) == 79 && offsetof(JrnlRowType, Kind) == 83,
              "row flags and kind");
static_assert(offsetof(JrnlRowType, Amount) == 87 && offsetof(JrnlRowType, Quantity) == 95 &&
                  offsetof(JrnlRowType, UnitPrice) == 103,
              "row amounts");
static_assert(offsetof(JrnlRowType, OrderQuantity1) == 127 &&
                  offsetof(JrnlRowType, OrderQuantity2) == 135,
              "row order quantities");
static_assert(offsetof(JrnlRowType, Description) == 145 && offsetof(JrnlRowType, Customer) == 306 &&
                  offsetof(JrnlRowType, Vendor) == 310 && offsetof(JrnlRowType, Employee) == 314,
              "row description and cards");
static_assert(offsetof(JrnlRowType, Guid) == 318 && offsetof(JrnlRowType, Flag334) == 334 &&
                  offsetof(JrnlRowType, ShortCode) == 335 && offsetof(JrnlRowType, Value344) == 344,
              "row GUID and payroll fields");
static_assert(offsetof(JrnlRowType, InvoiceReference) == 348 &&
                  offsetof(JrnlRowType, DateCleared) == 369,
              "row invoice reference and date cleared");

// Row kinds (JrnlRowType::Kind).
enum JrnlRowKind : int32_t {
  kRowDistribution = 0,     // a distribution line: opens a new line
  kRowCounter1 = 1,         // the first counter-account row of line n
  kRowCounter2 = 2,         // the second counter-account row of line n
  kRowSkipped = 3,          // skipped when a transaction is loaded
  kRowToHeaderAccount = 4,  // amount added to line n's second amount; account to the header
  kRowPayroll = 5,          // a payroll line: opens a new line, carries the field code
  kRowInventoryCost1 = 7,   // inventory cost rows: always count as posted
  kRowInventoryCost2 = 8,
  kRowItemAccount1 = 9,   // the two item-account rows of an inventory adjustment or
  kRowItemAccount2 = 10,  // assembly (line number 0)
};

// --- Journal-specific header areas ---------------------------------------------------------
// Offsets 130-173, 178-2905 and 2910-5944 of JrnlHdrType belong to the journal. Each kind
// lays out the three areas with the structs below; the in-memory record keeps the same
// three structs whole, so every byte of them (named or spare) survives a save and a load.
constexpr size_t kHdrArea130Size = 44;
constexpr size_t kHdrArea178Size = 2728;
constexpr size_t kHdrArea2910Size = 3035;

#pragma pack(push, 1)

// Areas no journal names a field in (general journal, payroll's first and third area,
// inventory journals): carried as they are.
struct JrnlHdrRaw130 {
  uint8_t Bytes[kHdrArea130Size];
};
struct JrnlHdrRaw178 {
  uint8_t Bytes[kHdrArea178Size];
};
struct JrnlHdrRaw2910 {
  uint8_t Bytes[kHdrArea2910Size];
};

// Receipts and disbursements, area 178 (header offsets).
//   offset  size  field
//      178   154  first cash block
//      332    21  cash text, 20 characters at most
//      353     1  (spare)
//      354     2  second-card flag, u16: the transaction also names a vendor (receipt) or
//                 a customer (disbursement)
//      356     4  second card record number, s32
//      360   154  second cash block (receipts only)
//      514    88  further cash fields, carried
//      602    21  receipt number (receipts; key 14)
//      623  2283  (spare)
struct JrnlCashHdr178 {
  uint8_t Block1[154];
  FixedString<21> Text;
  uint8_t Spare353;
  uint16_t SecondCardFlag;
  int32_t SecondCard;
  uint8_t Block2[154];
  uint8_t Further[88];
  FixedString<21> ReceiptNumber;
  uint8_t Spare623[2283];
};

// Sales, purchases and orders (3, 4, 10, 11), area 130: the dates and flags that posting
// and the transaction alarms read (header offsets).
//   offset  size  field
//      130     4  paid-in-full date (0x7FFFFFFF: never, a balance remains)
//      134     8  amount paid, double
//      142     4  due date
//      146     4  payment date (of the last payment)
//      150     4  third date (sales orders: the date their event falls on)
//      154     4  fourth date (purchase orders)
//      158     1  done flag
//      159     1  subtype (sales: 0 invoice, 2 and others as the host uses them)
//      160     1  no-event flag: no due-date events for this transaction
//      161     1  second-event flag
//      162     1  journal-12 flag (sales are also stored as journal 12; a purchase keeps it
//                 here only: it is exempt from the reference checks)
//      163    11  (spare)
struct JrnlSalesHdr130 {
  DatesType PaidInFullDate;
  double AmountPaid;
  DatesType DueDate;
  DatesType PaymentDate;
  DatesType ThirdDate;
  DatesType FourthDate;
  uint8_t Done;
  uint8_t Subtype;
  uint8_t NoEvent;
  uint8_t SecondEvent;
  uint8_t Journal12;
  uint8_t Spare163[11];
};

// Sales, purchases and orders, area 178 (header offsets).
//   offset  size  field
//      178    21  header text, 20 characters at most
//      199   161  header long description, 160 characters at most
//      360    21  first 20-character text ("Receipt"/"Payment" on shadows)
//      381     4  second date (shadows: the source's date)
//      385    40  40-character text
//      425   244  (spare)
//      669    21  second 20-character text ("Receipt"/"Payment" on shadows)
//      690  2001  first 2000-character text
//     2691   215  (spare)
struct JrnlSalesHdr178 {
  FixedString<21> Text21;
  FixedString<161> Text161;
  FixedString<21> TextA;
  DatesType SecondDate;
  FixedString<40> Text40;
  uint8_t Spare425[244];
  FixedString<21> TextB;
  FixedString<2001> LongText1;
  uint8_t Spare2691[215];
};

// Sales, purchases and orders, area 2910.
//   offset  size  field
//     2910  2001  second 2000-character text
//     4911  1034  (spare)
struct JrnlSalesHdr2910 {
  FixedString<2001> LongText2;
  uint8_t Spare4911[1034];
};

// Payroll, area 178.
//   offset  size  field
//      178   160  payroll field table
//      338   280  payroll area
//      618  2288  (spare)
struct JrnlPayrollHdr178 {
  uint8_t FieldTable[160];
  uint8_t Area[280];
  uint8_t Spare618[2288];
};

#pragma pack(pop)

static_assert(sizeof(JrnlHdrRaw130) == 44 && sizeof(JrnlHdrRaw178) == 2728 &&
                  sizeof(JrnlHdrRaw2910) == 3035,
              "raw areas");
static_assert(sizeof(JrnlCashHdr178) == kHdrArea178Size, "cash area 178");
static_assert(178 + offsetof(JrnlCashHdr178, SecondCardFlag) == kHdrSecondCardFlagOffset &&
                  178 + offsetof(JrnlCashHdr178, SecondCard) == kHdrSecondCardOffset &&
                  178 + offsetof(JrnlCashHdr178, ReceiptNumber) == kHdrReceiptNumberOffset &&
                  178 + offsetof(JrnlCashHdr178, Block2) == 360 &&
                  178 + offsetof(JrnlCashHdr178, Further) == 514,
              "cash fields at 354, 356, 360, 514 and 602");
static_assert(sizeof(JrnlSalesHdr130) == kHdrArea130Size, "sales area 130");
static_assert(130 + offsetof(JrnlSalesHdr130, AmountPaid) == 134 &&
                  130 + offsetof(JrnlSalesHdr130, DueDate) == 142 &&
                  130 + offsetof(JrnlSalesHdr130, PaymentDate) == 146 &&
                  130 + offsetof(JrnlSalesHdr130, ThirdDate) == 150 &&
                  130 + offsetof(JrnlSalesHdr130, FourthDate) == 154 &&
                  130 + offsetof(JrnlSalesHdr130, Done) == 158 &&
                  130 + offsetof(JrnlSalesHdr130, Subtype) == 159 &&
                  130 + offsetof(JrnlSalesHdr130, NoEvent) == 160 &&
                  130 + offsetof(JrnlSalesHdr130, SecondEvent) == 161 &&
                  130 + offsetof(JrnlSalesHdr130, Journal12) == 162,
              "sales dates and flags at 130 to 162");
static_assert(sizeof(JrnlSalesHdr178) == kHdrArea178Size, "sales area 178");
static_assert(178 + offsetof(JrnlSalesHdr178, Text161) == 199 &&
                  178 + offsetof(JrnlSalesHdr178, TextA) == 360 &&
                  178 + offsetof(JrnlSalesHdr178, SecondDate) == 381 &&
                  178 + offsetof(JrnlSalesHdr178, Text40) == 385 &&
                  178 + offsetof(JrnlSalesHdr178, TextB) == 669 &&
                  178 + offsetof(JrnlSalesHdr178, LongText1) == 690,
              "sales texts at 178, 199, 360, 385, 669 and 690, second date at 381");
static_assert(sizeof(JrnlSalesHdr2910) == kHdrArea2910Size, "sales area 2910");
static_assert(sizeof(JrnlPayrollHdr178) == kHdrArea178Size &&
                  178 + offsetof(JrnlPayrollHdr178, Area) == 338,
              "payroll area 178");

// --- The in-memory transaction ---------------------------------------------------------------
// Line capacities: receipts and disbursements 560 lines (a receipt holds at most 560); the
// general journal, sales and purchases, orders and the inventory journals (6 to 9) 560
// lines too; payroll 60 fields and 100 job-distribution entries.
constexpr int kMaxCashLines = 560;
constexpr int kMaxJrnlLines = 560;
constexpr int kMaxPayrollFields = 60;
constexpr int kMaxPayrollJobs = 100;

#pragma pack(push, 1)

// A counter-account slot of a line, filled from a row of kind 1 (slot 0) or 2 (slot 1).
// A slot is written when its account or amount or cleared date is set.
struct JrnlCounterSlot {
  int32_t Account;
  DatesType DateCleared;
  GUID Guid;
  double Amount;
};

// One distribution line (every journal but payroll). Written as one kind-0 row with line
// number i + 1, then a kind-1 and a kind-2 row for the used counter slots, then a kind-4
// row (account: the header's) when the second amount is not zero.
struct JrnlDistLine {
  int32_t Account;
  double Amount;
  double SecondAmount;         // receipts, disbursements: the kind-4 row's amount
  uint8_t Applied;             // applies to an invoice (row offset 65)
  FixedString<21> InvoiceRef;  // applied-invoice reference, 20 characters
  uint32_t AppliedLink;        // post order number of the invoice paid
  uint8_t LinkFormatted;       // the reference is the link number written in decimal
  int32_t Item;                // item record number, 0 when none
  double Quantity;
  double UnitPrice;
  double OrderQuantity1;  // orders: first and second quantity
  double OrderQuantity2;
  int32_t Job;    // project record number
  int32_t Phase;  // phase record number (the row keeps the ID)
  int32_t Cost;   // cost code record number (the row keeps the ID)
  FixedString<161> Description;
  uint8_t Flag;       // row offset 334; on an item line: do not name the item
  uint8_t OrderFlag;  // row offset 74
  DatesType DateCleared;
  GUID Guid;        // of the kind-0 row
  GUID SecondGuid;  // of the kind-4 row
  JrnlCounterSlot Counter[2];
};

// A payroll field: one kind-5 row with line number field + 1 carrying the field index and
// code, and a kind-2 row for the second amount when it is not zero.
struct JrnlPayrollField {
  int32_t Account;
  int16_t FieldIndex;  // never negative (a negative stored index loads as 0)
  FixedString<9> Code;
  double Amount;
  double SecondAmount;
  DatesType DateCleared;
  GUID Guid;
  GUID SecondGuid;
};

// A payroll job-distribution entry: a kind-5 row with a job, line number field + 1, the
// entry's index at row offset 344.
struct JrnlPayrollJob {
  int32_t Job;
  int32_t Phase;
  int32_t Cost;
  int16_t Field;
  double Amount;
  DatesType DateCleared;
  GUID Guid;
};

// Journal-specific members of JournalRecord. Each keeps its journal's three header areas.
struct JrnlGenMember {  // 0
  JrnlHdrRaw130 Area130;
  JrnlHdrRaw178 Area178;
  JrnlHdrRaw2910 Area2910;
  JrnlDistLine Lines[kMaxJrnlLines];
};
struct JrnlCashMember {  // 1, 2
  JrnlHdrRaw130 Area130;
  JrnlCashHdr178 Area178;
  JrnlHdrRaw2910 Area2910;
  double AppliedTotal;  // sum of the applied lines' amounts, made when loaded
  JrnlDistLine Lines[kMaxCashLines];
};
struct JrnlSalesMember {  // 3, 4
  JrnlSalesHdr130 Area130;
  JrnlSalesHdr178 Area178;
  JrnlSalesHdr2910 Area2910;  // Area130.Journal12 is the journal-12 flag
  JrnlDistLine Lines[kMaxJrnlLines];
};
struct JrnlOrderMember {  // 10, 11
  JrnlSalesHdr130 Area130;
  JrnlSalesHdr178 Area178;
  JrnlSalesHdr2910 Area2910;
  double OrderValue;  // the main row's first order quantity
  JrnlDistLine Lines[kMaxJrnlLines];
};
struct JrnlPayrollMember {  // 5
  JrnlHdrRaw130 Area130;
  JrnlPayrollHdr178 Area178;
  JrnlHdrRaw2910 Area2910;
  int16_t JobCount;
  JrnlPayrollField Fields[kMaxPayrollFields];  // LineCount of them
  JrnlPayrollJob Jobs[kMaxPayrollJobs];        // JobCount of them
};
struct JrnlInvMember {  // 6, 7, 8, 9
  JrnlHdrRaw130 Area130;
  JrnlHdrRaw178 Area178;
  JrnlHdrRaw2910 Area2910;
  double Quantity;  // 7 and 8: the main row's quantity
  JrnlDistLine Lines[kMaxJrnlLines];
};

// JournalRecord: one whole transaction in memory, one fixed block without pointers,
// allocated by AllocateJournalRecord and freed by DeAllocateJournalRecord only. The common
// part comes first; the union holds the journal's own fields; two GUIDs close it.
struct JournalRecord {
  JournalKey1Type Key1;
  JournalKey2Type Key2;
  int32_t HdrAccount;  // account of the main row
  uint32_t PostOrder;
  FixedString<31> Description;
  double Amount;  // the main row's amount
  FixedString<21> Reference;
  uint8_t LedgerFlag;
  uint8_t SecondFlag;
  uint8_t ThirdFlag;
  uint8_t BegBalFlag;
  DatesType DateCleared;  // the main row's
  FixedString<9> ShortCode;
  int32_t Key8RecordNumber;
  int16_t Key8Value;
  FixedString<21> EmployeeID;  // header offset 122 keeps the record number
  uint8_t Flag126;
  uint8_t Flag127;
  int32_t Value2906;
  int16_t LineCount;  // distribution lines; payroll: fields
  GUID Guid;          // the transaction's
  int32_t Value5945;
  uint8_t Flag5949;
  GUID MainRowGuid;
  uint8_t GenJrnlFlag;  // header offset 129, general journal only
  union {
    JrnlGenMember Gen;
    JrnlCashMember Cash;
    JrnlSalesMember Sales;
    JrnlOrderMember Order;
    JrnlPayrollMember Payroll;
    JrnlInvMember Inv;
  } J;
  GUID ExtraGuid1;  // the kind-9 item-account row (inventory adjustments, assemblies)
  GUID ExtraGuid2;  // the kind-10 row
};

#pragma pack(pop)

static_assert(sizeof(JrnlDistLine) == 358, "a distribution line is 358 bytes");
static_assert(offsetof(JournalRecord, Key2) == 10 && offsetof(JournalRecord, HdrAccount) == 19,
              "record keys first");

// The distribution lines of the record's journal (null for payroll), and how many it holds.
JrnlDistLine* JournalLines(JournalRecord* record);
const JrnlDistLine* JournalLines(const JournalRecord* record);
int JournalLineCapacity(int16_t journal);

// --- Allocation, keys and names ---------------------------------------------------------------

// *record := a new record, all zero; answers 1 when it was allocated, 0 with *record null
// when memory ran out (or record is null). The caller frees it with DeAllocateJournalRecord.
unsigned char AllocateJournalRecord(JournalRecord** record);
// Frees *record (null is allowed) and sets it to null; answers 1 (0 for a null record).
unsigned char DeAllocateJournalRecord(JournalRecord** record);

// The printable form of a transaction key: a blank and the user's period ("p" and the
// internal period when it lies outside the open years), "-", the number in 9 digits, e.g.
// " 03-000000123". Reads the period settings of Current. out is the caller's.
void MakeKeyString(const JournalKey1Type* key, FixedString<16>& out);
// Fills journal, period and number of key from typed text; the period comes from key2's
// date when the text holds a number only. Flag bytes are left as they were.
void MakeJournalKey(int16_t journal, const char* text, JournalKey1Type* key,
                    const JournalKey2Type* key2);
// The shadow key of a receipt (kept in sales, 3) or disbursement (purchases, 4), shadow byte 1; 0
// with out unchanged when the key is a shadow already or of another journal.
unsigned char MakeShadowOfJournalKey(JournalKey1Type* out, const JournalKey1Type* in);
// The partner key: sales to receipts, purchases to disbursements, a general journal entry
// to the same number in the next period; partner flag set. 0 with out unchanged when out's
// partner flag is set on entry, the journal has no partner, or the period is 41 or later.
unsigned char MakePartnerOfJournalKey(JournalKey1Type* out, const JournalKey1Type* in);

// Journal names. size counts characters: the buffer holds size + 1 bytes. The text is
// copied only when it fits (size at least its length); out is left untouched otherwise.
// The long name (messages 310 to 323; sales with variant 2 and purchases with variant 3
// take the invoicing names 322 and 323); "<unused journal>" for journals without one.
void GetJournalNameEx(int16_t journal, int16_t variant, uint16_t size, char* out);
void GetJournalName(int16_t journal, uint16_t size, char* out);
// The short name; journal 6 reads "COGS" in a buffer of fewer than 8 characters.
void GetJournalNameShort(int16_t journal, uint16_t size, char* out);
// The journal code ("GENJ", "CRJ", ...; "????" for other numbers); a constant, never freed.
const char* GetJrnlName(int16_t journal);
// The text describing distribution line `line` (0-based): the transaction description,
// then the invoice or item and the line description. Written into out (size bytes with
// the terminator, cut to fit); empty for a line outside the record.
void GetDistribDescription(const JournalRecord* record, int16_t line, uint16_t size, char* out);

// --- Posting --------------------------------------------------------------------------------
// Each of InsertJournal, UpdateJournal and DeleteJournal (with the shadow, the event actions,
// the receipt tags and the audit-trail moves) runs in one batch on the pair and commits whole
// or not at all: on failure (0) the company's files are exactly as before the call (inside a
// host's batch only the call's own writes are undone). Numbers are handed out inside the
// batch, where no other user can take them before it commits. A batch kept waiting by
// another user's past the record manager's wait, or a record held by another user's edit,
// brings up the record manager's Retry/Cancel prompt (20085, 20084): the library never
// retries by itself; Cancel answers 0 with nothing written. Refusals are shown once the
// batch is abandoned. The record stays the caller's; on failure it may hold the numbers and
// GUIDs that were tried. GetErrorCode(files.HdrFile) tells why a header write failed.

// OptimizedInsertJournal with keep-numbers 0 and event mode 3.
unsigned char InsertJournal(JrnlDBFilesType files, JournalRecord* record);
// Inserts record as a new transaction: a GUID when it has none, the next post order number
// when it has 0 (unless keep_numbers), the paid-in-full date of sales and purchases, the
// duplicate-invoice check (a duplicate answers 0 after its message), renumbering on a
// duplicate key, the events when event_mode is 3, and (unless keep_numbers) the shadow of a
// receipt from a vendor or a payment to a customer. Without keep_numbers a shadow record
// (shadow byte 2) is refused.
unsigned char OptimizedInsertJournal(JrnlDBFilesType files, JournalRecord* record,
                                     unsigned char keep_numbers, unsigned short event_mode);
// Rewrites the transaction last read through files.HdrFile as record (key: the key path of
// that read); old is the version as read, or null. Paid-in-full date, duplicate check,
// events and (cash basis) the sale's receipt tags. Shadows are the caller's to update.
unsigned char UpdateJournal(JrnlDBFilesType files, JournalRecord* record, int16_t key,
                            JournalRecord* old);
unsigned char NewUpdateJournal(JrnlDBFilesType files, JournalRecord* record, int16_t key,
                               JournalRecord* old);
unsigned char OptimizedUpdateJournal(JrnlDBFilesType files, JournalRecord* record, int16_t key,
                                     JournalRecord* old);
// Deletes the transaction last read through files.HdrFile, under the company-wide
// single-user access of deletions (0 at once when another holds it): its events, its audit
// entries detached (post order 0), and its shadow unless no_shadow.
unsigned char DeleteJournal(JrnlDBFilesType files, JournalRecord* record, int no_shadow);
unsigned char OptimizedDeleteJournal(JrnlDBFilesType files, JournalRecord* record, int no_shadow);

// The one-line shadow of a receipt from a vendor (purchases, "Receipt") or of a payment to a
// customer (sales, "Payment"), in a batch of its own; 1 on success, 0 after message 2508
// (2507) when it cannot be written (nothing written). The Update forms rewrite an existing
// shadow (0 after 2510 (2509) when missing); they move the pair's position to the shadow.
int CreateShadowForRecVend(JrnlDBFilesType files, JournalRecord* source);
int CreateShadowForPayCust(JrnlDBFilesType files, JournalRecord* source);
int UpdateShadowForRecVend(JrnlDBFilesType files, JournalRecord* source);
int UpdateShadowForPayCust(JrnlDBFilesType files, JournalRecord* source);

// Spreads applied-invoice line *line (1-based) of receipt over the lines of the invoice it
// pays (cash-basis books), advancing *line to the last line written and raising the line
// count to it; adds the receipt tag. The invoice is old_invoice when its reference matches,
// else FindInvoice(files, journal, ...). 1 on success (also when the invoice is not found,
// after message 2417, with the line unchanged); 0 after message 2477 (2493 from posting)
// when the receipt would pass 560 lines, and 0 without a message when a receipt-tag write
// fails (the tags then as they were; the lines already spread stay in receipt).
// old_invoice is the invoice as it was before the change, or null. All records stay the
// caller's.
int DoCashBasisStuff(JournalRecord* receipt, int16_t journal, JrnlDBFilesType files,
                     BtrvFile* tag_file, unsigned short* line, unsigned char from_posting,
                     JournalRecord* old_invoice);

// --- Reference checks and numbering ------------------------------------------------------------
// Reads run on the journal store's own look-up handles (closed by CloseInternalJrnlFiles)
// unless a function names the files it reads; none of them writes.

// 1 when record's reference is already used for the same card where that is forbidden
// (sales and purchase invoices, orders, receipts and payments settling a card's invoices or
// naming a second card); 0 otherwise, also when the file cannot be read. insert_mode 0
// (an update) skips the transaction itself. On 1 the refusal's text goes into out (cut to
// out_size bytes with its terminator) when out is given, else into a warning box.
int CheckForDuplicateInvoice(JournalRecord* record, int insert_mode, char* out, int out_size);
// 1 when reference (20 characters) collides, for journal and card (second_card: the card
// a payment checked with flag settles), with another transaction; record is the
// transaction itself, skipped (null: nothing skipped). 0 also when the files cannot be
// opened. Shows nothing.
unsigned char DuplicateReference(int16_t journal, unsigned char flag, int32_t card,
                                 JournalRecord* record, const char* reference, int32_t second_card);
// 1 when a receipt (journal 1) from a vendor or a disbursement (2) to a customer with this
// reference already names card_id (a vendor's, a customer's ID) through another transaction
// read from hdr_file (the caller's; its position moves). exclude_self skips own_key and its
// own shadow. 0 for other journals or when nothing is found.
int DupRefForPayCustOrRecVend(BtrvFile* hdr_file, int16_t journal, int exclude_self,
                              JournalKey1Type* own_key, const char* card_id, const char* reference);
// The shadow key of a receipt or disbursement header into *out, answering 1; 0 (out
// untouched) for a header that is a shadow itself; 1 and out untouched for other journals.
int MakeShadowKey(JrnlHdrType& hdr, JournalKey1Type* out);
// 1 when a transaction of cash account cash_account already used receipt number receipt.
// The walk stops with 0 on record itself (same post order) unless count_itself. 0 for an
// empty number or when the files cannot be opened.
int CheckForDuplicateReceipt(int32_t cash_account, FixedString<21> receipt, JournalRecord* record,
                             bool count_itself);
// The invoice with this reference (length characters at most, blanks trimmed) of payment's
// card and qualifier in another journal than `journal`, read through files (their positions
// move) whole into invoice (the caller's) or as its header into hdr. 1 when found; 0
// otherwise, invoice (hdr) then left as it was.
unsigned char FindInvoice(JrnlDBFilesType files, int16_t journal, JournalRecord* payment,
                          unsigned short length, char* reference, JournalRecord* invoice);
unsigned char FindInvoiceHdr(JrnlDBFilesType files, JournalRecord* payment, JournalTypes journal,
                             unsigned short length, char* reference, JrnlHdrType& hdr);

// The next post order number: the highest in the header file as it is now (a caller's open
// batch included) + 1; 1 for an empty file, 0 when the file cannot be read.
ULONG32 NextPostOrderNumber();
// The highest post order number, read through journal files opened for the call; 0 when
// there is none or the files cannot be opened.
ULONG32 GetLastPostOrderNumber();
// The next transaction number of key's journal and period (partner flag and shadow byte as
// in key): the highest below 0x7FFFFFFE + 1, read as the file is now; both sales journals
// (3 and 12) share one sequence. 1 for a period without transactions or an unreadable file.
LONG32 NextTrxNumber(JournalKey1Type key);
// The reference of the transaction with this post order ("SysCost" for 0xFFFFFFFE, the
// system's cost adjustments) and 1; 0 with an empty reference when there is none.
int GetReferenceFromPostOrder(FixedString<21>& reference, ULONG32 post_order);
// 1 when the first saved (unposted) transaction in header key 4 order uses the item; only
// that one transaction is looked at. 0 otherwise or when the files cannot be opened.
unsigned char AnySavedTxnsOnItem(FixedString<21> item);

// Whether the header amount and every line's amount (receipts and payments: with the second
// amounts of applied-invoice lines) add up to zero. false for a null record.
bool fIsJrnlBalanced(JournalRecord* record);
// Today when it lies in the current period (Current), else the period's first date.
DatesType GetDefJrnlDate();
// Sets (tests) the cleared date of the header, every line, and the counter slots of item
// lines. A null record is ignored (answers 0).
void SetAllDateCleared(JournalRecord* record, DatesType date);
int AreAnyDateClearedSet(JournalRecord* record);
// Nulls the row GUIDs of the record (main row, item-account rows, lines, their counter and
// second rows, payroll fields and jobs), so that a copy is saved with new ones; the
// transaction's own GUID stays. A null record is ignored.
void ClearDistributionGuids(JournalRecord* record);

#endif  // BASICS_JOURNAL_H_
