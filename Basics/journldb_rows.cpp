// The journal store's conversions: a record's header fields to and from JrnlHdrType, and
// its lines to and from rows. Writer and loader are inverses: a record saved and loaded
// back is the same record, field for field.
#include <cstdio>
#include <cstring>

#include "EmployeeDcl.h"
#include "General.h"
#include "journldb.h"
#include "journldb_internal.h"
#include "utility.h"

namespace {

// Every member keeps its three header areas at the start of the union, in header order.
static_assert(offsetof(JrnlCashMember, Area178) == kHdrArea130Size &&
                  offsetof(JrnlCashMember, Area2910) == kHdrArea130Size + kHdrArea178Size &&
                  offsetof(JrnlSalesMember, Area2910) == kHdrArea130Size + kHdrArea178Size &&
                  offsetof(JrnlOrderMember, Area2910) == kHdrArea130Size + kHdrArea178Size &&
                  offsetof(JrnlPayrollMember, Area2910) == kHdrArea130Size + kHdrArea178Size &&
                  offsetof(JrnlInvMember, Area2910) == kHdrArea130Size + kHdrArea178Size &&
                  offsetof(JrnlGenMember, Area2910) == kHdrArea130Size + kHdrArea178Size,
              "header areas open every member");

uint8_t* Areas(JournalRecord* record) { return reinterpret_cast<uint8_t*>(&record->J); }

bool IsSalesOrPurchase(int16_t journal) { return journal == SJ || journal == PJ; }
bool IsOrder(int16_t journal) { return journal == POJ || journal == SOJ; }
bool IsCash(int16_t journal) { return journal == CRJ || journal == CDJ; }

// The journal as stored: sales with the journal-12 flag are journal 12.
int16_t StoredJournal(const JournalRecord* record) {
  if (record->Key1.JournalType == SJ && record->J.Sales.Area130.Journal12) return SJ2;
  return record->Key1.JournalType;
}

uint8_t RowLedgerFlag(const JournalRecord* record, int16_t stored) {
  switch (stored) {
    case SJ:
    case PJ:
      // Cash-basis books count sales and purchases through their payments; shadows never
      // count.
      return MyCompany.CashBasis != 0 || record->Key1.Shadow != 0 ? 0 : 1;
    case POJ:
    case SOJ:
    case SJ2:
      return 0;
    default:
      return 1;
  }
}

void EnsureGuid(GUID& guid) {
  if (IsNullGUID(guid)) AssignGUID(guid);
}

bool DatesSet(const DatesType& d) { return d.day != 0 || d.month != 0 || d.year != 0; }

bool SlotUsed(const JrnlCounterSlot& slot) {
  return slot.Account != 0 || slot.Amount != 0.0 || DatesSet(slot.DateCleared);
}

// Writes the rows of one transaction: each row starts from the template, which carries
// the fields every row takes from the header.
class RowWriter {
 public:
  RowWriter(BtrvFile* file, const JournalRecord* record) : file_(file) {
    std::memset(&template_, 0, sizeof template_);
    const int16_t stored = StoredJournal(record);
    template_.PostOrder = record->PostOrder;
    template_.JournalType = stored;
    template_.Date = record->Key2.Date;
    template_.LedgerFlag = RowLedgerFlag(record, stored);
    const int16_t journal = record->Key1.JournalType;
    const int32_t card = record->Key2.Card;
    const JrnlCashHdr178& cash = record->J.Cash.Area178;
    if (journal == CRJ || journal == SJ || journal == SOJ) {
      template_.Customer = card;
      if (journal == CRJ && cash.SecondCardFlag != 0) template_.Vendor = cash.SecondCard;
    } else if (journal == CDJ || journal == PJ || journal == POJ) {
      template_.Vendor = card;
      if (journal == CDJ && cash.SecondCardFlag != 0) template_.Customer = cash.SecondCard;
    } else if (journal == PRJ) {
      template_.Employee = card;
    }
  }

  JrnlRowType& Start(uint16_t line, int32_t kind) {
    row_ = template_;
    row_.LineNumber = line;
    row_.Kind = kind;
    return row_;
  }

  // Inserts the row started last with guid (a null one replaced first); a duplicate key
  // is tried once more under a new GUID. guid receives the GUID stored.
  bool Write(GUID& guid) {
    EnsureGuid(guid);
    row_.Guid = guid;
    if (::InsertRecord(file_, sizeof row_, &row_)) return true;
    if (GetErrorCode(file_) != kStatusDuplicateKey) return false;
    AssignGUID(guid);
    row_.Guid = guid;
    return ::InsertRecord(file_, sizeof row_, &row_) != 0;
  }

 private:
  BtrvFile* file_;
  JrnlRowType template_;
  JrnlRowType row_;
};

bool WriteMainRow(RowWriter& w, JournalRecord* record) {
  const int16_t journal = record->Key1.JournalType;
  // Opening balances of the other side have no cash row of their own.
  if (record->BegBalFlag != 0 && ((journal == CRJ && record->Key2.Qualifier != 'R') ||
                                  (journal == CDJ && record->Key2.Qualifier != 'P'))) {
    return true;
  }
  JrnlRowType& row = w.Start(0, kRowDistribution);
  row.Account = record->HdrAccount;
  row.Amount = record->Amount;
  sstrcpy(row.Description, record->Description, sizeof row.Description);
  row.DateCleared = record->DateCleared;
  if (IsSalesOrPurchase(journal)) sstrcpy(row.InvoiceReference, record->Reference, 21);
  if (journal == INAJ || journal == ASBYJ) {
    row.Item = record->Key2.Card;
    row.Quantity = record->J.Inv.Quantity;
    sstrcpy(row.Description, record->Description, 31);
    row.ItemAccountFlag = 1;
  }
  if (IsOrder(journal)) row.OrderQuantity1 = record->J.Order.OrderValue;
  if (record->BegBalFlag != 0) row.LedgerFlag = 0;
  return w.Write(record->MainRowGuid);
}

bool WriteItemAccountRows(RowWriter& w, JournalRecord* record) {
  const int16_t journal = record->Key1.JournalType;
  if (journal != INAJ && journal != ASBYJ) return true;
  int32_t inventory = 0, first = 0, second = 0;
  if (!JrnlItemAccounts(record->Key2.Card, &inventory, &first, &second)) return true;
  if (journal == INAJ && record->HdrAccount == inventory) return true;
  JrnlRowType& row9 = w.Start(0, kRowItemAccount1);
  row9.Account = first;
  row9.ItemAccountFlag = 0;
  if (!w.Write(record->ExtraGuid1)) return false;
  JrnlRowType& row10 = w.Start(0, kRowItemAccount2);
  row10.Account = second;
  row10.ItemAccountFlag = 1;
  return w.Write(record->ExtraGuid2);
}

bool WriteDistLine(RowWriter& w, JournalRecord* record, JrnlDistLine& l, uint16_t line) {
  JrnlRowType& row = w.Start(line, kRowDistribution);
  row.Account = l.Account;
  row.Amount = l.Amount;
  row.Item = l.Item;
  row.Job = l.Job;
  JrnlPhaseID(l.Phase, row.Phase);
  JrnlCostID(l.Cost, row.CostCode);
  row.AppliedLink = l.AppliedLink;
  row.LinkFormatted = l.LinkFormatted;
  row.Byte65 = l.Applied;
  row.Quantity = l.Quantity;
  row.UnitPrice = l.UnitPrice;
  row.OrderQuantity1 = l.OrderQuantity1;
  row.OrderQuantity2 = l.OrderQuantity2;
  std::memcpy(row.Description, l.Description.s, sizeof row.Description);
  row.Flag334 = l.Flag;
  row.OrderFlag = l.OrderFlag;
  std::memcpy(row.InvoiceReference, l.InvoiceRef.s, sizeof row.InvoiceReference);
  row.DateCleared = l.DateCleared;
  if (!w.Write(l.Guid)) return false;
  for (int k = 0; k < 2; ++k) {
    JrnlCounterSlot& slot = l.Counter[k];
    if (!SlotUsed(slot)) continue;
    JrnlRowType& counter = w.Start(line, k == 0 ? kRowCounter1 : kRowCounter2);
    counter.Account = slot.Account;
    counter.Amount = slot.Amount;
    counter.DateCleared = slot.DateCleared;
    if (!w.Write(slot.Guid)) return false;
  }
  if (l.SecondAmount != 0.0) {
    JrnlRowType& second = w.Start(line, kRowToHeaderAccount);
    second.Account = record->HdrAccount;
    second.Amount = l.SecondAmount;
    if (!w.Write(l.SecondGuid)) return false;
  }
  return true;
}

bool WritePayroll(RowWriter& w, JournalRecord* record) {
  JrnlPayrollMember& pr = record->J.Payroll;
  const int fields = record->LineCount < kMaxPayrollFields ? record->LineCount : kMaxPayrollFields;
  for (int i = 0; i < fields; ++i) {
    JrnlPayrollField& f = pr.Fields[i];
    const uint16_t line = static_cast<uint16_t>(i + 1);
    JrnlRowType& row = w.Start(line, kRowPayroll);
    row.Account = f.Account;
    row.Value344 = f.FieldIndex;
    std::memcpy(row.ShortCode, f.Code.s, sizeof row.ShortCode);
    row.Amount = f.Amount;
    row.DateCleared = f.DateCleared;
    if (!w.Write(f.Guid)) return false;
    if (f.SecondAmount != 0.0) {
      JrnlRowType& second = w.Start(line, kRowCounter2);
      second.Account = f.Account;
      second.Amount = f.SecondAmount;
      if (!w.Write(f.SecondGuid)) return false;
    }
  }
  const int jobs = pr.JobCount < kMaxPayrollJobs ? pr.JobCount : kMaxPayrollJobs;
  for (int j = 0; j < jobs; ++j) {
    JrnlPayrollJob& job = pr.Jobs[j];
    JrnlRowType& row = w.Start(static_cast<uint16_t>(job.Field + 1), kRowPayroll);
    row.Job = job.Job;
    JrnlPhaseID(job.Phase, row.Phase);
    JrnlCostID(job.Cost, row.CostCode);
    row.Value344 = static_cast<int16_t>(j);
    row.Amount = job.Amount;
    row.DateCleared = job.DateCleared;
    if (!w.Write(job.Guid)) return false;
  }
  return true;
}

void LoadMainRow(const JrnlRowType& row, JournalRecord* record) {
  const int16_t journal = record->Key1.JournalType;
  if (row.Kind == kRowItemAccount1) {
    record->ExtraGuid1 = row.Guid;
    return;
  }
  if (row.Kind == kRowItemAccount2) {
    record->ExtraGuid2 = row.Guid;
    return;
  }
  if (row.Kind != kRowDistribution) return;
  record->Amount = row.Amount;
  record->DateCleared = row.DateCleared;
  record->MainRowGuid = row.Guid;
  if (journal == INAJ || journal == ASBYJ) {
    record->J.Inv.Quantity = row.Quantity;
    Assign(record->Description, row.Description, 30);
    if (journal == ASBYJ) record->Key2.Card = row.Item;
  }
  if (IsOrder(journal)) record->J.Order.OrderValue = row.OrderQuantity1;
}

void LoadDistRow(const JrnlRowType& row, JournalRecord* record) {
  const int16_t journal = record->Key1.JournalType;
  JrnlDistLine* lines = JournalLines(record);
  const int capacity = JournalLineCapacity(journal);
  if (row.Kind == kRowDistribution || row.Kind == kRowPayroll) {
    if (record->LineCount >= capacity) return;
    JrnlDistLine& l = lines[record->LineCount++];
    l.Account = row.Account;
    l.Amount = row.Amount;
    l.Item = row.Item;
    l.Job = row.Job;
    l.Phase = JrnlPhaseNumber(row.Phase);
    l.Cost = JrnlCostNumber(row.CostCode);
    l.AppliedLink = row.AppliedLink;
    l.LinkFormatted = row.LinkFormatted;
    l.Applied = row.Byte65;
    l.Quantity = row.Quantity;
    l.UnitPrice = row.UnitPrice;
    l.OrderQuantity1 = row.OrderQuantity1;
    l.OrderQuantity2 = row.OrderQuantity2;
    Assign(l.Description, row.Description);
    l.Flag = row.Flag334;
    l.OrderFlag = row.OrderFlag;
    if (row.LinkFormatted != 0) {
      char text[16];
      std::snprintf(text, sizeof text, "%u", static_cast<unsigned>(row.AppliedLink));
      Assign(l.InvoiceRef, text);
    } else {
      Assign(l.InvoiceRef, row.InvoiceReference);
    }
    l.DateCleared = row.DateCleared;
    l.Guid = row.Guid;
    if (IsCash(journal) && l.Applied) record->J.Cash.AppliedTotal += row.Amount;
    return;
  }
  const int index = row.LineNumber - 1;
  if (index >= capacity) return;
  JrnlDistLine& l = lines[index];
  if (row.Kind == kRowCounter1 || row.Kind == kRowCounter2) {
    JrnlCounterSlot& slot = l.Counter[row.Kind == kRowCounter1 ? 0 : 1];
    slot.Account = row.Account;
    slot.Amount = row.Amount;
    slot.DateCleared = row.DateCleared;
    slot.Guid = row.Guid;
  } else if (row.Kind == kRowToHeaderAccount) {
    l.SecondAmount += row.Amount;
    l.SecondGuid = row.Guid;
    record->HdrAccount = row.Account;
  }
}

void LoadPayrollRow(const JrnlRowType& row, JournalRecord* record) {
  JrnlPayrollMember& pr = record->J.Payroll;
  const int index = row.LineNumber - 1;
  if (row.Kind == kRowPayroll && row.Job != 0) {
    const int entry = row.Value344;
    if (entry < 0 || entry >= kMaxPayrollJobs) return;
    if (pr.JobCount < entry + 1) pr.JobCount = static_cast<int16_t>(entry + 1);
    JrnlPayrollJob& job = pr.Jobs[entry];
    job.Job = row.Job;
    job.Phase = JrnlPhaseNumber(row.Phase);
    job.Cost = JrnlCostNumber(row.CostCode);
    job.Field = static_cast<int16_t>(index);
    job.Amount += row.Amount;
    job.DateCleared = row.DateCleared;
    job.Guid = row.Guid;
    return;
  }
  if (index >= kMaxPayrollFields) return;
  JrnlPayrollField& f = pr.Fields[index];
  if (row.Kind == kRowPayroll) {
    f.Account = row.Account;
    f.FieldIndex = row.Value344 < 0 ? 0 : row.Value344;
    Assign(f.Code, row.ShortCode);
    f.Amount += row.Amount;
    f.DateCleared = row.DateCleared;
    f.Guid = row.Guid;
    if (record->LineCount < index + 1) record->LineCount = static_cast<int16_t>(index + 1);
  } else if (row.Kind == kRowCounter2) {
    f.SecondAmount += row.Amount;
    f.SecondGuid = row.Guid;
  }
}

}  // namespace

void JrnlRecordToHdr(JournalRecord* record, JrnlHdrType* hdr) {
  std::memset(hdr, 0, sizeof *hdr);
  EnsureGuid(record->Guid);
  hdr->Key1 = record->Key1;
  hdr->Key1.JournalType = StoredJournal(record);
  hdr->Key2 = record->Key2;
  hdr->Guid = record->Guid;
  hdr->PostOrder = record->PostOrder;
  std::memcpy(hdr->Description, record->Description.s, sizeof hdr->Description);
  std::memcpy(hdr->Reference, record->Reference.s, sizeof hdr->Reference);
  hdr->LedgerFlag = record->LedgerFlag;
  hdr->SecondFlag = record->SecondFlag;
  hdr->ThirdFlag = record->ThirdFlag;
  hdr->BegBalFlag = record->BegBalFlag;
  std::memcpy(hdr->ShortCode, record->ShortCode.s, sizeof hdr->ShortCode);
  hdr->Key8RecordNumber = record->Key8RecordNumber;
  hdr->Key8Value = record->Key8Value;
  hdr->EmployeeRecordNumber =
      record->EmployeeID.IsEmpty() ? 0 : GetEmployeeRecNo(record->EmployeeID);
  hdr->Flag126 = record->Flag126;
  hdr->Flag127 = record->Flag127;
  if (record->Key1.JournalType == GENJ) hdr->GenJrnlFlag = record->GenJrnlFlag;
  hdr->HdrAccount = record->HdrAccount;
  hdr->Value2906 = record->Value2906;
  hdr->Value5945 = record->Value5945;
  hdr->Flag5949 = record->Flag5949;
  const uint8_t* areas = Areas(record);
  std::memcpy(hdr->Specific130, areas, kHdrArea130Size);
  std::memcpy(hdr->Specific178, areas + kHdrArea130Size, kHdrArea178Size);
  std::memcpy(hdr->Specific2910, areas + kHdrArea130Size + kHdrArea178Size, kHdrArea2910Size);
}

void JrnlHdrToRecord(const JrnlHdrType* hdr, JournalRecord* record) {
  std::memset(record, 0, sizeof *record);
  record->Key1 = hdr->Key1;
  record->Key2 = hdr->Key2;
  record->HdrAccount = hdr->HdrAccount;
  record->PostOrder = hdr->PostOrder;
  Assign(record->Description, hdr->Description);
  Assign(record->Reference, hdr->Reference);
  record->LedgerFlag = hdr->LedgerFlag;
  record->SecondFlag = hdr->SecondFlag;
  record->ThirdFlag = hdr->ThirdFlag;
  record->BegBalFlag = hdr->BegBalFlag;
  Assign(record->ShortCode, hdr->ShortCode);
  record->Key8RecordNumber = hdr->Key8RecordNumber;
  record->Key8Value = hdr->Key8Value;
  if (hdr->EmployeeRecordNumber != 0) GetEmployeeID(hdr->EmployeeRecordNumber, &record->EmployeeID);
  record->Flag126 = hdr->Flag126;
  record->Flag127 = hdr->Flag127;
  record->Value2906 = hdr->Value2906;
  record->Guid = hdr->Guid;
  record->Value5945 = hdr->Value5945;
  record->Flag5949 = hdr->Flag5949;
  uint8_t* areas = Areas(record);
  std::memcpy(areas, hdr->Specific130, kHdrArea130Size);
  std::memcpy(areas + kHdrArea130Size, hdr->Specific178, kHdrArea178Size);
  std::memcpy(areas + kHdrArea130Size + kHdrArea178Size, hdr->Specific2910, kHdrArea2910Size);
  if (hdr->Key1.JournalType == SJ2) {
    record->Key1.JournalType = SJ;
    record->J.Sales.Area130.Journal12 = 1;
  }
  if (record->Key1.JournalType == GENJ) record->GenJrnlFlag = hdr->GenJrnlFlag;
}

void JrnlLoadRow(const JrnlRowType& row, JournalRecord* record) {
  if (row.Kind == kRowSkipped || row.Kind == kRowInventoryCost1 || row.Kind == kRowInventoryCost2) {
    return;
  }
  if (row.LineNumber == 0) {
    LoadMainRow(row, record);
  } else if (record->Key1.JournalType == PRJ) {
    LoadPayrollRow(row, record);
  } else if (JournalLines(record) != nullptr) {
    LoadDistRow(row, record);
  }
}

bool JrnlSaveRows(BtrvFile* row_file, JournalRecord* record) {
  RowWriter w(row_file, record);
  const int16_t journal = record->Key1.JournalType;
  if (journal != GENJ && !WriteMainRow(w, record)) return false;
  if (!WriteItemAccountRows(w, record)) return false;
  if (journal == PRJ) return WritePayroll(w, record);
  JrnlDistLine* lines = JournalLines(record);
  if (lines == nullptr) return true;
  const int capacity = JournalLineCapacity(journal);
  const int count = record->LineCount < capacity ? record->LineCount : capacity;
  for (int i = 0; i < count; ++i) {
    if (!WriteDistLine(w, record, lines[i], static_cast<uint16_t>(i + 1))) return false;
  }
  return true;
}
