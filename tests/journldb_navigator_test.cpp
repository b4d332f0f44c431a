// The header/row navigator on a real company: inventory rows completed from the cost layers
// (the pairing of the two sides of a movement, purchase returns turning into adjustments),
// look-ups that leave the caller's walk where it was, the synthesised headers of below-zero
// rows, listing texts, opening-balance questions, and which files a navigator opens, keeps
// and closes.
#include <cstring>
#include <memory>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Basics.h"
#include "company_test.h"

namespace {

struct RecordDeleter {
  void operator()(JournalRecord* r) const { DeAllocateJournalRecord(&r); }
};
using Record = std::unique_ptr<JournalRecord, RecordDeleter>;

Record NewRecord(int16_t journal, uint32_t post_order, const char* description = "") {
  JournalRecord* r = nullptr;
  AllocateJournalRecord(&r);
  r->Key1.JournalType = journal;
  r->Key1.TrxNumber = static_cast<int32_t>(post_order);
  r->Key2.Qualifier = journal == CDJ || journal == PJ ? 'P' : 'R';
  MakeDate(5, 2, 2024, r->Key2.Date);
  r->PostOrder = post_order;
  r->Description = description;
  return Record(r);
}

DatesType May(int day) { return DatesType{static_cast<uint8_t>(day), 5, 2024}; }

constexpr int32_t kWidget = 1, kBolt = 2;

class NavigatorTest : public CompanyTest {
 protected:
  void SetUp() override {
    CompanyTest::SetUp();
    cash_basis_ = MyCompany.CashBasis;
    MyCompany.CashBasis = 0;
    ASSERT_EQ(OpenJournalFile(&files_, kOpenModeNormal), 1);
    AddItem("WIDGET", "Blue widget");
    AddItem("BOLT", "Hex bolt");
  }
  void CloseLibraryFiles() override {
    CloseJrnlFile(&files_);
    RealCloseFile(&tags_, __FILE__, __LINE__);
    RealCloseFile(&costs_, __FILE__, __LINE__);
    CloseInternalJrnlFiles();
    CloseInternalInvTagFile();
    CloseInternalItemFile();
    CloseInternalProjFile();
    CloseInternalEmpFile();
    CloseInternalPhaseFile();
    CloseInternalCostFile();
    ResetStandardFileNames();
    MyCompany.CashBasis = cash_basis_;
  }
  // An item whose inventory account is 20 and item accounts 21 and 22.
  void AddItem(const char* id, const char* description) {
    auto item = std::make_unique<LineItemRecord>();
    std::memset(item.get(), 0, sizeof *item);
    item->ItemID = id;
    item->Description = description;
    item->ItemClass = 1;
    item->InventoryAccount = 20;
    item->FirstAccount = 21;
    item->SecondAccount = 22;
    AssignGUID(item->Guid);
    BtrvFile* f = nullptr;
    ASSERT_EQ(OpenLineItemFile(&f, kOpenModeNormal), 1);
    ASSERT_NE(InsertRecord(f, sizeof *item, item.get()), 0);
    RealCloseFile(&f, __FILE__, __LINE__);
  }
  void Save(JournalRecord* r) { ASSERT_EQ(InsertRecord(files_, r), 1) << r->PostOrder; }
  // A row the costing engine writes itself (below-zero rows have no header).
  void SaveRow(JrnlRowType row) {
    AssignGUID(row.Guid);
    ASSERT_NE(InsertRecord(files_.RowFile, sizeof row, &row), 0);
  }
  // The costing engine's tag of a distribution: cost, or (type 30) an adjustment.
  void Tag(uint32_t post, int16_t index, int8_t type, double cost, double adjust = 0,
           int32_t item = 0, DatesType date = {}, double below_zero = 0) {
    if (tags_ == nullptr) {
      ASSERT_EQ(OpenInvTagFile(&tags_, &costs_, kOpenModeNormal), 1);
    }
    InvTagRec tag;
    std::memset(&tag, 0, sizeof tag);
    tag.PostOrder = post;
    tag.DistIndex = index;
    tag.TagType = type;
    tag.Cost = cost;
    tag.AdjustAmount = adjust;
    tag.ItemRecordNumber = item;
    tag.Date = date;
    tag.BelowZeroAmount = below_zero;
    ASSERT_NE(InsertRecord(tags_, sizeof tag, &tag), 0);
  }
  // Every row from post order `from` on, read through nav by row key 1: "post/line/kind/
  // journal amount".
  static std::vector<std::string> Walk(JrnlRowHdrClass& nav, uint32_t from,
                                       bool with_lookups = false) {
    std::vector<std::string> rows;
    nav.ClearRow();
    nav.Row.PostOrder = from;
    JournalRecord* scratch = nullptr;
    AllocateJournalRecord(&scratch);
    // Bounded: a look-up that moved the walk back would otherwise go round for ever.
    for (int ok = nav.GetRowGE(1); ok && rows.size() < 64; ok = nav.GetRowNext(1)) {
      char text[80];
      std::snprintf(text, sizeof text, "%u/%u/%d/%d %.2f", nav.Row.PostOrder, nav.Row.LineNumber,
                    nav.Row.Kind, nav.Row.JournalType, nav.Row.Amount);
      rows.push_back(text);
      if (with_lookups) {
        // Everything a report asks on the way, on the navigator's own pair.
        nav.GetHdrForRow();
        nav.GetJrnlForCurrentJrnlHdr(scratch);
        nav.IsJrnlHdrBankRecBegBal();
        nav.GetMainRowForHeader();
        nav.IsJobBegBal();
      }
    }
    DeAllocateJournalRecord(&scratch);
    return rows;
  }

  JrnlDBFilesType files_ = {};
  BtrvFile* tags_ = nullptr;
  BtrvFile* costs_ = nullptr;
  uint8_t cash_basis_ = 0;
};

TEST_F(NavigatorTest, RowsTakeTheirAmountsFromTheCostLayersInPairs) {
  // A sale of a widget: both counter rows costed from the sale tag (12.50), the second one
  // negated; a second line whose counter rows carry amounts of their own keeps them.
  Record sale = NewRecord(SJ, 10);
  sale->LineCount = 2;
  JrnlDistLine* lines = JournalLines(sale.get());
  lines[0] = {.Amount = -40, .Item = kWidget, .Counter = {{.Account = 500}, {.Account = 501}}};
  lines[1] = {.Amount = -8,
              .Item = kWidget,
              .Counter = {{.Account = 500, .Amount = 3}, {.Account = 501, .Amount = -3}}};
  Save(sale.get());
  Tag(10, 0, kInvTagSaleCost, 12.5);
  Tag(10, 1, kInvTagSaleCost, 99);
  // A purchase line returned: its counter rows become the return's adjustment (4.00).
  Record purchase = NewRecord(PJ, 11);
  purchase->LineCount = 1;
  JournalLines(purchase.get())[0] = {
      .Amount = 16, .Item = kBolt, .Counter = {{.Account = 600}, {.Account = 601}}};
  Save(purchase.get());
  Tag(11, 0, kInvTagAssemblyCost, 0, 4);
  // An inventory adjustment (cost 7 on its first distribution, unbuild adjustment 2.50 on its
  // item-account rows) and an assembly (cost 30, no unbuild adjustment) whose stored amount
  // is replaced.
  Record adjustment = NewRecord(INAJ, 12);
  adjustment->Key2.Card = kBolt;
  adjustment->HdrAccount = 30;
  adjustment->LineCount = 1;
  JournalLines(adjustment.get())[0] = {.Account = 31, .Amount = 5};
  Save(adjustment.get());
  Tag(12, 0, kInvTagSaleCost, 7);
  Tag(12, -1, kInvTagAssemblyCost, 0, 2.5);
  Record assembly = NewRecord(ASBYJ, 13);
  assembly->Key2.Card = kWidget;
  assembly->HdrAccount = 20;
  assembly->Amount = 1;
  Save(assembly.get());
  Tag(13, -1, kInvTagSaleCost, 30);
  // Below-zero rows of the widget on 3 May (6.00 below zero), and of the bolt, without one.
  for (int32_t kind : {kRowInventoryCost1, kRowInventoryCost2}) {
    SaveRow({.PostOrder = 14,
             .LineNumber = 1,
             .Item = kWidget,
             .JournalType = INAJ2,
             .Date = May(3),
             .Kind = kind,
             .Amount = 1});
    SaveRow({.PostOrder = 15,
             .LineNumber = 1,
             .Item = kBolt,
             .JournalType = INAJ2,
             .Date = May(3),
             .Kind = kind,
             .Amount = 1});
  }
  Tag(0, 0, kInvTagDaily, 0, 0, kWidget, May(3), 6);

  JrnlRowHdrClass nav(kOpenModeReadOnly);
  ASSERT_EQ(nav.IsOKtoUse(), 1);
  const std::vector<std::string> expected = {
      "10/0/0/3 0.00",  "10/1/0/3 -40.00", "10/1/1/3 -12.50", "10/1/2/3 12.50", "10/2/0/3 -8.00",
      "10/2/1/3 3.00",  "10/2/2/3 -3.00",  "11/0/0/4 0.00",   "11/1/0/4 16.00", "11/1/1/7 -4.00",
      "11/1/2/7 4.00",  "12/0/0/7 7.00",   "12/0/9/7 -2.50",  "12/0/10/7 2.50", "12/1/0/7 -7.00",
      "13/0/0/8 30.00", "13/0/9/8 0.00",   "13/0/10/8 0.00",  "14/1/7/9 -6.00", "14/1/8/9 6.00",
      "15/1/7/9 1.00",  "15/1/8/9 1.00"};
  EXPECT_EQ(Walk(nav, 10), expected);
  EXPECT_EQ(nav.GetNumRecords(), 4);
  EXPECT_EQ(nav.GetNumRows(), 22);
}

TEST_F(NavigatorTest, LookUpsLeaveTheCallersWalkWhereItWas) {
  for (uint32_t post = 1; post <= 6; ++post) {
    Record r = NewRecord(post % 2 ? CRJ : SJ, post, "walk");
    r->LineCount = static_cast<int16_t>(post % 3);
    r->BegBalFlag = post == 3;
    Save(r.get());
  }
  JrnlRowHdrClass borrowed(files_);
  const std::vector<std::string> plain = Walk(borrowed, 1);
  ASSERT_EQ(plain.size(), 12u);
  EXPECT_EQ(Walk(borrowed, 1, true), plain);
  // The same for a walk over headers that asks for each one's main row and transaction.
  std::vector<uint32_t> headers;
  Record scratch = NewRecord(GENJ, 0);
  for (int ok = borrowed.GetHdrLowest(5, 0); ok && headers.size() < 64;
       ok = borrowed.GetHdrNext(5, 0)) {
    headers.push_back(borrowed.Hdr.PostOrder);
    EXPECT_EQ(borrowed.GetMainRowForHeader(), 1);
    EXPECT_EQ(borrowed.GetJrnlForCurrentJrnlHdr(scratch.get()), 1);
    EXPECT_EQ(scratch->PostOrder, borrowed.Hdr.PostOrder);
  }
  EXPECT_EQ(headers, (std::vector<uint32_t>{1, 2, 3, 4, 5, 6}));

  // Header of a row: read, served from the buffer for the same post order, and made up for
  // below-zero rows, which are never served from the buffer.
  borrowed.ClearRow();
  borrowed.Row.PostOrder = 4;
  ASSERT_EQ(borrowed.GetRowEqual(0), 1);
  ASSERT_EQ(borrowed.GetHdrForRow(), 1);
  EXPECT_EQ(borrowed.Hdr.Key1.JournalType, SJ);
  std::strcpy(borrowed.Hdr.Reference, "kept");
  EXPECT_EQ(borrowed.GetHdrForRow_CacheByPostOrder(), 1);
  EXPECT_STREQ(borrowed.Hdr.Reference, "kept");
  borrowed.Row.Kind = kRowInventoryCost2;
  borrowed.Row.Item = kBolt;
  borrowed.Row.Date = May(9);
  EXPECT_EQ(borrowed.GetHdrForRow_CacheByPostOrder(), 1);
  EXPECT_STREQ(borrowed.Hdr.Reference, "SysCost");
  EXPECT_EQ(borrowed.Hdr.Key1.JournalType, INAJ2);
  EXPECT_EQ(borrowed.Hdr.Key2.Card, kBolt);
  EXPECT_EQ(borrowed.Hdr.LedgerFlag, 1);
  EXPECT_EQ(borrowed.Hdr.PostOrder, 4u);
  EXPECT_EQ(CompareDates(borrowed.Hdr.Key2.Date, May(9)), 0);
  borrowed.Row.Kind = kRowDistribution;
  borrowed.Row.PostOrder = 99;
  EXPECT_EQ(borrowed.GetHdrForRow_CacheByPostOrder(), 0);
  EXPECT_EQ(borrowed.Hdr.Reference[0], '\0');
}

TEST_F(NavigatorTest, ListingTextsAndOpeningBalanceQuestions) {
  JrnlRowHdrClass nav(files_);
  struct {
    int32_t journal;
    uint16_t line;
    int32_t kind;
    int32_t item;
    const char* invoice;
    const char* code;
    const char* description;
    const char* expected;
  } cases[] = {
      {CRJ, 0, 0, kWidget, "", "", "cash", "Payment"},
      {CRJ, 1, 0, 0, "INV-7", "", "partial", "Payment - Invoice: INV-7 - partial"},
      {CDJ, 2, 0, kWidget, "", "", "", "Payment - Item: WIDGET"},
      {SJ, 1, 0, kBolt, "", "", "blue", "Payment - Item: BOLT - blue"},
      {GENJ, 1, 0, 0, "", "", "accrual", "accrual"},
      {INAJ, 0, 0, kBolt, "", "", "", "Payment"},
      {INAJ, 1, 2, kWidget, "", "", "back", " Purchase Return Adjustment - Item: WIDGET - back"},
      {INAJ2, 1, 7, kWidget, "", "", "", "System Cost Adjustment - Item: WIDGET - Blue widget"},
      {INAJ2, 1, 7, 77, "", "", "", "System Cost Adjustment "},
      {INAJ2, 0, 7, kWidget, "", "", "", "Payment"},
  };
  for (const auto& c : cases) {
    nav.ClearHeader();
    nav.ClearRow();
    std::strcpy(nav.Hdr.Description, "Payment");
    nav.Row = {.LineNumber = c.line, .Item = c.item, .JournalType = c.journal, .Kind = c.kind};
    std::strcpy(nav.Row.InvoiceReference, c.invoice);
    std::strcpy(nav.Row.ShortCode, c.code);
    std::strcpy(nav.Row.Description, c.description);
    CString text = "old";
    nav.GetRowTrxDesc(text);
    EXPECT_EQ(text.str(), c.expected) << "journal " << c.journal << " line " << c.line;
  }

  ProjectRecord job = {};
  job.ID = "J-100";
  AssignGUID(job.Guid);
  BtrvFile* f = nullptr;
  ASSERT_NE(OpenProjFile(&f, kOpenModeNormal), 0);
  ASSERT_NE(InsertRecord(f, sizeof job, &job), 0);
  RealCloseFile(&f, __FILE__, __LINE__);
  struct {
    int32_t job;
    const char* phase;
    const char* cost;
    const char* expected;
  } jobs[] = {{job.RecordNumber, "SITE", "LABOR", "J-100,SITE,LABOR"},
              {job.RecordNumber, "", "LABOR", "J-100,LABOR"},
              {job.RecordNumber + 1, "SITE", "", ""}};
  for (const auto& j : jobs) {
    JrnlRowType row = {.Job = j.job};
    std::strcpy(row.Phase, j.phase);
    std::strcpy(row.CostCode, j.cost);
    FixedString<63> text;
    text = "old";
    nav.SetJobPhaseCostRow(text, &row);
    EXPECT_STREQ(text, j.expected);
  }

  // Opening balances: a receipt whose first line has a job, one with a line without a job,
  // one with its cash row alone; a sale is never a job opening balance.
  struct {
    int16_t journal;
    int16_t lines;
    int32_t line_job;
    uint8_t beg_bal;
    bool job_beg_bal;
    bool bank_rec_beg_bal;
  } balances[] = {{CRJ, 1, job.RecordNumber, 1, true, false},
                  {CRJ, 1, 0, 1, false, false},
                  {CDJ, 0, 0, 1, false, true},
                  {SJ, 1, job.RecordNumber, 1, false, false}};
  uint32_t post = 20;
  for (const auto& b : balances) {
    Record r = NewRecord(b.journal, ++post);
    r->Key2.Qualifier = b.journal == CDJ ? 'P' : 'R';
    r->BegBalFlag = b.beg_bal;
    r->LineCount = b.lines;
    JournalLines(r.get())[0].Job = b.line_job;
    Save(r.get());
    nav.ClearHeader();
    nav.Hdr.PostOrder = post;
    ASSERT_EQ(nav.GetHdrEqual(5, 0), 1);
    nav.Row.Account = 123;
    EXPECT_EQ(nav.IsJrnlHdrBankRecBegBal(), b.bank_rec_beg_bal) << post;
    EXPECT_EQ(nav.Row.Account, 123) << "the row buffer stays";
    EXPECT_EQ(nav.IsJobBegBal(), b.job_beg_bal) << post;
  }
}

TEST_F(NavigatorTest, LedgerIdentifiersOfRowsAndDirectReads) {
  // A payroll cheque whose one field is spread over two jobs, and the widget's below-zero
  // rows of 3 May (6.00 below zero) and of an item that does not exist.
  Record cheque = NewRecord(PRJ, 30);
  AssignGUID(cheque->Guid);
  cheque->LineCount = 1;
  cheque->J.Payroll.Fields[0] = {.Account = 70, .Amount = 100};
  cheque->J.Payroll.JobCount = 2;
  cheque->J.Payroll.Jobs[0] = {.Job = 5, .Amount = 60};
  cheque->J.Payroll.Jobs[1] = {.Job = 6, .Amount = 40};
  Save(cheque.get());
  for (int32_t item : {kWidget, 77}) {
    for (int32_t kind : {kRowInventoryCost1, kRowInventoryCost2}) {
      SaveRow({.PostOrder = 31, .Item = item, .Date = May(3), .Kind = kind, .Amount = 1});
    }
  }
  Tag(0, 0, kInvTagDaily, 0, 0, kWidget, May(3), 6);
  GUID widget;
  GetLineItemGUIDFromRecordNumber(kWidget, widget);
  const std::string trx = GUIDToString(cheque->Guid), item = GUIDToString(widget);
  const std::string none = "{00000000-0000-0000-0000-000000000000}";
  const std::vector<std::string> expected = {trx + "-0-0",           trx + "-1-5",
                                             trx + "-1-5-0",         trx + "-1-5-1",
                                             item + "-05-03-2024-0", item + "-05-03-2024-1",
                                             none + "-05-03-2024-1", none + "-05-03-2024-1"};
  JrnlRowHdrClass nav(files_);
  std::vector<std::string> ids;
  nav.Row.PostOrder = 30;
  for (int ok = nav.GetRowGE(1); ok; ok = nav.GetRowNext(1)) {
    ASSERT_EQ(nav.GetHdrForRow_CacheByPostOrder(), 1);
    CString id;
    GenerateUniqueGLRowID(id, nav);
    ids.push_back(id.str());
  }
  EXPECT_EQ(ids, expected);
  CString bucket;
  GenerateUniqueGLBucketID(bucket, widget, 7, true);
  EXPECT_EQ(bucket.str(), item + "-7-1");

  // Direct reads through the store's own handles.
  JrnlRowType row = {.PostOrder = 30};
  int rows = 0;
  for (int ok = GetFirstRowByKey(&row, 1); ok && row.PostOrder == 30; ok = GetNextRowByKey(&row, 1))
    ++rows;
  EXPECT_EQ(rows, 4);
  row = {.PostOrder = 32};
  EXPECT_EQ(GetRowByKey(&row, 0), 0);
  JrnlHdrType hdr = {};
  hdr.PostOrder = 30;
  EXPECT_EQ(GetHdrByKey(&hdr, 5), 1);
  EXPECT_EQ(hdr.Key1.JournalType, PRJ);
}

TEST_F(NavigatorTest, WhichFilesANavigatorOpensKeepsAndCloses) {
  Record r = NewRecord(SJ, 1);
  Save(r.get());
  const size_t open = OpenHandleCount();
  {
    // Read-only at first; reopened for writing.
    JrnlRowHdrClass nav(kOpenModeReadOnly);
    ASSERT_EQ(nav.IsOKtoUse(), 1);
    EXPECT_EQ(OpenHandleCount(), open + 4);
    ASSERT_EQ(nav.GetHdrLowest(5, 0), 1);
    nav.Hdr.ThirdFlag = 1;
    EXPECT_EQ(nav.UpdateJrnlHdr(5), 0);
    EXPECT_EQ(nav.CloseAndReopenFiles(), 1);
    ASSERT_EQ(nav.GetHdrLowest(5, 0), 1);
    nav.Hdr.ThirdFlag = 1;
    EXPECT_EQ(nav.UpdateJrnlHdr(5), 1);
  }
  EXPECT_EQ(OpenHandleCount(), open);
  {
    // A borrowed pair stays the caller's, usable even when the look-up pair cannot be opened.
    JrnlRowHdrClass first(files_);
    {
      JrnlHdrFileName = "NOSUCH.DAT";
      JrnlRowHdrClass second(files_);
      ResetStandardFileNames();
      EXPECT_EQ(second.IsOKtoUse(), 1);
      EXPECT_EQ(second.GetHdrLowest(5, 0), 1);
      second.Row.PostOrder = 1;
      EXPECT_EQ(second.GetHdrForRow(), 0);
      EXPECT_EQ(second.GetMainRowForHeader(), 0);
    }
    ASSERT_EQ(OpenHandleCount(), open + 2) << "the borrowed pair was closed";
  }
  ASSERT_EQ(OpenHandleCount(), open);
  Record back = NewRecord(SJ, 1);
  EXPECT_EQ(GetFileEqual(files_, 0, back.get(), 5), 1);
  EXPECT_EQ(back->ThirdFlag, 1);

  // An owned pair that cannot be opened, or whose look-up pair cannot (the primary pair held
  // exclusively), leaves nothing open.
  CloseJrnlFile(&files_);
  CloseInternalJrnlFiles();
  const size_t none = OpenHandleCount();
  for (bool missing : {true, false}) {
    if (missing) JrnlHdrFileName = "NOSUCH.DAT";
    JrnlRowHdrClass nav(missing ? kOpenModeNormal : kOpenModeExclusive);
    ResetStandardFileNames();
    EXPECT_EQ(nav.IsOKtoUse(), 0);
    EXPECT_EQ(OpenHandleCount(), none) << "while the navigator lives";
  }
}

}  // namespace
