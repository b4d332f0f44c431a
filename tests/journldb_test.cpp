// The journal store: random transactions of every journal stored and read back unchanged,
// updates that grow and shrink the lines, writes that leave a transaction whole or as it
// was under injected faults, ledger flags, GUID collisions, journal 12, the invoice finder
// and the row-posted test.
#include <cstdio>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "COST.h"
#include "EmployeeDcl.h"
#include "General.h"
#include "JOURNAL.h"
#include "LineItemDcl.h"
#include "OpenDat.h"
#include "PHASE.h"
#include "company_test.h"
#include "journldb.h"
#include "record_manager.h"
#include "record_manager_internal.h"
#include "rm_fault_backend.h"
#include "utility.h"

namespace {

struct RecordDeleter {
  void operator()(JournalRecord* r) const { DeAllocateJournalRecord(&r); }
};
using Record = std::unique_ptr<JournalRecord, RecordDeleter>;
Record NewRecord() {
  JournalRecord* r = nullptr;
  AllocateJournalRecord(&r);
  return Record(r);
}

// The first field in which two records differ, by name; empty when they are the same.
std::string FirstDifference(const JournalRecord& a, const JournalRecord& b) {
#define CMP(field) \
  if (std::memcmp(&a.field, &b.field, sizeof a.field) != 0) return #field;
  CMP(Key1)
  CMP(Key2)
  CMP(HdrAccount) CMP(PostOrder) CMP(Description) CMP(Amount) CMP(Reference) CMP(LedgerFlag)
      CMP(SecondFlag) CMP(ThirdFlag) CMP(BegBalFlag) CMP(DateCleared) CMP(ShortCode)
          CMP(Key8RecordNumber) CMP(Key8Value) CMP(EmployeeID) CMP(Flag126) CMP(Flag127)
              CMP(Value2906) CMP(LineCount) CMP(Guid) CMP(Value5945) CMP(Flag5949) CMP(MainRowGuid)
                  CMP(GenJrnlFlag) CMP(J.Gen.Area130) CMP(J.Gen.Area178) CMP(J.Gen.Area2910)
                      CMP(ExtraGuid1) CMP(ExtraGuid2) if (a.Key1.JournalType == PRJ) {
    CMP(J.Payroll.JobCount)
    for (int i = 0; i < kMaxPayrollFields; ++i) {
      CMP(J.Payroll.Fields[i].Account)
      CMP(J.Payroll.Fields[i].FieldIndex)
      CMP(J.Payroll.Fields[i].Code) CMP(J.Payroll.Fields[i].Amount)
          CMP(J.Payroll.Fields[i].SecondAmount) CMP(J.Payroll.Fields[i].DateCleared)
              CMP(J.Payroll.Fields[i].Guid) CMP(J.Payroll.Fields[i].SecondGuid)
    }
    for (int i = 0; i < kMaxPayrollJobs; ++i) {
      CMP(J.Payroll.Jobs[i].Job)
      CMP(J.Payroll.Jobs[i].Phase)
      CMP(J.Payroll.Jobs[i].Cost) CMP(J.Payroll.Jobs[i].Field) CMP(J.Payroll.Jobs[i].Amount)
          CMP(J.Payroll.Jobs[i].DateCleared) CMP(J.Payroll.Jobs[i].Guid)
    }
  }
  else if (JournalLines(&a) != nullptr) {
    const JrnlDistLine* la = JournalLines(&a);
    const JrnlDistLine* lb = JournalLines(&b);
    for (int i = 0; i < JournalLineCapacity(a.Key1.JournalType); ++i) {
#define LINE(field)                                                     \
  if (std::memcmp(&la[i].field, &lb[i].field, sizeof la[i].field) != 0) \
    return "line " + std::to_string(i) + " " #field;
      LINE(Account)
      LINE(Amount)
      LINE(SecondAmount) LINE(Applied) LINE(InvoiceRef) LINE(AppliedLink) LINE(LinkFormatted)
          LINE(Item) LINE(Quantity) LINE(UnitPrice) LINE(OrderQuantity1) LINE(OrderQuantity2)
              LINE(Job) LINE(Phase) LINE(Cost) LINE(Description) LINE(Flag) LINE(OrderFlag)
                  LINE(DateCleared) LINE(Guid) LINE(SecondGuid) LINE(Counter[0]) LINE(Counter[1])
#undef LINE
    }
    if (a.Key1.JournalType == CRJ || a.Key1.JournalType == CDJ) CMP(J.Cash.AppliedTotal)
    if (a.Key1.JournalType == POJ || a.Key1.JournalType == SOJ) CMP(J.Order.OrderValue)
    if (a.Key1.JournalType >= COGSJ && a.Key1.JournalType <= INAJ2) CMP(J.Inv.Quantity)
  }
#undef CMP
  for (size_t i = 0; i < sizeof a; ++i) {  // anything the names above miss
    if (reinterpret_cast<const uint8_t*>(&a)[i] != reinterpret_cast<const uint8_t*>(&b)[i])
      return "byte " + std::to_string(i);
  }
  return "";
}

// Makes random valid transactions: every field the store keeps gets a random value, and
// what the store does not keep (the main row of a general journal entry, unused counter
// slots, a second GUID without a second amount) stays zero.
class Generator {
 public:
  Generator(uint32_t seed, std::vector<int32_t> phases, std::vector<int32_t> costs,
            std::vector<std::string> employees)
      : rng_(seed),
        phases_(std::move(phases)),
        costs_(std::move(costs)),
        employees_(std::move(employees)) {}

  void Fill(JournalRecord* r, int16_t journal, int max_lines) {
    std::memset(r, 0, sizeof *r);
    r->Key1.JournalType = journal;
    r->Key1.TrxNumber = ++trx_;
    r->Key1.Period = static_cast<uint16_t>(Int(1, 41));
    r->Key1.PartnerFlag = static_cast<uint8_t>(Int(0, 1));
    if (journal == SJ || journal == PJ) r->Key1.Shadow = static_cast<uint8_t>(Int(0, 2));
    r->Key2.Qualifier = Int(0, 1) ? 'R' : 'P';
    r->Key2.Card = Int(0, 500);
    r->Key2.Date = Date();
    r->HdrAccount = Int(1, 300);
    r->PostOrder = ++post_;
    Text(r->Description.s, 30);
    Text(r->Reference.s, 20);
    r->LedgerFlag = Byte(1);
    r->SecondFlag = Byte(1);
    r->ThirdFlag = Byte(1);
    r->BegBalFlag = Int(0, 9) == 0;
    Text(r->ShortCode.s, 8);
    r->Key8RecordNumber = Int(0, 1000);
    r->Key8Value = static_cast<int16_t>(Int(-5, 5));
    if (!employees_.empty() && Int(0, 1))
      r->EmployeeID = employees_[Int(0, employees_.size() - 1)].c_str();
    r->Flag126 = Byte(255);
    r->Flag127 = Byte(255);
    r->Value2906 = Int(-9, 9);
    MaybeGuid(r->Guid, 4);
    r->Value5945 = Int(-9, 9);
    r->Flag5949 = Byte(255);
    r->Amount = Money();
    r->DateCleared = Int(0, 1) ? Date() : DatesType{};
    MaybeGuid(r->MainRowGuid, 3);
    uint8_t* areas = reinterpret_cast<uint8_t*>(&r->J);
    for (size_t i = 0; i < kHdrArea130Size + kHdrArea178Size + kHdrArea2910Size; ++i)
      areas[i] = static_cast<uint8_t>(rng_());
    if (journal == SJ || journal == PJ) r->J.Sales.Area130.Journal12 = Byte(1);
    const bool no_main_row =
        journal == GENJ || (r->BegBalFlag && ((journal == CRJ && r->Key2.Qualifier != 'R') ||
                                              (journal == CDJ && r->Key2.Qualifier != 'P')));
    if (no_main_row) {
      r->Amount = 0;
      r->DateCleared = {};
      r->MainRowGuid = {};
    }
    if (journal == GENJ) r->GenJrnlFlag = Byte(1);
    if (journal == POJ || journal == SOJ) r->J.Order.OrderValue = Money();
    if (journal == INAJ || journal == ASBYJ) r->J.Inv.Quantity = Money();
    if (journal == PRJ) {
      FillPayroll(r, max_lines);
    } else {
      r->LineCount = static_cast<int16_t>(Int(0, max_lines));
      for (int i = 0; i < r->LineCount; ++i) FillLine(r, JournalLines(r)[i]);
    }
  }

  void FillLine(JournalRecord* r, JrnlDistLine& l) {
    std::memset(&l, 0, sizeof l);
    l.Account = Int(0, 300);
    l.Amount = Money();
    l.Item = Int(0, 3) ? Int(1, 900) : 0;
    l.Quantity = Money();
    l.UnitPrice = Money();
    l.OrderQuantity1 = Money();
    l.OrderQuantity2 = Money();
    l.Job = Int(0, 50);
    l.Phase = Pick(phases_);
    l.Cost = Pick(costs_);
    Text(l.Description.s, Int(0, 1) ? 160 : 12);
    l.Flag = Byte(1);
    l.OrderFlag = Byte(1);
    l.DateCleared = Int(0, 1) ? Date() : DatesType{};
    MaybeGuid(l.Guid, 3);
    if (Int(0, 2) == 0) {
      l.Applied = 1;
      l.AppliedLink = static_cast<uint32_t>(Int(1, 100000));
      l.LinkFormatted = Byte(1);
      if (l.LinkFormatted) {
        std::snprintf(l.InvoiceRef.s, sizeof l.InvoiceRef.s, "%u", l.AppliedLink);
      } else {
        Text(l.InvoiceRef.s, 20);
      }
    }
    if (Int(0, 2) == 0) {
      l.SecondAmount = Money();
      if (l.SecondAmount != 0) MaybeGuid(l.SecondGuid, 2);
    }
    for (JrnlCounterSlot& slot : l.Counter) {
      if (Int(0, 1)) continue;
      slot.Account = Int(1, 300);
      slot.Amount = Money();
      slot.DateCleared = Int(0, 1) ? Date() : DatesType{};
      MaybeGuid(slot.Guid, 2);
    }
    const int16_t journal = r->Key1.JournalType;
    if ((journal == CRJ || journal == CDJ) && l.Applied) r->J.Cash.AppliedTotal += l.Amount;
  }

 private:
  void FillPayroll(JournalRecord* r, int max_lines) {
    JrnlPayrollMember& pr = r->J.Payroll;
    r->LineCount = static_cast<int16_t>(Int(0, std::min(max_lines, kMaxPayrollFields)));
    for (int i = 0; i < r->LineCount; ++i) {
      JrnlPayrollField& f = pr.Fields[i];
      f.Account = Int(0, 300);
      f.FieldIndex = static_cast<int16_t>(Int(0, 19));
      Text(f.Code.s, 8);
      f.Amount = Money();
      f.DateCleared = Int(0, 1) ? Date() : DatesType{};
      MaybeGuid(f.Guid, 3);
      if (Int(0, 1)) {
        f.SecondAmount = Money();
        if (f.SecondAmount != 0) MaybeGuid(f.SecondGuid, 2);
      }
    }
    pr.JobCount = static_cast<int16_t>(r->LineCount > 0 ? Int(0, 6) : 0);
    for (int j = 0; j < pr.JobCount; ++j) {
      JrnlPayrollJob& job = pr.Jobs[j];
      job.Job = Int(1, 50);
      job.Phase = Pick(phases_);
      job.Cost = Pick(costs_);
      job.Field = static_cast<int16_t>(Int(0, r->LineCount - 1));
      job.Amount = Money();
      job.DateCleared = Int(0, 1) ? Date() : DatesType{};
      MaybeGuid(job.Guid, 3);
    }
  }

  int Int(int lo, int hi) { return std::uniform_int_distribution<int>(lo, hi)(rng_); }
  int Int(int lo, size_t hi) { return Int(lo, static_cast<int>(hi)); }
  uint8_t Byte(int hi) { return static_cast<uint8_t>(Int(0, hi)); }
  double Money() { return Int(-500000, 500000) / 100.0; }
  DatesType Date() {
    DatesType d;
    MakeDate(Int(1, 12), Int(1, 28), Int(1995, 2030), d);
    return d;
  }
  int32_t Pick(const std::vector<int32_t>& v) {
    return v.empty() || Int(0, 1) ? 0 : v[Int(0, v.size() - 1)];
  }
  void Text(char* out, int max) {
    const int n = Int(0, max);
    for (int i = 0; i < n; ++i) out[i] = static_cast<char>(Int(0x20, 0x7e));
    out[n] = '\0';
  }
  // A random GUID, or the null one (1 time in `one_in`) for the store to fill.
  void MaybeGuid(GUID& g, int one_in) {
    if (Int(1, one_in) == 1) {
      g = {};
      return;
    }
    uint8_t* b = reinterpret_cast<uint8_t*>(&g);
    for (int i = 0; i < 16; ++i) b[i] = static_cast<uint8_t>(rng_());
  }

  std::mt19937 rng_;
  std::vector<int32_t> phases_, costs_;
  std::vector<std::string> employees_;
  int32_t trx_ = 0;
  uint32_t post_ = 0;
};

class JournalStoreTest : public CompanyTest {
 protected:
  void SetUp() override {
    CompanyTest::SetUp();
    cash_basis_ = MyCompany.CashBasis;
    MyCompany.CashBasis = 0;
    ASSERT_EQ(OpenJournalFile(&files_, kOpenModeNormal), 1);
  }
  void CloseLibraryFiles() override {
    rm::SetBackendDecorator(nullptr);
    CloseJrnlFile(&files_);
    CloseInternalJrnlFiles();
    CloseInternalPhaseFile();
    CloseInternalCostFile();
    CloseInternalEmpFile();
    CloseInternalItemFile();
    MyCompany.CashBasis = cash_basis_;
  }

  // Masters the rows refer to by ID: a few phases, cost codes and employees.
  void AddMasters() {
    BtrvFile* f = nullptr;
    ASSERT_EQ(OpenPhaseFile(&f, kOpenModeNormal), 1);
    for (const char* id : {"SITE", "FRAME", "ROOF"}) {
      PhaseRecord p = {};
      p.ID = id;
      ASSERT_TRUE(::InsertRecord(f, sizeof p, &p));
      phases_.push_back(p.RecordNumber);
    }
    RealCloseFile(&f, "test", __LINE__);
    ASSERT_EQ(OpenCostFile(&f, kOpenModeNormal), 1);
    for (const char* id : {"LABOR", "MATERIAL"}) {
      CostRecord c = {};
      c.ID = id;
      ASSERT_TRUE(::InsertRecord(f, sizeof c, &c));
      costs_.push_back(c.RecordNumber);
    }
    RealCloseFile(&f, "test", __LINE__);
    ASSERT_EQ(OpenEmployeeFile(&f, kOpenModeNormal), 1);
    for (const char* id : {"ADAMS", "BAKER"}) {
      auto e = std::make_unique<EmpType>();
      std::memset(e.get(), 0, sizeof *e);
      e->ID = id;
      AssignGUID(e->Guid);
      ASSERT_TRUE(::InsertRecord(f, sizeof *e, e.get()));
      employees_.push_back(id);
    }
    RealCloseFile(&f, "test", __LINE__);
  }

  // The transaction stored under the post order number, or null.
  Record Load(uint32_t post_order) {
    Record r = NewRecord();
    r->PostOrder = post_order;
    if (!GetFileEqual(files_, 0, r.get(), 5)) return nullptr;
    return r;
  }
  std::vector<JrnlRowType> Rows(uint32_t post_order) {
    std::vector<JrnlRowType> rows;
    JrnlRowType row = {};
    row.PostOrder = post_order;
    BtrvFile* f = files_.RowFile;
    for (uint8_t ok = ::GetFileGE(f, 0, sizeof row, &row, 1); ok && row.PostOrder == post_order;
         ok = ::GetFileNext(f, 0, sizeof row, &row, 1)) {
      rows.push_back(row);
    }
    return rows;
  }

  JrnlDBFilesType files_ = {};
  std::vector<int32_t> phases_, costs_;
  std::vector<std::string> employees_;
  uint8_t cash_basis_ = 0;
};

TEST_F(JournalStoreTest, EveryJournalReadsBackAsStoredByPostOrderAndByKey) {
  AddMasters();
  const uint32_t seed = std::random_device{}();
  SCOPED_TRACE("seed " + std::to_string(seed));
  Generator gen(seed, phases_, costs_, employees_);
  std::vector<Record> stored;
  constexpr int kTransactions = 2400;
  ASSERT_TRUE(bBeginBatchUpdate(files_.HdrFile));  // one commit, as a host's import would
  for (int n = 0; n < kTransactions; ++n) {
    Record r = NewRecord();
    gen.Fill(r.get(), static_cast<int16_t>(n % 12), n % 100 == 0 ? 200 : 6);
    ASSERT_TRUE(InsertRecord(files_, r.get()))
        << "transaction " << n << " status " << GetErrorCode(files_.RowFile);
    stored.push_back(std::move(r));
  }
  ASSERT_TRUE(bEndBatchUpdate(files_.HdrFile));
  for (const Record& r : stored) {
    Record by_post = Load(r->PostOrder);
    ASSERT_NE(by_post, nullptr) << "post order " << r->PostOrder;
    ASSERT_EQ(FirstDifference(*r, *by_post), "") << "journal " << r->Key1.JournalType;
    Record by_key = NewRecord();
    by_key->Key1 = r->Key1;
    if (r->Key1.JournalType == SJ) by_key->J.Sales.Area130.Journal12 = r->J.Sales.Area130.Journal12;
    ASSERT_TRUE(GetFileEqual(files_, 0, by_key.get(), 0));
    ASSERT_EQ(FirstDifference(*r, *by_key), "") << "journal " << r->Key1.JournalType;
  }
  // Updates that grow and shrink the lines leave no row of the old version behind.
  for (size_t n = 0; n < stored.size(); n += 7) {
    JournalRecord* r = stored[n].get();
    Record current = Load(r->PostOrder);  // the update rewrites the header read last
    ASSERT_NE(current, nullptr);
    if (r->Key1.JournalType == PRJ) {
      r->LineCount = static_cast<int16_t>(r->LineCount / 2);
      r->J.Payroll.JobCount = 0;
      std::memset(&r->J.Payroll.Fields[r->LineCount], 0,
                  sizeof(JrnlPayrollField) * (kMaxPayrollFields - r->LineCount));
      std::memset(r->J.Payroll.Jobs, 0, sizeof r->J.Payroll.Jobs);
    } else {
      JrnlDistLine* lines = JournalLines(r);
      const int old_count = r->LineCount;
      const int new_count = (n / 7) % 2 ? old_count + 3 : old_count / 2;
      if (r->Key1.JournalType == CRJ || r->Key1.JournalType == CDJ) r->J.Cash.AppliedTotal = 0;
      for (int i = 0; i < new_count; ++i) {
        if (i >= old_count)
          gen.FillLine(r, lines[i]);
        else if (r->Key1.JournalType == CRJ || r->Key1.JournalType == CDJ) {
          if (lines[i].Applied) r->J.Cash.AppliedTotal += lines[i].Amount;
        }
      }
      for (int i = new_count; i < old_count; ++i) std::memset(&lines[i], 0, sizeof lines[i]);
      if (new_count < old_count && (r->Key1.JournalType == CRJ || r->Key1.JournalType == CDJ)) {
        // recomputed above from the lines that stay
      }
      r->LineCount = static_cast<int16_t>(new_count);
    }
    ASSERT_TRUE(UpdateFile(files_, r, 5)) << "post order " << r->PostOrder;
    Record back = Load(r->PostOrder);
    ASSERT_NE(back, nullptr);
    ASSERT_EQ(FirstDifference(*r, *back), "") << "updated journal " << r->Key1.JournalType;
  }
}

TEST_F(JournalStoreTest, RowsCarryLedgerFlagsCardsAndLineNumbers) {
  Record r = NewRecord();
  r->Key1.JournalType = SJ;
  r->Key1.TrxNumber = 1;
  r->Key2.Card = 44;
  r->PostOrder = 10;
  r->LineCount = 2;
  JournalLines(r.get())[0].Counter[0].Account = 7;
  ASSERT_TRUE(InsertRecord(files_, r.get()));
  auto summary = [&](uint32_t post) {
    std::string s;
    for (const JrnlRowType& row : Rows(post))
      s += std::to_string(row.LineNumber) + ":" + std::to_string(row.Kind) + ":" +
           std::to_string(row.LedgerFlag) + ":" + std::to_string(row.Customer) + ":" +
           std::to_string(row.Vendor) + " ";
    return s;
  };
  EXPECT_EQ(summary(10), "0:0:1:44:0 1:0:1:44:0 1:1:1:44:0 2:0:1:44:0 ");
  MyCompany.CashBasis = 1;  // sales and purchases count through their payments
  r->PostOrder = 11;
  r->Key1.TrxNumber = 2;
  r->Guid = {};
  r->MainRowGuid = {};
  for (int i = 0; i < 2; ++i) {
    JournalLines(r.get())[i].Guid = {};
    JournalLines(r.get())[i].Counter[0].Guid = {};
  }
  ASSERT_TRUE(InsertRecord(files_, r.get()));
  EXPECT_EQ(summary(11), "0:0:0:44:0 1:0:0:44:0 1:1:0:44:0 2:0:0:44:0 ");

  Record receipt = NewRecord();  // a receipt that also names a vendor, cash basis or not
  receipt->Key1.JournalType = CRJ;
  receipt->Key1.TrxNumber = 3;
  receipt->Key2.Card = 5;
  receipt->Key2.Qualifier = 'R';
  receipt->PostOrder = 12;
  receipt->J.Cash.Area178.SecondCardFlag = 1;
  receipt->J.Cash.Area178.SecondCard = 9;
  ASSERT_TRUE(InsertRecord(files_, receipt.get()));
  EXPECT_EQ(summary(12), "0:0:1:5:9 ");
  receipt->PostOrder = 13;  // an opening balance of the vendor side: no cash row
  receipt->Key1.TrxNumber = 4;
  receipt->Guid = {};
  receipt->MainRowGuid = {};
  receipt->BegBalFlag = 1;
  receipt->Key2.Qualifier = 'P';
  ASSERT_TRUE(InsertRecord(files_, receipt.get()));
  EXPECT_EQ(summary(13), "");

  Record order = NewRecord();
  order->Key1.JournalType = POJ;
  order->Key1.TrxNumber = 5;
  order->Key2.Card = 8;
  order->PostOrder = 14;
  ASSERT_TRUE(InsertRecord(files_, order.get()));
  EXPECT_EQ(summary(14), "0:0:0:0:8 ");
}

TEST_F(JournalStoreTest, AdjustmentsAndAssembliesCarryTheItemsAccountRows) {
  // An item whose inventory account is 20, first account 21 and second account 22.
  BtrvFile* f = nullptr;
  ASSERT_EQ(OpenLineItemFile(&f, kOpenModeNormal), 1);
  auto item = std::make_unique<LineItemRecord>();
  std::memset(item.get(), 0, sizeof *item);
  item->ItemID = "BOLT";
  item->ItemClass = 1;
  item->InventoryAccount = 20;
  item->FirstAccount = 21;
  item->SecondAccount = 22;
  ASSERT_TRUE(::InsertRecord(f, sizeof *item, item.get()));
  RealCloseFile(&f, "test", __LINE__);
  auto rows = [&](uint32_t post) {
    std::string s;
    for (const JrnlRowType& row : Rows(post))
      s += std::to_string(row.Kind) + ":" + std::to_string(row.Account) + ":" +
           std::to_string(row.ItemAccountFlag) + " ";
    return s;
  };
  Record r = NewRecord();
  r->Key1.JournalType = INAJ;
  r->Key1.TrxNumber = 1;
  r->Key2.Card = item->RecordNumber;
  r->HdrAccount = 30;
  r->PostOrder = 40;
  ASSERT_TRUE(InsertRecord(files_, r.get()));
  EXPECT_EQ(rows(40), "0:30:1 9:21:0 10:22:1 ");
  Record back = Load(40);
  ASSERT_NE(back, nullptr);
  EXPECT_FALSE(IsNullGUID(back->ExtraGuid1) || IsNullGUID(back->ExtraGuid2));
  EXPECT_EQ(std::memcmp(&back->ExtraGuid1, &r->ExtraGuid1, sizeof(GUID)), 0);
  EXPECT_EQ(std::memcmp(&back->ExtraGuid2, &r->ExtraGuid2, sizeof(GUID)), 0);
  // An adjustment posted to the item's own inventory account has no item-account rows; an
  // assembly always has them; an unknown item has none.
  r = NewRecord();
  r->Key1.JournalType = INAJ;
  r->Key1.TrxNumber = 2;
  r->Key2.Card = item->RecordNumber;
  r->HdrAccount = 20;
  r->PostOrder = 41;
  ASSERT_TRUE(InsertRecord(files_, r.get()));
  r = NewRecord();
  r->Key1.JournalType = ASBYJ;
  r->Key1.TrxNumber = 3;
  r->Key2.Card = item->RecordNumber;
  r->HdrAccount = 20;
  r->PostOrder = 42;
  ASSERT_TRUE(InsertRecord(files_, r.get()));
  r->Key1.TrxNumber = 4;
  r->Key2.Card = 999;
  r->PostOrder = 43;
  r->Guid = {};
  r->MainRowGuid = {};
  ASSERT_TRUE(InsertRecord(files_, r.get()));
  EXPECT_EQ(rows(41) + "| " + rows(42) + "| " + rows(43),
            "0:20:1 | 0:20:1 9:21:0 10:22:1 | 0:20:1 ");
}

TEST_F(JournalStoreTest, SecondSalesJournalIsStoredAsTwelveAndReadsBackAsSales) {
  Record r = NewRecord();
  r->Key1.JournalType = SJ;
  r->Key1.TrxNumber = 77;
  r->Key1.Period = 17;
  r->PostOrder = 3;
  r->J.Sales.Area130.Journal12 = 1;
  ASSERT_TRUE(InsertRecord(files_, r.get()));
  JrnlHdrType hdr = {};
  hdr.Key1 = r->Key1;
  hdr.Key1.JournalType = SJ2;
  ASSERT_TRUE(::GetFileEqual(files_.HdrFile, 0, sizeof hdr, &hdr, 0));
  EXPECT_EQ(Rows(3).at(0).JournalType, SJ2);
  EXPECT_EQ(Rows(3).at(0).LedgerFlag, 0);
  Record back = NewRecord();
  back->Key1 = r->Key1;
  back->J.Sales.Area130.Journal12 = 1;
  ASSERT_TRUE(GetFileEqual(files_, 0, back.get(), 0));
  EXPECT_EQ(back->Key1.JournalType, SJ);
  EXPECT_EQ(back->J.Sales.Area130.Journal12, 1);
  Record plain = NewRecord();
  plain->Key1 = r->Key1;  // without the flag the key asks for journal 3: not there
  std::strcpy(plain->Description.s, "unchanged");
  EXPECT_FALSE(GetFileEqual(files_, 0, plain.get(), 0));
  EXPECT_STREQ(plain->Description.s, "unchanged");
}

TEST_F(JournalStoreTest, RowWhoseGuidCollidesIsStoredUnderAFreshOne) {
  GUID taken;
  AssignGUID(taken);
  Record first = NewRecord();
  first->Key1.JournalType = GENJ;
  first->Key1.TrxNumber = 1;
  first->PostOrder = 1;
  first->LineCount = 1;
  JournalLines(first.get())[0].Guid = taken;
  ASSERT_TRUE(InsertRecord(files_, first.get()));
  Record second = NewRecord();
  second->Key1.JournalType = GENJ;
  second->Key1.TrxNumber = 2;
  second->PostOrder = 2;
  second->LineCount = 2;
  JournalLines(second.get())[0].Guid = taken;
  JournalLines(second.get())[1].Guid = taken;
  ASSERT_TRUE(InsertRecord(files_, second.get()));
  const JrnlDistLine* lines = JournalLines(second.get());
  EXPECT_NE(std::memcmp(&lines[0].Guid, &taken, 16), 0);
  EXPECT_NE(std::memcmp(&lines[1].Guid, &taken, 16), 0);
  EXPECT_NE(std::memcmp(&lines[0].Guid, &lines[1].Guid, 16), 0);
  Record back = Load(2);
  ASSERT_NE(back, nullptr);
  EXPECT_EQ(FirstDifference(*second, *back), "");
  Record again = NewRecord();  // a header GUID already taken: the insert fails whole
  again->Key1.JournalType = GENJ;
  again->Key1.TrxNumber = 3;
  again->PostOrder = 3;
  again->Guid = first->Guid;
  EXPECT_FALSE(InsertRecord(files_, again.get()));
  EXPECT_EQ(GetErrorCode(files_.HdrFile), kStatusDuplicateKey);
}

TEST_F(JournalStoreTest, FailedWritesLeaveTheOldOrTheNewTransaction) {
  AddMasters();
  Generator gen(20240607, phases_, costs_, employees_);
  auto plan = std::make_shared<rm::FaultPlan>();
  rm::SetBackendDecorator([plan](std::unique_ptr<rm::Backend> inner) {
    return rm::WrapWithFaults(std::move(inner), plan);
  });
  CloseJrnlFile(&files_);  // reopened through the faulty backend
  ASSERT_EQ(OpenJournalFile(&files_, kOpenModeNormal), 1);

  Record earlier = NewRecord();
  gen.Fill(earlier.get(), PJ, 0);
  earlier->LineCount = 2;
  gen.FillLine(earlier.get(), JournalLines(earlier.get())[0]);
  gen.FillLine(earlier.get(), JournalLines(earlier.get())[1]);
  auto remove = [&](uint32_t post_order) {
    Record r = Load(post_order);
    if (r) {
      ASSERT_TRUE(DeleteRecord(files_, r.get()));
    }
  };
  auto store = [&](const JournalRecord* source) {
    Record r = NewRecord();
    std::memcpy(r.get(), source, sizeof *r);
    ASSERT_TRUE(InsertRecord(files_, r.get()));
  };
  // Fails the nth store write of op, for every n, inside a host batch that inserted
  // `earlier` first; the host commits, and the store must hold `earlier` and exactly
  // `before` or `after` (null: no such transaction, and none of its rows).
  auto run = [&](const char* what, const JournalRecord* before, const JournalRecord* after,
                 auto op) {
    const uint32_t post_order = before != nullptr ? before->PostOrder : after->PostOrder;
    for (int n = 1;; ++n) {
      SCOPED_TRACE(std::string(what) + " failing write " + std::to_string(n));
      ASSERT_LT(n, 200);
      remove(earlier->PostOrder);
      remove(post_order);
      if (before != nullptr) store(before);
      ASSERT_TRUE(bBeginBatchUpdate(files_.HdrFile));
      store(earlier.get());
      plan->Arm(n, kStatusDiskFull);
      const int result = op();
      const bool failed = plan->failures > 0;
      plan->Disarm();
      ASSERT_TRUE(bEndBatchUpdate(files_.HdrFile));
      ASSERT_EQ(result != 0, !failed);
      Record kept = Load(earlier->PostOrder);
      ASSERT_NE(kept, nullptr);
      EXPECT_EQ(FirstDifference(*earlier, *kept), "");
      const JournalRecord* expected = result ? after : before;
      Record now = Load(post_order);
      if (expected == nullptr) {
        EXPECT_EQ(now, nullptr);
        EXPECT_TRUE(Rows(post_order).empty());
      } else {
        ASSERT_NE(now, nullptr);
        EXPECT_EQ(FirstDifference(*expected, *now), "");
      }
      if (result || HasFailure()) return;
    }
  };

  // Every GUID set, so that old and new versions compare whole.
  Record old_version = NewRecord();
  gen.Fill(old_version.get(), CRJ, 0);
  old_version->BegBalFlag = 0;
  old_version->J.Cash.AppliedTotal = 0;
  old_version->LineCount = 5;
  for (int i = 0; i < 5; ++i) gen.FillLine(old_version.get(), JournalLines(old_version.get())[i]);
  store(old_version.get());
  std::memcpy(old_version.get(), Load(old_version->PostOrder).get(), sizeof(JournalRecord));
  remove(old_version->PostOrder);
  std::memcpy(
      earlier.get(),
      [&] {
        store(earlier.get());
        return Load(earlier->PostOrder);
      }()
          .get(),
      sizeof(JournalRecord));

  run("insert", nullptr, old_version.get(), [&] {
    Record r = NewRecord();
    std::memcpy(r.get(), old_version.get(), sizeof *r);
    return InsertRecord(files_, r.get());
  });
  ASSERT_FALSE(HasFailure());
  // An update that shrinks the lines from five to two.
  Record new_version = NewRecord();
  std::memcpy(new_version.get(), old_version.get(), sizeof *new_version);
  new_version->LineCount = 2;
  new_version->J.Cash.AppliedTotal = 0;
  for (int i = 0; i < 2; ++i) {
    const JrnlDistLine& l = JournalLines(new_version.get())[i];
    if (l.Applied) new_version->J.Cash.AppliedTotal += l.Amount;
  }
  for (int i = 2; i < 5; ++i) {
    std::memset(&JournalLines(new_version.get())[i], 0, sizeof(JrnlDistLine));
  }
  run("update", old_version.get(), new_version.get(), [&] {
    Record current = Load(old_version->PostOrder);  // the header the update rewrites
    Record w = NewRecord();
    std::memcpy(w.get(), new_version.get(), sizeof *w);
    return current ? UpdateFile(files_, w.get(), 5) : 0;
  });
  ASSERT_FALSE(HasFailure());
  run("delete", old_version.get(), nullptr, [&] {
    Record current = Load(old_version->PostOrder);
    return current ? DeleteRecord(files_, current.get()) : 0;
  });
}

TEST_F(JournalStoreTest, InvoiceFinderAndRowPostedTest) {
  auto add = [&](int16_t journal, uint32_t post, int32_t card, const char* ref, uint8_t ledger) {
    Record r = NewRecord();
    r->Key1.JournalType = journal;
    r->Key1.TrxNumber = static_cast<int32_t>(post);
    r->Key2.Card = card;
    r->PostOrder = post;
    r->Reference = ref;
    r->LedgerFlag = ledger;
    ASSERT_TRUE(InsertRecord(files_, r.get()));
  };
  add(SJ, 1, 5, "INV1", 1);
  add(SJ, 2, 6, "INV1", 0);
  add(SOJ, 3, 5, "INV1", 0);
  add(PJ, 4, 5, "INV1", 1);
  EXPECT_EQ(GetInvoicePostOrderNumber("INV1", 1, 6, 0), 2u);
  EXPECT_EQ(GetInvoicePostOrderNumber("INV1", 1, 5, 0), 1u);
  EXPECT_EQ(GetInvoicePostOrderNumber("INV1", 3, 5, 0), 3u);
  EXPECT_EQ(GetInvoicePostOrderNumber("INV1", 3, 5, 2), 1u);  // variant 2: the sale itself
  EXPECT_EQ(GetInvoicePostOrderNumber("INV1", 4, 5, 3), 4u);
  EXPECT_EQ(GetInvoicePostOrderNumber("INV1", 4, 5, 0), 0u);  // no purchase order
  EXPECT_EQ(GetInvoicePostOrderNumber("INV2", 1, 5, 0), 0u);
  EXPECT_EQ(GetInvoicePostOrderNumber("", 1, 5, 0), 0u);

  JrnlRowType row = {};
  row.PostOrder = 1;
  EXPECT_EQ(IsThisRowPosted(&row), 1);
  row.PostOrder = 2;
  EXPECT_EQ(IsThisRowPosted(&row), 0);
  row.Kind = kRowInventoryCost2;  // cost rows always count
  EXPECT_EQ(IsThisRowPosted(&row), 1);
  row.Kind = kRowDistribution;
  row.PostOrder = 99;
  EXPECT_EQ(IsThisRowPosted(&row), 0);
}

}  // namespace
