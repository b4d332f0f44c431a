// Items and sub-items on a real company: look-ups in every direction, order quantities,
// the deletion and duplicate rules, and sub-item writes that land whole or not at all.
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Basics.h"
#include "company_test.h"
#include "record_manager_internal.h"
#include "rm_fault_backend.h"

namespace {

using Ints = std::vector<int>;
using Strs = std::vector<std::string>;
using Doubles = std::vector<double>;
using Audit = std::vector<std::pair<std::string, int>>;

Audit g_audit;  // item ID and action of each audit-trail entry
void RecordAudit(const char* record, unsigned short action, HWND) {
  g_audit.emplace_back(reinterpret_cast<const LineItemRecord*>(record)->ItemID.s, action);
}

FixedString<21> Id(const char* text) {
  FixedString<21> f{};
  f = text;
  return f;
}

DatesType Day(int month, int day) {  // of 1997
  DatesType d;
  MakeDate(month, day, 1997, d);
  return d;
}

bool SameGuid(const GUID& a, const GUID& b) { return std::memcmp(&a, &b, sizeof a) == 0; }

class LineItemTest : public CompanyTest {
 protected:
  void SetUp() override {
    CompanyTest::SetUp();
    DeallocGeneralRecReadPtr();
    ASSERT_EQ(InitGeneralFile(), 1);
    g_audit.clear();
    pfnCall_Extern_WriteMaintAuditTrailEntry = RecordAudit;
    ASSERT_NE(OpenLineItemFile(&items_, kOpenModeNormal), 0);
  }
  void CloseLibraryFiles() override {
    RealCloseFile(&items_, __FILE__, __LINE__);
    CloseInternalItemFile();
    CloseInternalInvTagFile();
    CloseGeneralFile();
    DeallocGeneralRecReadPtr();
    rm::SetBackendDecorator(nullptr);
    pfnCall_Extern_WriteMaintAuditTrailEntry = nullptr;
  }

  // Writes an item as the host's item screens do; answers it with its record number.
  LineItemRecord Add(const char* id, int16_t cls = 1, const LineItemRecord* parent = nullptr,
                     const char* upc = "") {
    LineItemRecord r{.ItemID = Id(id),
                     .UpcSku = Id(upc),
                     .ParentRecordNumber = parent ? parent->RecordNumber : 0,
                     .ParentID = parent ? parent->ItemID : Id(""),
                     .ItemClass = cls};
    AssignGUID(r.Guid);
    EXPECT_NE(InsertRecord(items_, sizeof r, &r), 0) << id;
    return r;
  }
  void Save(LineItemRecord* r) {
    LineItemRecord old{.RecordNumber = r->RecordNumber};
    ASSERT_NE(GetFileEqual(items_, kLockBiasSingleNoWait, sizeof old, &old, kItemKeyRecordNumber),
              0);
    ASSERT_NE(UpdateFile(items_, sizeof *r, r, kItemKeyID), 0);
  }
  // A master of class 8 with first codes (and second codes when given), saved.
  LineItemRecord Master(const char* id, Strs firsts, Strs seconds = {}) {
    LineItemRecord m = Add(id, kItemClassMaster);
    m.FirstAttributes.Name = "Size";
    for (size_t i = 0; i < firsts.size(); ++i) {
      m.FirstAttributes.Codes[i] = firsts[i].c_str();
      m.FirstAttributes.Descriptions[i] = ("size " + firsts[i]).c_str();
    }
    for (size_t j = 0; j < seconds.size(); ++j) {
      m.SecondAttributes.Codes[j] = seconds[j].c_str();
      m.SecondAttributes.Descriptions[j] = ("colour " + seconds[j]).c_str();
    }
    m.FirstValueCount = static_cast<int32_t>(firsts.size());
    m.SecondValueCount = static_cast<int32_t>(seconds.size());
    m.Description = "Shirt";
    m.Field5126 = 77;
    std::memset(m.Field1152, 'k', sizeof m.Field1152);
    Save(&m);
    return m;
  }
  LineItemRecord Stored(const std::string& id) {
    LineItemRecord r{.ItemID = Id(id.c_str())};
    GetFileEqual(items_, kLockBiasNone, sizeof r, &r, kItemKeyID);
    return r;
  }
  Strs SubItemIDs(int32_t parent) {
    Strs ids;
    LineItemRecord r{.ParentRecordNumber = parent};
    for (uint8_t ok = GetFileEqual(items_, 0, sizeof r, &r, kItemKeyParent);
         ok && r.ParentRecordNumber == parent;
         ok = GetFileNext(items_, 0, sizeof r, &r, kItemKeyParent))
      ids.push_back(r.ItemID.s);
    return ids;
  }

  // A journal row naming item, and its header, posted or only saved.
  void AddOrder(int32_t item, JournalTypes type, DatesType date, double first, double second,
                bool posted = true, uint8_t order_flag = 0) {
    ++post_order_;
    JrnlDBFilesType j{};
    ASSERT_NE(OpenJournalFile(&j, kOpenModeNormal), 0);
    JrnlHdrType hdr{.Key1 = {.TrxNumber = static_cast<int32_t>(post_order_), .JournalType = type},
                    .Key2 = {.Date = date},
                    .PostOrder = post_order_,
                    .LedgerFlag = posted};
    AssignGUID(hdr.Guid);
    EXPECT_NE(InsertRecord(j.HdrFile, sizeof hdr, &hdr), 0);
    JrnlRowType row{.PostOrder = post_order_, .Item = item, .JournalType = type, .Date = date};
    row.OrderFlag = order_flag;
    row.OrderQuantity1 = first;
    row.OrderQuantity2 = second;
    AssignGUID(row.Guid);
    EXPECT_NE(InsertRecord(j.RowFile, sizeof row, &row), 0);
    CloseJrnlFile(&j);
  }

  BtrvFile* items_ = nullptr;
  uint32_t post_order_ = 0;
};

TEST_F(LineItemTest, LookupsTranslateBetweenIdNumberAndGuid) {
  const LineItemRecord bolt = Add("BOLT"), nut = Add("NUT");
  EXPECT_EQ(
      (Ints{GetRecordNumberFromLineItemID(Id("NUT")), GetItemRecordNumber(Id("BOLT")),
            GetRecordNumberFromLineItemID(Id("nut")), GetRecordNumberFromLineItemID(Id("")),
            GetRecordNumberFromLineItemGUID(nut.Guid), GetRecordNumberFromLineItemGUID(GUID{})}),
      (Ints{2, 1, 0, 0, 2, 0}));
  // IDs not found come back empty, GUIDs null; the GUID by record number answers false even
  // when found.
  FixedString<21> ids[4] = {Id("stale"), Id("stale"), Id("stale"), Id("stale")};
  GUID guid;
  std::memset(&guid, 7, sizeof guid);
  EXPECT_EQ((Ints{GetLineItemIDFromRecordNumber(1, ids[0]),
                  GetLineItemIDFromRecordNumber(0, ids[1]), GetLineItemIDFromGUID(nut.Guid, ids[2]),
                  GetLineItemIDFromGUID(GUID{}, ids[3]), GetLineItemGUIDFromRecordNumber(2, guid),
                  SameGuid(guid, nut.Guid), GetLineItemGUIDFromRecordNumber(9, guid),
                  IsNullGUID(guid), SameGuid(GetLineItemGUIDFromID(Id("BOLT")), bolt.Guid),
                  IsNullGUID(GetLineItemGUIDFromID(Id("WASHER")))}),
            (Ints{1, 0, 1, 0, 0, 1, 0, 1, 1, 1}));
  EXPECT_EQ((Strs{ids[0].s, ids[1].s, ids[2].s, ids[3].s}), (Strs{"BOLT", "", "NUT", ""}));

  LineItemRecord r;
  EXPECT_EQ((Ints{GetLineItemInfo(Id("NUT"), &r), r.RecordNumber, GetLineItemInfo(1, &r),
                  GetLineItemInfo(Id(""), &r), GetLineItemInfo(0, &r), GetLineItemInfo(5, &r),
                  r.RecordNumber, LineItemExistQuietWithRecNum(2), LineItemExistQuietWithRecNum(3),
                  GetLineItemRecByRecordNumber(2, &r)}),
            (Ints{1, 2, 1, 0, 0, 0, 5, 1, 0, 1}));
  EXPECT_STREQ(r.ItemID, "NUT");
  EXPECT_TRUE(messages_.shown().empty());
}

TEST_F(LineItemTest, BrowsingKeepsItsPlaceWhileConversionsRun) {
  LineItemRecord r{};
  EXPECT_EQ(GetNextLineItemRec(&r), 0);  // nothing opened by a walk that never began
  for (const char* id : {"A", "B"}) Add(id);
  Add("C", 3, nullptr, "0042");
  ASSERT_EQ(GetFirstLineItemRec(&r), 1);
  EXPECT_STREQ(r.ItemID, "A");
  FixedString<21> id;
  GetLineItemIDFromRecordNumber(3, id);  // on the conversion handle
  ASSERT_EQ(GetNextLineItemRec(&r), 1);
  EXPECT_STREQ(r.ItemID, "B");
  r = {.UpcSku = Id("0041")};
  ASSERT_EQ(GetLineItemGreaterRecByKey(&r, kItemKeyUpcSku), 1);
  EXPECT_STREQ(r.ItemID, "C");
  EXPECT_EQ(GetNextLineItemRecByKey(&r, kItemKeyUpcSku), 0);
  r.ItemClass = 3;
  r.ComponentCount = 0;
  EXPECT_EQ((Ints{GetLineItemRecByKey(&r, kItemKeyClass), GetFirstLineItemRecByKey(&r, 99)}),
            (Ints{1, 0}));
}

TEST_F(LineItemTest, QuantityOnOrderCountsPostedOrderRowsUpToTheDate) {
  LineItemRecord item = Add("WIDGET"), other = Add("GADGET");
  AddOrder(item.RecordNumber, POJ, Day(5, 2), 2, 10);   // 8 still to come
  AddOrder(item.RecordNumber, POJ, Day(5, 31), 1, 4);   // 3, on the last day
  AddOrder(item.RecordNumber, POJ, Day(6, 1), 0, 100);  // after the date
  AddOrder(item.RecordNumber, POJ, Day(5, 3), 0, 50, /*posted=*/false);
  // A row whose flag is set ends the walk: the later row is never reached.
  AddOrder(item.RecordNumber, POJ, Day(6, 15), 0, 60, true, /*order_flag=*/1);
  AddOrder(item.RecordNumber, POJ, Day(6, 20), 0, 1000);
  AddOrder(item.RecordNumber, SOJ, Day(5, 5), 0, 7);
  AddOrder(other.RecordNumber, POJ, Day(5, 6), 0, 9);
  auto on_order = [&](JournalTypes type) {
    double q = -1;
    CalcQtyOnSOPO(&item, type, Day(5, 31), &q);
    return q;
  };
  const double ordered = on_order(POJ), sold = on_order(SOJ);
  item.ItemClass = 2;  // classes outside 1, 3, 8 and 9 have nothing on order
  const double other_class = on_order(POJ);
  item.ItemClass = kItemClassMaster;  // counted here, but not asked by period
  EXPECT_EQ((Doubles{ordered, sold, other_class, on_order(POJ), GetQtyOnSOPO(&item, POJ, 19)}),
            (Doubles{11, 7, 0, 11, 0}));

  item.ItemClass = 1;  // periods 19 and 20 are May and June 1997
  EXPECT_EQ((Doubles{GetQtyOnSOPO(&item, POJ, 19), GetQtyOnSOPO(&item, POJ, 20)}),
            (Doubles{11, 111}));
  // A period without dates (as period 0) counts to the end of the nearest earlier one that
  // has them.
  GeneralDataType* gl = nullptr;
  ASSERT_EQ(GetGeneralDataPtr(nullptr, &gl, MOD_GL, kGenReadForUpdate, false), 1);
  gl->GL.Calendar[20].to = DatesType{};
  ASSERT_EQ(WrtGeneralDataPtr(nullptr, gl, 1, 0), 1);
  EXPECT_EQ((Doubles{GetQtyOnSOPO(&item, POJ, 20), GetQtyOnSOPO(&item, POJ, 0)}), (Doubles{11, 0}));
  EXPECT_NE(GetInternalInvTagFile(), nullptr);  // ready for the cost queries
}

TEST_F(LineItemTest, AvailableQuantityCountsTheSecondOnlyWhenTheCompanySaysSo) {
  EXPECT_DOUBLE_EQ(GetQtyAvailable(3, 5, 20), 17);
  // Switched on behind the settings cache's back (as by another workstation): seen at once.
  BtrvFile* general = nullptr;
  ASSERT_NE(RealOpenBFileOwner(&general, GeneralFileName, kOpenModeNormal, 1, csTheOwner, "t", 1),
            0);
  GeneralDataType inv{.Kind = MOD_INV};
  ASSERT_NE(GetFileEqual(general, kLockBiasSingleNoWait, sizeof inv, &inv, 0), 0);
  inv.INV.Option1057 = 1;
  EXPECT_NE(UpdateFile(general, sizeof inv, &inv, 0), 0);
  RealCloseFile(&general, "t", 1);
  EXPECT_DOUBLE_EQ(GetQtyAvailable(3, 5, 20), 22);
}

TEST_F(LineItemTest, ItemsWithJournalRowsOrInAssembliesMayNotBeDeleted) {
  LineItemRecord used = Master("USED", {"S", "M"});
  LineItemRecord used_s = Add("USED-S", kItemClassSubItem, &used);
  Add("USED-M", kItemClassSubItem, &used);
  AddOrder(used_s.RecordNumber, SJ, Day(3, 1), 0, 0);
  // Its own rows are none: the master alone passes, its sub-items do not.
  EXPECT_EQ((Ints{IsItOkToDeleteItem(&used), IsItOkToDeleteItem(&used_s),
                  OkToDeleteItemAllSubItems(&used, 1, 1), OkToDeleteItemAllSubItems(&used, 0, 1),
                  OkToDeleteItemAllSubItems(&used, 0, 0)}),
            (Ints{1, 0, 0, 0, 0}));
  EXPECT_EQ(messages_.Numbers(), (Ints{4482, 4493}));
  EXPECT_NE(messages_.shown()[0].text.find("USED-S"), std::string::npos);
  messages_.Clear();

  // The component check must reach the third sub-item after scanning for the first two.
  LineItemRecord kit = Master("KIT", {"1", "2", "3"});
  LineItemRecord k1 = Add("KIT-1", kItemClassSubItem, &kit);
  LineItemRecord k2 = Add("KIT-2", kItemClassSubItem, &kit);
  LineItemRecord k3 = Add("KIT-3", kItemClassSubItem, &kit);
  EXPECT_EQ(OkToDeleteItemAllSubItems(&kit, 1, 1), 1);
  LineItemRecord bundle = Add("BUNDLE", 5);
  bundle.ComponentCount = 2;
  bundle.Components[0].RecordNumber = k1.RecordNumber + 1000;
  bundle.Components[1].RecordNumber = k3.RecordNumber;
  Save(&bundle);
  // Shown whatever the flag says.
  EXPECT_EQ((Ints{OkToDeleteItemAllSubItems(&kit, 1, 0), IsItOkToDeleteItem(&k2)}), (Ints{0, 1}));
  EXPECT_EQ(messages_.Numbers(), Ints{4497});
  EXPECT_NE(messages_.Last().text.find("KIT-3"), std::string::npos);
}

TEST_F(LineItemTest, DuplicateUpcSkuAndSubItemIdsAreRefusedWithTheirMessages) {
  Add("HAMMER", 1, nullptr, "0123");
  Add("MALLET", 1, nullptr, "0123");
  Add("SAW", 1, nullptr, "0999");
  EXPECT_EQ((Ints{ThereAreDuplicateUpcSku(Id("0123"), Id("HAMMER")),
                  ThereAreDuplicateUpcSku(Id("0999"), Id("SAW")),
                  ThereAreDuplicateUpcSku(Id("0555"), Id("SAW")),
                  ThereAreDuplicateUpcSku(Id(""), Id("SAW"))}),
            (Ints{1, 0, 0, 0}));
  EXPECT_EQ(messages_.Numbers(), Ints{2550});
  EXPECT_NE(messages_.Last().text.find("MALLET"), std::string::npos);
  messages_.Clear();

  // Codes give at most 4 characters: "SHIRT-LARG-BLUE" clashes with an unrelated item.
  LineItemRecord shirt = Master("SHIRT", {"SMALL", "LARGE"}, {"RED", "BLUE"});
  EXPECT_FALSE(UserCreatedDuplicateItemIDs(&shirt));
  Add("SHIRT-SMAL-RED", kItemClassSubItem, &shirt);
  EXPECT_FALSE(UserCreatedDuplicateItemIDs(&shirt));  // its own sub-item is no clash
  Add("SHIRT-LARG-BLUE");
  EXPECT_TRUE(UserCreatedDuplicateItemIDs(&shirt));
  // One attribute forms "ID-code", the whole cut to 20 characters.
  LineItemRecord longer = Master("ABCDEFGHIJKLMNOP", {"XYZW1"});
  Add("ABCDEFGHIJKLMNOP-XYZ");
  EXPECT_TRUE(UserCreatedDuplicateItemIDs(&longer));
  EXPECT_EQ(messages_.Numbers(), (Ints{4484, 4484}));
}

TEST_F(LineItemTest, EveryInheritedFieldCountsAsAChangeAndNoOtherField) {
  LineItemRecord before{}, after{};
  const int inherited[][2] = {{37, 31},   {72, 1},     {128, 161}, {289, 161},  {450, 9},
                              {459, 7},   {466, 4},    {470, 2},   {1144, 4},   {1148, 4},
                              {1152, 21}, {4340, 205}, {4545, 2},  {4547, 550}, {5097, 11},
                              {5108, 1},  {5118, 8},   {5126, 4}};
  auto changed_at = [&](int at) {
    after = before;
    reinterpret_cast<uint8_t*>(&after)[at] = 1;
    return UserChangedInheritedField(&before, &after);
  };
  for (const auto& f : inherited) {
    for (int at : {f[0], f[0] + f[1] - 1}) EXPECT_TRUE(changed_at(at)) << "offset " << at;
  }
  for (int at : {0, 21, 68, 73, 94, 119, 1173, 1440, 5130, 5671, 6212, 6259})
    EXPECT_FALSE(changed_at(at)) << "offset " << at;
}

TEST_F(LineItemTest, SubItemsAreFormedFromTheMastersAttributes) {
  LineItemRecord shirt = Master("SHIRT", {"SMALL", "L"}, {"RED", "BLUE"});
  ASSERT_EQ(InsertAllSubItems(items_, &shirt, nullptr), 1);
  EXPECT_EQ(SubItemIDs(shirt.RecordNumber),
            (Strs{"SHIRT-SMAL-RED", "SHIRT-SMAL-BLUE", "SHIRT-L-RED", "SHIRT-L-BLUE"}));
  const LineItemRecord sub = Stored("SHIRT-L-BLUE");
  EXPECT_EQ((Ints{sub.ItemClass, sub.ParentRecordNumber, sub.Field5126, sub.Field1152[3],
                  sub.Field1152[4], sub.SecondValueCount, IsNullGUID(sub.Guid)}),
            (Ints{kItemClassSubItem, shirt.RecordNumber, 77, 'k', 0, 2, 0}));
  EXPECT_EQ(
      (Strs{sub.ParentID.s, sub.Description.s, sub.FirstAttributeCode.s, sub.FirstAttributeDesc.s,
            sub.SecondAttributeCode.s, sub.SecondAttributeDesc.s, sub.SecondAttributes.Codes[0].s}),
      (Strs{"SHIRT", "Shirt", "L", "size L", "BLUE", "colour BLUE", "RED"}));
  ASSERT_EQ(g_audit.size(), 4u);
  EXPECT_EQ(g_audit[0].second, 1);
  ASSERT_EQ(InsertAllSubItems(items_, &shirt, nullptr), 1);  // the ones there are kept
  EXPECT_EQ(g_audit.size(), 4u);

  // One at a time with one attribute: second value empty; the insert is not checked.
  LineItemRecord cap = Master("CAP", {"S"});
  const AttributeDescPlus desc{Id("CAP-S"), 0, -1};
  EXPECT_EQ((Ints{InsertSubItem(items_, &cap, &desc, nullptr),
                  InsertSubItem(items_, &cap, &desc, nullptr)}),
            (Ints{1, 1}));
  EXPECT_EQ(SubItemIDs(cap.RecordNumber), Strs{"CAP-S"});
  EXPECT_STREQ(Stored("CAP-S").SecondAttributeDesc, "");
  // Another item has the last ID: inside the host's batch only this call's writes go.
  Add("SHIRT-M-RED");
  shirt.FirstAttributes.Codes[2] = "M";
  shirt.SecondAttributes.Codes[2] = "PINK";
  shirt.FirstValueCount = shirt.SecondValueCount = 3;
  ASSERT_EQ(bBeginBatchUpdate(items_), 1);
  Add("TIE");
  EXPECT_EQ(InsertAllSubItems(items_, &shirt, nullptr), 0);
  ASSERT_EQ(bEndBatchUpdate(items_), 1);
  EXPECT_EQ(SubItemIDs(shirt.RecordNumber).size(), 4u);
  EXPECT_NE(Stored("TIE").RecordNumber, 0);
}

TEST_F(LineItemTest, SubItemWritesLandWholeOrNotAtAll) {
  auto plan = std::make_shared<rm::FaultPlan>();
  RealCloseFile(&items_, __FILE__, __LINE__);
  ASSERT_EQ(OpenHandleCount(), 0u);  // the store opens again, wrapped
  rm::SetBackendDecorator([plan](std::unique_ptr<rm::Backend> inner) {
    return rm::WrapWithFaults(std::move(inner), plan);
  });
  ASSERT_NE(OpenLineItemFile(&items_, kOpenModeNormal), 0);
  LineItemRecord shirt = Master("SHIRT", {"S", "M", "L"}, {"RED", "BLUE"});
  // Fails the nth store write of op for n = 1, 2, ... until op succeeds. After each try, the
  // sub-items stored with attribute name and description must number `after` when op
  // succeeded and 6 - after when it failed. Answers the failed tries.
  auto every_n = [&](auto op, const char* name, const char* description, int after) {
    int n = 1;
    for (;; ++n) {
      SCOPED_TRACE(n);
      if (n == 100) return -1;
      plan->Arm(n, kStatusDiskFull);
      const uint8_t done = op();
      plan->Disarm();
      int count = 0;
      for (const std::string& id : SubItemIDs(shirt.RecordNumber)) {
        const LineItemRecord r = Stored(id);
        count += std::strcmp(r.FirstAttributes.Name, name) == 0 &&
                 std::strcmp(r.Description, description) == 0;
      }
      EXPECT_EQ(count, done ? after : 6 - after);
      if (done) break;
    }
    return n - 1;
  };
  EXPECT_GE(every_n([&] { return InsertAllSubItems(items_, &shirt, nullptr); }, "Size", "Shirt", 6),
            6);
  shirt.FirstAttributes.Name = "Fit";
  Save(&shirt);
  EXPECT_GE(
      every_n([&] { return UpdateSubStockAttributes(items_, &shirt, nullptr); }, "Fit", "Shirt", 6),
      6);
  const LineItemRecord old_image = shirt;
  shirt.Description = "Oxford";
  Save(&shirt);
  auto carry_over = [&] {
    LineItemRecord old_copy = old_image;
    return UpdateSubItems(items_, &old_copy, &shirt, nullptr, 0, false, nullptr, false, nullptr);
  };
  EXPECT_GE(every_n(carry_over, "Fit", "Oxford", 6), 6);
  UnlockOneRecord(items_);
  EXPECT_GE(every_n([&] { return DeleteAllSubItems(items_, &shirt, nullptr); }, "Fit", "Oxford", 0),
            6);
}

TEST_F(LineItemTest, MasterChangesAreCarriedOverToTheSubItems) {
  LineItemRecord shirt = Master("SHIRT", {"S", "M"});
  ASSERT_EQ(InsertAllSubItems(items_, &shirt, nullptr), 1);
  g_audit.clear();
  LineItemRecord old_image = shirt;
  shirt.Description = "Oxford shirt";
  shirt.Field5126 = 78;
  shirt.Fields4340[2][0] = 'x';
  shirt.Entries4547[3][0] = 'e';
  shirt.Entries4547[4][0] = 'f';  // not flagged: stays behind
  std::strcpy(shirt.Text128, "care text");
  Save(&shirt);
  ITEM_ATTRIBUTES_LERowStruct rows[2] = {{.ItemID = Id("SHIRT-M"), .Value72 = 5},
                                         {.ItemID = Id("SHIRT-S"), .Value72 = 6}};
  bool flags[11] = {};
  flags[3] = flags[10] = true;
  // Nothing to carry over: answered at once.
  EXPECT_EQ(UpdateSubItems(items_, &shirt, &shirt, rows, 2, false, nullptr, false, nullptr), 1);
  EXPECT_TRUE(g_audit.empty());
  ASSERT_EQ(UpdateSubItems(items_, &old_image, &shirt, rows, 2, true, flags, false, nullptr), 1);
  const LineItemRecord m = Stored("SHIRT-M"), s = Stored("SHIRT-S");
  EXPECT_EQ((Strs{m.Description.s, s.Description.s, m.Text128}),
            (Strs{"Oxford shirt", "Oxford shirt", "care text"}));
  EXPECT_EQ((Ints{m.Field5126, m.Fields4340[2][0], m.Entries4547[3][0], m.Entries4547[4][0],
                  m.Inherited72, s.Inherited72}),
            (Ints{78, 'x', 'e', 0, 5, 6}));
  EXPECT_EQ(g_audit.size(), 2u);

  // Saved from a sub-item's screen: siblings and master take the rows' values.
  LineItemRecord saved = Stored("SHIRT-S");
  rows[0].Value72 = 9;
  rows[1].Value72 = 8;
  ASSERT_EQ(UpdateSubItems(items_, &saved, &saved, rows, 2, true, nullptr, false, nullptr), 1);
  EXPECT_EQ((Ints{Stored("SHIRT-M").Inherited72, Stored("SHIRT-S").Inherited72,
                  Stored("SHIRT").Inherited72, saved.Inherited72}),
            (Ints{9, 8, 9, 8}));
  UnlockOneRecord(items_);
}

TEST_F(LineItemTest, SubItemsWithJournalRowsStay) {
  LineItemRecord shirt = Master("SHIRT", {"S", "M"});
  ASSERT_EQ(InsertAllSubItems(items_, &shirt, nullptr), 1);
  AddOrder(Stored("SHIRT-M").RecordNumber, SJ, Day(2, 1), 0, 0);
  EXPECT_EQ(DeleteAllSubItems(items_, &shirt, nullptr), 0);
  EXPECT_EQ(SubItemIDs(shirt.RecordNumber).size(), 2u);  // SHIRT-S is back
  g_audit.clear();
  EXPECT_EQ((Ints{DeleteSubItems(items_, Id("SHIRT-M"), nullptr),
                  DeleteSubItems(items_, Id("SHIRT-S"), nullptr),
                  DeleteSubItems(items_, Id("SHIRT-X"), nullptr)}),
            (Ints{0, 1, 1}));
  EXPECT_EQ(SubItemIDs(shirt.RecordNumber), Strs{"SHIRT-M"});
  EXPECT_EQ(g_audit, (Audit{{"SHIRT-S", 0}}));
}

}  // namespace
