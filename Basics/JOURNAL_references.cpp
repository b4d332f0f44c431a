// Reference checks and numbering: duplicate invoice, order, cheque and receipt numbers, the
// post order and transaction numbers that identify transactions, the invoice a payment
// applies to, and the small whole-transaction helpers (balance, default date, cleared dates,
// row GUIDs). Reads go through the journal store's own look-up handles, so that a check never
// moves the position of the caller's files; numbers are read fresh from the file each time,
// because posting asks for them inside its batch and again after a duplicate-key collision.
#include <cstdio>
#include <cstring>
#include <string>

#include "CustDcl.h"
#include "General.h"
#include "JOURNAL.h"
#include "LineItemDcl.h"
#include "OpenDat.h"
#include "OpenDat_internal.h"
#include "VendorDcl.h"
#include "journldb.h"
#include "journldb_internal.h"
#include "utility.h"

namespace {

constexpr const char* kUnit = "Basics/JOURNAL";

// Transaction numbers at or above this are the search sentinel, never a real number.
constexpr int32_t kTrxNumberSearch = 0x7FFFFFFF;
constexpr int32_t kTrxNumberLimit = 0x7FFFFFFE;
// The post order number that stands for the system's cost adjustments.
constexpr uint32_t kSysCostPostOrder = 0xFFFFFFFEu;

bool IsCash(int16_t journal) { return journal == CRJ || journal == CDJ; }
bool IsSalesOrPurchase(int16_t journal) { return journal == SJ || journal == PJ; }
bool IsOrder(int16_t journal) { return journal == POJ || journal == SOJ; }

bool SameReference(const char* a, const char* b) { return CompareStr(a, b, 20) == 0; }

template <typename T>
T HdrValue(const JrnlHdrType& hdr, size_t offset) {
  T value;
  std::memcpy(&value, reinterpret_cast<const uint8_t*>(&hdr) + offset, sizeof value);
  return value;
}

// What the reference rules look at in a transaction, from memory or from its header.
struct TrxView {
  JournalKey1Type key1;
  JournalKey2Type key2;
  uint32_t post_order;
  int16_t journal;  // as stored for a header (12 stays 12)
  bool journal12;   // a sale or purchase kept out of the checks
  uint8_t second_flag;
  bool second_card_flag;
  int32_t second_card;
};

TrxView ViewOf(const JournalRecord& r) {
  TrxView v{r.Key1, r.Key2, r.PostOrder, r.Key1.JournalType, false, r.SecondFlag, false, 0};
  if (IsSalesOrPurchase(v.journal)) v.journal12 = r.J.Sales.Area130.Journal12 != 0;
  if (IsCash(v.journal)) {
    v.second_card_flag = r.J.Cash.Area178.SecondCardFlag != 0;
    v.second_card = r.J.Cash.Area178.SecondCard;
  }
  return v;
}

TrxView ViewOf(const JrnlHdrType& h) {
  TrxView v{h.Key1, h.Key2, h.PostOrder, h.Key1.JournalType, false, h.SecondFlag, false, 0};
  if (IsSalesOrPurchase(v.journal)) {
    v.journal12 = HdrValue<uint8_t>(h, 130 + offsetof(JrnlSalesHdr130, Journal12)) != 0;
  }
  if (IsCash(v.journal)) {
    v.second_card_flag = HdrValue<uint16_t>(h, kHdrSecondCardFlagOffset) != 0;
    v.second_card = HdrValue<int32_t>(h, kHdrSecondCardOffset);
  }
  return v;
}

// The card a transaction's reference belongs to and the side it is on: 'R' customers, 'P'
// vendors, 0 for orders. A receipt or payment settles its key-2 card's invoices when its
// second flag is set; otherwise it may name a card of the other side as its second card.
struct Card {
  int32_t card = 0;
  char qualifier = 0;
};

Card CardOf(const TrxView& v) {
  switch (v.journal) {
    case CRJ:
    case CDJ: {
      const char own = v.journal == CRJ ? 'R' : 'P';
      const char other = v.journal == CRJ ? 'P' : 'R';
      if (v.second_flag != 0) return {v.key2.Card, own};
      if (v.second_card_flag) return {v.second_card, other};
      return {};
    }
    case SJ:
      return v.journal12 ? Card{} : Card{v.key2.Card, 'R'};
    case PJ:
      return v.journal12 ? Card{} : Card{v.key2.Card, 'P'};
    case POJ:
    case SOJ:
      return {v.key2.Card, 0};
    default:
      return {};
  }
}

// A receipt or payment and the shadow posting keeps of it in sales or purchases.
bool IsOwnShadowPair(const TrxView& a, const TrxView& b) {
  if (a.key1.Period != b.key1.Period || a.key1.TrxNumber != b.key1.TrxNumber) return false;
  auto pair = [&](int16_t x, int16_t y) {
    return (a.journal == x && b.journal == y) || (a.journal == y && b.journal == x);
  };
  auto shadow = [&](uint8_t s) { return a.key1.Shadow == s || b.key1.Shadow == s; };
  return (shadow(1) && (pair(SJ, CRJ) || pair(PJ, CDJ))) ||
         (shadow(2) && (pair(PJ, CRJ) || pair(SJ, CDJ)));
}

// Invoices, and receipts or payments that settle or name a card: the kinds whose references
// may not repeat for one card across journals.
bool CarriesInvoiceNumber(const TrxView& v) {
  return IsSalesOrPurchase(v.journal) ||
         (IsCash(v.journal) && (v.second_flag != 0 || v.second_card_flag));
}

bool IsDuplicateOf(const TrxView& self, const Card& card, const JrnlHdrType& hdr) {
  const TrxView other = ViewOf(hdr);
  const Card other_card = CardOf(other);
  // Orders of different cards are compared too: a sales order number is unique outright.
  if (!IsOrder(other.journal) && other_card.card != card.card) return false;
  if ((other_card.card == card.card || self.journal == SOJ) && other.journal == self.journal &&
      (IsSalesOrPurchase(self.journal) || IsOrder(self.journal))) {
    return true;
  }
  if (other_card.qualifier != card.qualifier || IsOwnShadowPair(self, other)) return false;
  return CarriesInvoiceNumber(other) && CarriesInvoiceNumber(self);
}

// An order renumbered by its post order number may carry that number as its reference.
bool IsOrderOwnNumber(const JournalRecord& record) {
  char own[16];
  std::snprintf(own, sizeof own, "%u", static_cast<unsigned>(record.PostOrder));
  if (std::strcmp(own, record.Reference) != 0) return false;
  BtrvFile* file = JrnlLookupHdrFile();
  JrnlHdrType hdr;
  std::memset(&hdr, 0, sizeof hdr);
  hdr.PostOrder = record.PostOrder;
  return file != nullptr && ReadEqual(file, &hdr, 5) && hdr.Key2.Card == record.Key2.Card;
}

void RefusalText(const TrxView& self, const Card& card, const char* reference, char* text,
                 size_t size) {
  if (self.journal == SOJ) {
    sstrcpy(text, "ERROR!  That sales order number has already been entered.", size);
    return;
  }
  FixedString<21> id;
  const char* what;
  const char* who;
  if (self.journal == POJ) {
    what = "Purchase Order";
    who = "vendor";
  } else if (card.qualifier == 'R') {
    what = "Sales Invoice";
    who = "customer";
  } else {
    what = "Purchase Invoice";
    who = "vendor";
  }
  if (who[0] == 'c') {
    GetCustomerIDFromRecordNumber(card.card, id);
  } else {
    GetVendorIDFromRecordNumber(card.card, id);
  }
  std::snprintf(text, size, "ERROR!  %s %s has already been entered for %s %s", what, reference,
                who, id.s);
}

// The highest post order number through file, answered in *highest (0 for an empty file).
bool HighestPostOrder(BtrvFile* file, uint32_t* highest) {
  *highest = 0;
  if (file == nullptr) return false;
  JrnlHdrType hdr;
  std::memset(&hdr, 0, sizeof hdr);
  if (GetFileHighest(file, kLockBiasNone, sizeof hdr, &hdr, 5)) {
    *highest = hdr.PostOrder;
    return true;
  }
  const uint16_t status = GetErrorCode(file);
  return status == kStatusEndOfFile || status == kStatusKeyNotFound;
}

// The next number of one journal and period: the last key 0 below the sentinel number.
int32_t NextNumberIn(BtrvFile* file, JournalKey1Type key, int16_t journal) {
  JrnlHdrType hdr;
  std::memset(&hdr, 0, sizeof hdr);
  hdr.Key1 = key;
  hdr.Key1.JournalType = journal;
  hdr.Key1.TrxNumber = kTrxNumberSearch;
  if (!GetFileLess(file, kLockBiasNone, sizeof hdr, &hdr, 0)) return 1;
  if (hdr.Key1.JournalType != journal || hdr.Key1.Period != key.Period) return 1;
  if (hdr.Key1.TrxNumber >= kTrxNumberLimit) return 1;
  return hdr.Key1.TrxNumber + 1;
}

// The first header of payment's qualifier and card, in another journal than `journal`, whose
// reference is the given one.
bool FindInvoiceHeader(JrnlDBFilesType files, int16_t journal, const JournalRecord* payment,
                       unsigned short length, const char* reference, JrnlHdrType* found) {
  if (payment == nullptr || reference == nullptr || files.HdrFile == nullptr) return false;
  FixedString<21> wanted;
  Assign(wanted, reference, length);
  Trim(wanted.s);
  if (wanted.IsEmpty()) return false;
  JrnlHdrType hdr;
  std::memset(&hdr, 0, sizeof hdr);
  hdr.Key2.Qualifier = payment->Key2.Qualifier;
  hdr.Key2.Card = payment->Key2.Card;
  for (uint8_t ok = GetFileGE(files.HdrFile, kLockBiasNone, sizeof hdr, &hdr, 1);
       ok && hdr.Key2.Qualifier == payment->Key2.Qualifier && hdr.Key2.Card == payment->Key2.Card;
       ok = GetFileNext(files.HdrFile, kLockBiasNone, sizeof hdr, &hdr, 1)) {
    if (hdr.Key1.JournalType != journal && SameReference(hdr.Reference, wanted)) {
      *found = hdr;
      return true;
    }
  }
  return false;
}

bool ItemIs(int32_t item_number, const FixedString<21>& item) {
  FixedString<21> id;
  return item_number != 0 && GetLineItemIDFromRecordNumber(item_number, id) &&
         std::strcmp(id, item) == 0;
}

bool UsesItem(const JournalRecord& r, const FixedString<21>& item) {
  const int16_t journal = r.Key1.JournalType;
  const JrnlDistLine* lines = JournalLines(&r);
  if (lines == nullptr) return false;
  const int count =
      r.LineCount < JournalLineCapacity(journal) ? r.LineCount : JournalLineCapacity(journal);
  if (journal == INAJ || journal == ASBYJ) {
    if (ItemIs(r.Key2.Card, item)) return true;
  } else if (!IsCash(journal) && !IsSalesOrPurchase(journal)) {
    return false;
  }
  for (int i = 0; i < count; ++i) {
    const JrnlDistLine& l = lines[i];
    // Lines that apply a payment to an invoice carry no item of their own.
    if ((IsCash(journal) || IsSalesOrPurchase(journal)) && l.Applied) continue;
    if (ItemIs(l.Item, item)) return true;
  }
  return false;
}

bool DateSet(const DatesType& d) { return d.day != 0 || d.month != 0 || d.year != 0; }

// Calls visit on every cleared date the record keeps: the header's, each line's and, on item
// lines, both counter slots'; payroll fields and job entries.
template <typename Visit>
void ForEachDateCleared(JournalRecord* r, Visit visit) {
  visit(r->DateCleared);
  const int16_t journal = r->Key1.JournalType;
  if (journal == PRJ) {
    JrnlPayrollMember& pr = r->J.Payroll;
    const int fields = r->LineCount < kMaxPayrollFields ? r->LineCount : kMaxPayrollFields;
    for (int i = 0; i < fields; ++i) visit(pr.Fields[i].DateCleared);
    const int jobs = pr.JobCount < kMaxPayrollJobs ? pr.JobCount : kMaxPayrollJobs;
    for (int j = 0; j < jobs; ++j) visit(pr.Jobs[j].DateCleared);
    return;
  }
  JrnlDistLine* lines = JournalLines(r);
  if (lines == nullptr) return;
  const int capacity = JournalLineCapacity(journal);
  const int count = r->LineCount < capacity ? r->LineCount : capacity;
  for (int i = 0; i < count; ++i) {
    JrnlDistLine& l = lines[i];
    visit(l.DateCleared);
    if ((IsCash(journal) || IsSalesOrPurchase(journal)) && l.Item != 0 && !l.Applied) {
      visit(l.Counter[0].DateCleared);
      visit(l.Counter[1].DateCleared);
    }
  }
}

}  // namespace

int CheckForDuplicateInvoice(JournalRecord* record, int insert_mode, char* out, int out_size) {
  if (record == nullptr || record->Reference.IsEmpty()) return 0;
  const TrxView self = ViewOf(*record);
  const Card card = CardOf(self);
  if (card.card == 0) return 0;
  BtrvFile* file = JrnlLookupHdrFile();
  if (file == nullptr) return 0;
  JrnlHdrType hdr;
  std::memset(&hdr, 0, sizeof hdr);
  std::memcpy(hdr.Reference, record->Reference.s, sizeof hdr.Reference);
  bool duplicate = false;
  for (uint8_t ok = GetFileEqual(file, kLockBiasNone, sizeof hdr, &hdr, 2);
       ok && SameReference(hdr.Reference, record->Reference);
       ok = GetFileNext(file, kLockBiasNone, sizeof hdr, &hdr, 2)) {
    if (insert_mode == 0 && hdr.PostOrder == record->PostOrder) continue;
    if (IsDuplicateOf(self, card, hdr)) {
      duplicate = true;
      break;
    }
  }
  if (!duplicate) return 0;
  if (insert_mode == 0 && IsOrder(self.journal) && IsOrderOwnNumber(*record)) return 0;
  char text[200];
  RefusalText(self, card, record->Reference, text, sizeof text);
  if (out != nullptr) {
    if (out_size > 0) sstrcpy(out, text, static_cast<size_t>(out_size));
  } else {
    MessageBoxText(MB_ICONEXCLAMATION, text);
  }
  return 1;
}

unsigned char DuplicateReference(int16_t journal, unsigned char flag, int32_t card,
                                 JournalRecord* record, const char* reference,
                                 int32_t second_card) {
  if (reference == nullptr || reference[0] == '\0') return 0;
  int16_t partner;
  switch (journal) {
    case CRJ:
      partner = SJ;
      break;
    case CDJ:
      partner = PJ;
      break;
    case SJ:
      partner = CRJ;
      break;
    case PJ:
      partner = CDJ;
      break;
    case PRJ:
    case POJ:
    case SOJ:
      partner = journal;
      break;
    default:
      return 0;
  }
  if (IsSalesOrPurchase(journal) && record != nullptr && record->J.Sales.Area130.Journal12) {
    return 0;
  }
  JrnlRowHdrClass nav(static_cast<int16_t>(kOpenModeReadOnly));
  if (!nav.IsOKtoUse()) return 0;
  sstrcpy(nav.Hdr.Reference, reference, sizeof nav.Hdr.Reference);
  for (int ok = nav.GetHdrEqual(2, kLockBiasNone);
       ok && SameReference(nav.Hdr.Reference, reference); ok = nav.GetHdrNext(2, kLockBiasNone)) {
    const TrxView other = ViewOf(nav.Hdr);
    const JrnlHdrType& hdr = nav.Hdr;
    if (record != nullptr) {
      JournalKey1Type own = record->Key1;
      // An order keeps its number when it moves to another period.
      if (IsOrder(journal)) own.Period = hdr.Key1.Period;
      if (std::memcmp(&own, &hdr.Key1, sizeof own) == 0) continue;
    }
    // A sale (or a receipt settling invoices) meets a payment that names its customer, a
    // purchase (or a payment settling invoices) a receipt that names its vendor.
    const bool customer_side = journal == SJ || (journal == CRJ && flag);
    const bool vendor_side = journal == PJ || (journal == CDJ && flag);
    if (other.second_card_flag && other.second_card == card &&
        ((customer_side && other.journal == CDJ) || (vendor_side && other.journal == CRJ))) {
      return 1;
    }
    if (other.journal != journal && other.journal != partner) continue;
    if (hdr.Key1.Shadow == 1) continue;
    if (other.journal != journal && hdr.SecondFlag == 0 && !flag) continue;
    switch (journal) {
      case CRJ:
      case SJ:
      case PJ:
      case POJ:
        if (hdr.Key2.Card == card) return 1;
        break;
      case CDJ:
      case PRJ:
        // A cheque number is unique per cash account.
        if (hdr.HdrAccount == card) return 1;
        if (flag && hdr.SecondFlag != 0 && hdr.Key2.Card == second_card) return 1;
        break;
      case SOJ:
        return 1;
      default:
        break;
    }
  }
  return 0;
}

int DupRefForPayCustOrRecVend(BtrvFile* hdr_file, int16_t journal, int exclude_self,
                              JournalKey1Type* own_key, const char* card_id,
                              const char* reference) {
  if (hdr_file == nullptr || !IsCash(journal) || card_id == nullptr || reference == nullptr) {
    return 0;
  }
  // A receipt from a vendor meets the vendor's purchases and payments; a payment to a
  // customer the customer's sales and receipts.
  const int16_t first_related = journal == CRJ ? PJ : SJ;
  const int16_t second_related = journal == CRJ ? CDJ : CRJ;
  JrnlHdrType hdr;
  std::memset(&hdr, 0, sizeof hdr);
  sstrcpy(hdr.Reference, reference, sizeof hdr.Reference);
  for (uint8_t ok = GetFileEqual(hdr_file, kLockBiasNone, sizeof hdr, &hdr, 2);
       ok && SameReference(hdr.Reference, reference);
       ok = GetFileNext(hdr_file, kLockBiasNone, sizeof hdr, &hdr, 2)) {
    const int16_t found = hdr.Key1.JournalType;
    if (found != journal && found != first_related && found != second_related) continue;
    if (found == second_related && hdr.SecondFlag == 0) continue;
    if (exclude_self && own_key != nullptr) {
      if (std::memcmp(&hdr.Key1, own_key, sizeof hdr.Key1) == 0) continue;
      if (found == first_related && hdr.Key1.Shadow == 2 &&
          hdr.Key1.PartnerFlag == own_key->PartnerFlag &&
          hdr.Key1.TrxNumber == own_key->TrxNumber && hdr.Key1.Period == own_key->Period) {
        continue;
      }
    }
    const int32_t named = HdrValue<int32_t>(hdr, kHdrSecondCardOffset);
    const bool as_second_card =
        found == journal && HdrValue<uint16_t>(hdr, kHdrSecondCardFlagOffset) != 0;
    // Receipts name vendors as their second card, payments customers.
    const bool vendor = as_second_card == (journal == CRJ);
    FixedString<21> id;
    const bool known =
        vendor ? GetVendorIDFromRecordNumber(named, id) : GetCustomerIDFromRecordNumber(named, id);
    if (known && CompareStr(id, card_id, 20) == 0) return 1;
  }
  return 0;
}

int MakeShadowKey(JrnlHdrType& hdr, JournalKey1Type* out) {
  if (hdr.Key1.Shadow != 0) return 0;
  const int16_t journal = hdr.Key1.JournalType;
  if (!IsCash(journal) || out == nullptr) return 1;
  const bool second_card = HdrValue<uint16_t>(hdr, kHdrSecondCardFlagOffset) != 0;
  *out = hdr.Key1;
  // A receipt from a vendor is shadowed in purchases, a plain receipt in sales; payments
  // the other way round.
  if (journal == CRJ) {
    out->JournalType = second_card ? PJ : SJ;
  } else {
    out->JournalType = second_card ? SJ : PJ;
  }
  out->Shadow = second_card ? 2 : 1;
  return 1;
}

int CheckForDuplicateReceipt(int32_t cash_account, FixedString<21> receipt, JournalRecord* record,
                             bool count_itself) {
  if (receipt.IsEmpty()) return 0;
  JrnlRowHdrClass nav(static_cast<int16_t>(kOpenModeReadOnly));
  if (!nav.IsOKtoUse()) return 0;
  char* number = reinterpret_cast<char*>(&nav.Hdr) + kHdrReceiptNumberOffset;
  sstrcpy(number, receipt, kHdrReceiptNumberLength);
  for (int ok = nav.GetHdrEqual(14, kLockBiasNone); ok && CompareStr(number, receipt, 20) == 0;
       ok = nav.GetHdrNext(14, kLockBiasNone)) {
    // The walk ends at the transaction itself: numbers entered after it are not its concern.
    if (!count_itself && record != nullptr && record->PostOrder != 0 &&
        nav.Hdr.PostOrder == record->PostOrder) {
      return 0;
    }
    if (nav.Hdr.HdrAccount == cash_account) return 1;
  }
  return 0;
}

unsigned char FindInvoice(JrnlDBFilesType files, int16_t journal, JournalRecord* payment,
                          unsigned short length, char* reference, JournalRecord* invoice) {
  JrnlHdrType hdr;
  if (invoice == nullptr || !FindInvoiceHeader(files, journal, payment, length, reference, &hdr)) {
    return 0;
  }
  // The post order is the key of the read; a failed read leaves the record as it was.
  const uint32_t saved = invoice->PostOrder;
  invoice->PostOrder = hdr.PostOrder;
  if (GetFileEqual(files, kLockBiasNone, invoice, 5)) return 1;
  invoice->PostOrder = saved;
  return 0;
}

unsigned char FindInvoiceHdr(JrnlDBFilesType files, JournalRecord* payment, JournalTypes journal,
                             unsigned short length, char* reference, JrnlHdrType& hdr) {
  JrnlHdrType found;
  if (!FindInvoiceHeader(files, journal, payment, length, reference, &found)) return 0;
  hdr = found;
  return 1;
}

ULONG32 NextPostOrderNumber() {
  uint32_t highest = 0;
  if (!HighestPostOrder(JrnlLookupHdrFile(), &highest)) return 0;
  return highest + 1;
}

ULONG32 GetLastPostOrderNumber() {
  JrnlDBFilesType files = {};
  if (!OpenJournalFile(&files, kOpenModeReadOnly)) return 0;
  uint32_t highest = 0;
  HighestPostOrder(files.HdrFile, &highest);
  CloseJrnlFile(&files);
  return highest;
}

LONG32 NextTrxNumber(JournalKey1Type key) {
  BtrvFile* file = JrnlLookupHdrFile();
  if (file == nullptr) return 1;
  if (key.JournalType != SJ && key.JournalType != SJ2) {
    return NextNumberIn(file, key, key.JournalType);
  }
  // Invoices kept in the second sales journal are numbered with the first.
  const int32_t first = NextNumberIn(file, key, SJ);
  const int32_t second = NextNumberIn(file, key, SJ2);
  return first > second ? first : second;
}

int GetReferenceFromPostOrder(FixedString<21>& reference, ULONG32 post_order) {
  reference.Clear();
  if (post_order == kSysCostPostOrder) {
    reference = "SysCost";
    return 1;
  }
  BtrvFile* file = nullptr;
  if (!OpenJrnlHdrFile(&file, kOpenModeReadOnly)) return 0;
  JrnlHdrType hdr;
  std::memset(&hdr, 0, sizeof hdr);
  hdr.PostOrder = post_order;
  const bool found = ReadEqual(file, &hdr, 5);
  CloseIfOpen(&file, kUnit, __LINE__);
  if (!found) return 0;
  Assign(reference, hdr.Reference);
  return 1;
}

unsigned char AnySavedTxnsOnItem(FixedString<21> item) {
  if (item.IsEmpty()) return 0;
  JrnlDBFilesType files = {};
  if (!OpenJournalFile(&files, kOpenModeReadOnly)) return 0;
  JournalRecord* record = nullptr;
  unsigned char used = 0;
  if (AllocateJournalRecord(&record)) {
    // Key 4 puts saved transactions first; only the first of them is looked at.
    if (GetFileLowest(files, kLockBiasNone, record, 4) && record->LedgerFlag == 0) {
      used = UsesItem(*record, item) ? 1 : 0;
      if (!used) GetFileNext(files, kLockBiasNone, record, 4);
    }
    DeAllocateJournalRecord(&record);
  }
  CloseJrnlFile(&files);
  return used;
}

bool fIsJrnlBalanced(JournalRecord* record) {
  if (record == nullptr) return false;
  double total = record->Amount;
  const int16_t journal = record->Key1.JournalType;
  if (journal == PRJ) {
    const int fields =
        record->LineCount < kMaxPayrollFields ? record->LineCount : kMaxPayrollFields;
    for (int i = 0; i < fields; ++i) total += record->J.Payroll.Fields[i].Amount;
    return IsZero(total);
  }
  const JrnlDistLine* lines = JournalLines(record);
  if (lines != nullptr) {
    const int capacity = JournalLineCapacity(journal);
    const int count = record->LineCount < capacity ? record->LineCount : capacity;
    for (int i = 0; i < count; ++i) {
      total += lines[i].Amount;
      if (IsCash(journal) && lines[i].Applied) total += lines[i].SecondAmount;
    }
  }
  return IsZero(total);
}

DatesType GetDefJrnlDate() {
  if (DateInRange(Current.CurrentPeriodRange, TodaysDate) == 0) return TodaysDate;
  return Current.CurrentPeriodRange.from;
}

void SetAllDateCleared(JournalRecord* record, DatesType date) {
  if (record == nullptr) return;
  ForEachDateCleared(record, [&](DatesType& d) { d = date; });
}

int AreAnyDateClearedSet(JournalRecord* record) {
  if (record == nullptr) return 0;
  bool any = false;
  ForEachDateCleared(record, [&](DatesType& d) { any = any || DateSet(d); });
  return any ? 1 : 0;
}

void ClearDistributionGuids(JournalRecord* record) {
  if (record == nullptr) return;
  record->ExtraGuid1 = {};
  record->ExtraGuid2 = {};
  record->MainRowGuid = {};
  if (record->Key1.JournalType == PRJ) {
    for (JrnlPayrollField& f : record->J.Payroll.Fields) f.Guid = f.SecondGuid = {};
    for (JrnlPayrollJob& j : record->J.Payroll.Jobs) j.Guid = {};
    return;
  }
  JrnlDistLine* lines = JournalLines(record);
  if (lines == nullptr) return;
  for (int i = 0; i < JournalLineCapacity(record->Key1.JournalType); ++i) {
    JrnlDistLine& l = lines[i];
    l.Guid = l.SecondGuid = {};
    l.Counter[0].Guid = l.Counter[1].Guid = {};
  }
}
