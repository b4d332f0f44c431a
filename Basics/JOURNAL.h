// Journal model: journal types, the two transaction keys, the open header/row file pair
// that every journal store and posting function takes, and the on-disk layouts of the
// journal header file (JrnlHdrType) and row file (JrnlRowType). The in-memory transaction
// (JournalRecord) and the key and name functions join this unit with the journal engine.
// Layouts only: no state, safe from any thread.
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
//       65     1  (carried unchanged)
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
//      344     2  16-bit value
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

#endif  // BASICS_JOURNAL_H_
