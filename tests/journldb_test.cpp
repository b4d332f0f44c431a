// The journal store: random transactions of every journal stored and read back unchanged,
// updates that grow and shrink the lines, writes that leave a transaction whole or as it
// was under injected faults, ledger flags, GUID collisions, journal 12, the invoice finder
// and the row-posted test.
#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <memory>
#include <random>
#include <string>
#include <utility>
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
// A record with only its keys and post order set.
Record NewRecord(int16_t journal, int32_t trx, int32_t card, uint32_t post_order) {
  Record r = NewRecord();
  r->Key1.JournalType = journal;
  r->Key1.TrxNumber = trx;
  r->Key2.Card = card;
  r->PostOrder = post_order;
  return r;
}

// Where two records first differ: a header field, a distribution line or the journal's own
// part, with the byte inside it; empty when they are the same.
std::string FirstDifference(const JournalRecord& a, const JournalRecord& b) {
  const auto* pa = reinterpret_cast<const uint8_t*>(&a);
  const size_t at =
      std::mismatch(pa, pa + sizeof a, reinterpret_cast<const uint8_t*>(&b)).first - pa;
  if (at == sizeof a) return "";
  if (const JrnlDistLine* lines = JournalLines(&a)) {
    const size_t first = reinterpret_cast<const uint8_t*>(lines) - pa;
    const size_t line = (at - first) / sizeof *lines;
    if (at >= first && line < static_cast<size_t>(JournalLineCapacity(a.Key1.JournalType)))
      return "line " + std::to_string(line) + " byte " +
             std::to_string((at - first) % sizeof *lines);
  }
#define FIELD(f) std::pair<const char*, size_t>(#f, offsetof(JournalRecord, f))
  const std::pair<const char*, size_t> fields[] = {FIELD(Key1),        FIELD(Key2),
                                                   FIELD(HdrAccount),  FIELD(PostOrder),
                                                   FIELD(Description), FIELD(Amount),
                                                   FIELD(Reference),   FIELD(LedgerFlag),
                                                   FIELD(SecondFlag),  FIELD(ThirdFlag),
                                                   FIELD(BegBalFlag),  FIELD(DateCleared),
                                                   FIELD(ShortCode),   FIELD(Key8RecordNumber),
                                                   FIELD(Key8Value),   FIELD(EmployeeID),
                                                   FIELD(Flag126),     FIELD(Flag127),
                                                   FIELD(Value2906),   FIELD(LineCount),
                                                   FIELD(Guid),        FIELD(Value5945),
                                                   FIELD(Flag5949),    FIELD(MainRowGuid),
                                                   FIELD(GenJrnlFlag), FIELD(J),
                                                   FIELD(ExtraGuid1),  FIELD(ExtraGuid2)};
#undef FIELD
  const auto* field =
      std::prev(std::upper_bound(std::begin(fields), std::end(fields), at,
                                 [](size_t offset, const auto& f) { return offset < f.second; }));
  return std::string(field->first) + " byte " + std::to_string(at - field->second);
}

// Makes random valid transactions: every field the store keeps gets a random value, and
// what the store does not keep (the main row of a general journal entry, unused counter
// slots, a second GUID without a second amount) stays zero.
struct Generator {
  std::mt19937 rng_;
  std::vector<int32_t> phases_, costs_;
  std::vector<std::string> employees_;
  int32_t trx_ = 0;
  uint32_t post_ = 0;

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
    for (uint8_t* flag : {&r->LedgerFlag, &r->SecondFlag, &r->ThirdFlag}) *flag = Byte(1);
    r->BegBalFlag = Int(0, 9) == 0;
    Text(r->ShortCode.s, 8);
    r->Key8RecordNumber = Int(0, 1000);
    r->Key8Value = static_cast<int16_t>(Int(-5, 5));
    if (!employees_.empty() && Int(0, 1)) r->EmployeeID = Any(employees_).c_str();
    for (uint8_t* flag : {&r->Flag126, &r->Flag127, &r->Flag5949}) *flag = Byte(255);
    r->Value2906 = Int(-9, 9);
    MaybeGuid(r->Guid, 4);
    r->Value5945 = Int(-9, 9);
    r->Amount = Money();
    r->DateCleared = Int(0, 1) ? Date() : DatesType{};
    MaybeGuid(r->MainRowGuid, 3);
    Bytes(&r->J, kHdrArea130Size + kHdrArea178Size + kHdrArea2910Size);
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

  // Grows or shrinks the lines (payroll: only shrinks, dropping the jobs), clearing those that
  // go and keeping a receipt's or payment's applied total in step.
  void Resize(JournalRecord* r, int count) {
    const int16_t journal = r->Key1.JournalType;
    if (journal == PRJ) {
      JrnlPayrollMember& pr = r->J.Payroll;
      std::memset(&pr.Fields[count], 0, sizeof(JrnlPayrollField) * (kMaxPayrollFields - count));
      std::memset(pr.Jobs, 0, sizeof pr.Jobs);
      pr.JobCount = 0;
    } else {
      JrnlDistLine* lines = JournalLines(r);
      for (int i = r->LineCount; i < count; ++i) FillLine(r, lines[i]);
      for (int i = count; i < r->LineCount; ++i) std::memset(&lines[i], 0, sizeof lines[i]);
      if (journal == CRJ || journal == CDJ) {
        r->J.Cash.AppliedTotal = 0;
        for (int i = 0; i < count; ++i)
          if (lines[i].Applied) r->J.Cash.AppliedTotal += lines[i].Amount;
      }
    }
    r->LineCount = static_cast<int16_t>(count);
  }

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
  template <typename T>
  const T& Any(const std::vector<T>& v) {
    return v[Int(0, static_cast<int>(v.size()) - 1)];
  }
  uint8_t Byte(int hi) { return static_cast<uint8_t>(Int(0, hi)); }
  double Money() { return Int(-500000, 500000) / 100.0; }
  DatesType Date() {
    DatesType d;
    MakeDate(Int(1, 12), Int(1, 28), Int(1995, 2030), d);
    return d;
  }
  int32_t Pick(const std::vector<int32_t>& v) { return v.empty() || Int(0, 1) ? 0 : Any(v); }
  void Text(char* out, int max) {
    const int n = Int(0, max);
    for (int i = 0; i < n; ++i) out[i] = static_cast<char>(Int(0x20, 0x7e));
    out[n] = '\0';
  }
  void Bytes(void* out, size_t n) {
    for (size_t i = 0; i < n; ++i) static_cast<uint8_t*>(out)[i] = static_cast<uint8_t>(rng_());
  }
  // A random GUID, or the null one (1 time in `one_in`) for the store to fill.
  void MaybeGuid(GUID& g, int one_in) {
    g = {};
    if (Int(1, one_in) != 1) Bytes(&g, sizeof g);
  }
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
  template <typename Master, typename Open>
  void AddEach(Open open, std::initializer_list<const char*> ids, std::vector<int32_t>* numbers) {
    BtrvFile* f = nullptr;
    ASSERT_EQ(open(&f, kOpenModeNormal), 1);
    for (const char* id : ids) {
      auto m = std::make_unique<Master>();
      m->ID = id;
      if constexpr (requires { m->Guid; }) AssignGUID(m->Guid);
      ASSERT_TRUE(::InsertRecord(f, sizeof *m, m.get()));
      numbers->push_back(m->RecordNumber);
    }
    RealCloseFile(&f, "test", __LINE__);
  }
  void AddMasters() {
    std::vector<int32_t> employees;
    AddEach<PhaseRecord>(OpenPhaseFile, {"SITE", "FRAME", "ROOF"}, &phases_);
    AddEach<CostRecord>(OpenCostFile, {"LABOR", "MATERIAL"}, &costs_);
    AddEach<EmpType>(OpenEmployeeFile, {"ADAMS", "BAKER"}, &employees);
    employees_ = {"ADAMS", "BAKER"};
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
  Generator gen{std::mt19937(seed), phases_, costs_, employees_};
  std::vector<Record> stored;
  ASSERT_TRUE(bBeginBatchUpdate(files_.HdrFile));  // one commit, as a host's import would
  for (int n = 0; n < 2400; ++n) {
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
    ASSERT_NE(Load(r->PostOrder), nullptr);  // the update rewrites the header read last
    const bool grow = (n / 7) % 2 && r->Key1.JournalType != PRJ;
    gen.Resize(r, grow ? r->LineCount + 3 : r->LineCount / 2);
    ASSERT_TRUE(UpdateFile(files_, r, 5)) << "post order " << r->PostOrder;
    Record back = Load(r->PostOrder);
    ASSERT_NE(back, nullptr);
    ASSERT_EQ(FirstDifference(*r, *back), "") << "updated journal " << r->Key1.JournalType;
  }
}

TEST_F(JournalStoreTest, RowsCarryLedgerFlagsCardsAndLineNumbers) {
  auto summary = [&](uint32_t post) {
    std::string s;
    for (const JrnlRowType& row : Rows(post))
      s += std::to_string(row.LineNumber) + ":" + std::to_string(row.Kind) + ":" +
           std::to_string(row.LedgerFlag) + ":" + std::to_string(row.Customer) + ":" +
           std::to_string(row.Vendor) + " ";
    return s;
  };
  for (uint8_t cash_basis : {0, 1}) {  // cash basis counts sales through their payments
    MyCompany.CashBasis = cash_basis;
    Record r = NewRecord(SJ, 1 + cash_basis, 44, 10 + cash_basis);
    r->LineCount = 2;
    JournalLines(r.get())[0].Counter[0].Account = 7;
    ASSERT_TRUE(InsertRecord(files_, r.get()));
    EXPECT_EQ(summary(r->PostOrder), cash_basis ? "0:0:0:44:0 1:0:0:44:0 1:1:0:44:0 2:0:0:44:0 "
                                                : "0:0:1:44:0 1:0:1:44:0 1:1:1:44:0 2:0:1:44:0 ");
  }
  // A receipt that also names a vendor, cash basis or not; an opening balance of its vendor
  // side has no cash row.
  for (uint8_t beg_bal : {0, 1}) {
    Record receipt = NewRecord(CRJ, 3 + beg_bal, 5, 12 + beg_bal);
    receipt->Key2.Qualifier = beg_bal ? 'P' : 'R';
    receipt->BegBalFlag = beg_bal;
    receipt->J.Cash.Area178.SecondCardFlag = 1;
    receipt->J.Cash.Area178.SecondCard = 9;
    ASSERT_TRUE(InsertRecord(files_, receipt.get()));
    EXPECT_EQ(summary(receipt->PostOrder), beg_bal ? "" : "0:0:1:5:9 ");
  }
  Record order = NewRecord(POJ, 5, 8, 14);
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
  auto insert = [&](int16_t journal, int32_t card, int32_t account, uint32_t post) {
    Record r = NewRecord(journal, static_cast<int32_t>(post), card, post);
    r->HdrAccount = account;
    EXPECT_TRUE(InsertRecord(files_, r.get()));
    std::string s;
    for (const JrnlRowType& row : Rows(post))
      s += std::to_string(row.Kind) + ":" + std::to_string(row.Account) + ":" +
           std::to_string(row.ItemAccountFlag) + " ";
    return std::make_pair(std::move(r), s);
  };
  auto [r, rows] = insert(INAJ, item->RecordNumber, 30, 40);
  EXPECT_EQ(rows, "0:30:1 9:21:0 10:22:1 ");
  Record back = Load(40);
  ASSERT_NE(back, nullptr);
  EXPECT_FALSE(IsNullGUID(back->ExtraGuid1) || IsNullGUID(back->ExtraGuid2));
  EXPECT_EQ(FirstDifference(*r, *back), "");
  // An adjustment posted to the item's own inventory account has no item-account rows; an
  // assembly always has them; an unknown item has none.
  rows = insert(INAJ, item->RecordNumber, 20, 41).second + "| ";
  rows += insert(ASBYJ, item->RecordNumber, 20, 42).second + "| ";
  EXPECT_EQ(rows + insert(ASBYJ, 999, 20, 43).second, "0:20:1 | 0:20:1 9:21:0 10:22:1 | 0:20:1 ");
}

TEST_F(JournalStoreTest, SecondSalesJournalIsStoredAsTwelveAndReadsBackAsSales) {
  Record r = NewRecord(SJ, 77, 0, 3);
  r->Key1.Period = 17;
  r->J.Sales.Area130.Journal12 = 1;
  ASSERT_TRUE(InsertRecord(files_, r.get()));
  JrnlHdrType hdr = {};
  hdr.Key1 = r->Key1;
  hdr.Key1.JournalType = SJ2;
  ASSERT_TRUE(::GetFileEqual(files_.HdrFile, 0, sizeof hdr, &hdr, 0));
  EXPECT_EQ(Rows(3).at(0).JournalType, SJ2);
  EXPECT_EQ(Rows(3).at(0).LedgerFlag, 0);
  Record plain = NewRecord();
  plain->Key1 = r->Key1;  // without the flag the key asks for journal 3: not there
  std::strcpy(plain->Description.s, "unchanged");
  EXPECT_FALSE(GetFileEqual(files_, 0, plain.get(), 0));
  EXPECT_STREQ(plain->Description.s, "unchanged");
}

TEST_F(JournalStoreTest, RowWhoseGuidCollidesIsStoredUnderAFreshOne) {
  GUID taken;
  AssignGUID(taken);
  Record first = NewRecord(GENJ, 1, 0, 1);
  first->LineCount = 1;
  JournalLines(first.get())[0].Guid = taken;
  ASSERT_TRUE(InsertRecord(files_, first.get()));
  Record second = NewRecord(GENJ, 2, 0, 2);
  second->LineCount = 2;
  const JrnlDistLine* lines = JournalLines(second.get());
  JournalLines(second.get())[0].Guid = JournalLines(second.get())[1].Guid = taken;
  ASSERT_TRUE(InsertRecord(files_, second.get()));
  EXPECT_NE(std::memcmp(&lines[0].Guid, &taken, 16), 0);
  EXPECT_NE(std::memcmp(&lines[1].Guid, &taken, 16), 0);
  EXPECT_NE(std::memcmp(&lines[0].Guid, &lines[1].Guid, 16), 0);
  Record back = Load(2);
  ASSERT_NE(back, nullptr);
  EXPECT_EQ(FirstDifference(*second, *back), "");
  Record again = NewRecord(GENJ, 3, 0, 3);  // a header GUID already taken: the insert fails whole
  again->Guid = first->Guid;
  EXPECT_FALSE(InsertRecord(files_, again.get()));
  EXPECT_EQ(GetErrorCode(files_.HdrFile), kStatusDuplicateKey);
}

TEST_F(JournalStoreTest, FailedWritesLeaveTheOldOrTheNewTransaction) {
  AddMasters();
  Generator gen{std::mt19937(20240607), phases_, costs_, employees_};
  auto plan = std::make_shared<rm::FaultPlan>();
  rm::SetBackendDecorator([plan](std::unique_ptr<rm::Backend> inner) {
    return rm::WrapWithFaults(std::move(inner), plan);
  });
  CloseJrnlFile(&files_);  // reopened through the faulty backend
  ASSERT_EQ(OpenJournalFile(&files_, kOpenModeNormal), 1);
  // Stored once so that every GUID is set and old and new versions compare whole.
  Record earlier = NewRecord(), old_version = NewRecord(), new_version = NewRecord();
  gen.Fill(earlier.get(), PJ, 0);
  gen.Resize(earlier.get(), 2);
  gen.Fill(old_version.get(), CRJ, 0);
  old_version->BegBalFlag = 0;
  gen.Resize(old_version.get(), 5);
  ASSERT_TRUE(InsertRecord(files_, earlier.get()));
  ASSERT_TRUE(InsertRecord(files_, old_version.get()));
  std::memcpy(new_version.get(), old_version.get(), sizeof *new_version);
  gen.Resize(new_version.get(), 2);  // an update that shrinks the lines from five to two

  auto remove = [&](uint32_t post_order) {
    if (Record r = Load(post_order)) {
      ASSERT_TRUE(DeleteRecord(files_, r.get()));
    }
  };
  auto store = [&](const JournalRecord* source) {
    Record r = NewRecord();
    std::memcpy(r.get(), source, sizeof *r);
    return InsertRecord(files_, r.get());
  };
  // Fails the nth store write of op, for every n, inside a host batch that inserted
  // `earlier` first; the host commits, and the store must hold `earlier` and exactly
  // `before` or `after` (null: no such transaction, and none of its rows).
  auto run = [&](const char* what, const JournalRecord* before, const JournalRecord* after,
                 auto op) {
    const uint32_t post_order = old_version->PostOrder;
    for (int n = 1;; ++n) {
      SCOPED_TRACE(std::string(what) + " failing write " + std::to_string(n));
      ASSERT_LT(n, 200);
      remove(earlier->PostOrder);
      remove(post_order);
      ASSERT_TRUE(before == nullptr || store(before));
      ASSERT_TRUE(bBeginBatchUpdate(files_.HdrFile));
      ASSERT_TRUE(store(earlier.get()));
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

  run("insert", nullptr, old_version.get(), [&] { return store(old_version.get()); });
  ASSERT_FALSE(HasFailure());
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
  auto add = [&](int16_t journal, uint32_t post, int32_t card, uint8_t ledger) {
    Record r = NewRecord(journal, static_cast<int32_t>(post), card, post);
    r->Reference = "INV1";
    r->LedgerFlag = ledger;
    ASSERT_TRUE(InsertRecord(files_, r.get()));
  };
  add(SJ, 1, 5, 1);
  add(SJ, 2, 6, 0);
  add(SOJ, 3, 5, 0);
  add(PJ, 4, 5, 1);
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
