// The inventory options page on the dialog model, and the walk that finds items sharing a
// UPC/SKU code in a real company.
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Basics.h"
#include "company_test.h"
#include "master_records.h"

namespace {

// The options as stored: u8 at 1056 and 1057, u16 at 1058 and 1060.
struct Options {
  uint8_t dup, option;
  uint16_t c1058, c1060;
  bool operator==(const Options&) const = default;
};
void Store(GeneralDataType& rec, const Options& o) {
  rec.raw[1056] = o.dup;
  rec.raw[1057] = o.option;
  std::memcpy(rec.raw + 1058, &o.c1058, 2);
  std::memcpy(rec.raw + 1060, &o.c1060, 2);
}
Options Stored(const GeneralDataType& rec) {
  Options o{rec.raw[1056], rec.raw[1057], 0, 0};
  std::memcpy(&o.c1058, rec.raw + 1058, 2);
  std::memcpy(&o.c1060, rec.raw + 1060, 2);
  return o;
}

class GeneralFolderTest : public CompanyTest {
 protected:
  void SetUp() override {
    CompanyTest::SetUp();
    dialog_ = CreateDialogModel();
  }
  void TearDown() override {
    DestroyDialogModel(dialog_);
    CompanyTest::TearDown();
  }
  void CloseLibraryFiles() override { CloseInternalItemFile(); }

  // The checked controls among 9021 to 9028; Check sets exactly those given.
  std::vector<int> Checked() {
    std::vector<int> ids;
    for (int id = 9021; id <= 9028; ++id) {
      if (IsDlgButtonChecked(dialog_, id) == BST_CHECKED) ids.push_back(id);
    }
    return ids;
  }
  void Check(const std::vector<int>& ids) {
    for (int id = 9021; id <= 9028; ++id) CheckDlgButton(dialog_, id, BST_UNCHECKED);
    for (int id : ids) CheckDlgButton(dialog_, id, BST_CHECKED);
  }
  static void AddItem(const char* id, const char* upc) {
    master_records::Add<LineItemRecord>(id, [upc](LineItemRecord& r) { r.UpcSku = upc; });
  }

  HWND dialog_ = nullptr;
};

TEST_F(GeneralFolderTest, OptionsPageShowsAndStoresTheInventoryOptions) {
  GeneralDataType rec{};
  rec.Kind = MOD_INV;
  Store(rec, {1, 0, 2, 1});
  Check({9021, 9028});  // left from an earlier record
  LoadGeneralFolder(dialog_, &rec);
  EXPECT_EQ(Checked(), (std::vector<int>{9022, 9026, 9027}));
  Store(rec, {0, 1, 7, 0});  // a value outside 0 to 2 checks no button of its group
  LoadGeneralFolder(dialog_, &rec);
  EXPECT_EQ(Checked(), (std::vector<int>{9021, 9028}));

  // Exactly one checked button sets its group; none or two keep the stored value.
  const std::pair<std::vector<int>, Options> cases[] = {
      {{9023, 9024, 9027}, {1, 0, 0, 2}},
      {{9021, 9022, 9025, 9028}, {0, 1, 1, 1}},
      {{}, {0, 0, 1, 1}},
  };
  for (const auto& [checked, expected] : cases) {
    Store(rec, {0, 0, 1, 1});
    Check(checked);
    EXPECT_EQ(UnloadGeneralFolder(dialog_, &rec), 1);
    EXPECT_TRUE(Stored(rec) == expected) << checked.size() << " buttons checked";
  }
}

TEST_F(GeneralFolderTest, SharedUpcSkuFoundOnceAndNamed) {
  // Items without a code, and codes of one item each, are no duplicates.
  AddItem("NOCODE-1", "");
  AddItem("NOCODE-2", "");
  AddItem("BOLT", "111");
  AddItem("NUT", "222");
  AddItem("WASHER", "2220");
  EXPECT_EQ(AreThereAnyDupUpcSku(dialog_), 0);
  EXPECT_EQ(IsDlgButtonChecked(dialog_, 9027), BST_UNCHECKED);
  EXPECT_TRUE(messages_.shown().empty());

  AddItem("SCREW", "222");
  AddItem("RIVET", "222");
  EXPECT_EQ(AreThereAnyDupUpcSku(dialog_), 1);
  EXPECT_EQ(IsDlgButtonChecked(dialog_, 9027), BST_CHECKED);
  ASSERT_EQ(messages_.Numbers(), std::vector<int>{2551});  // the first pair only
  EXPECT_EQ(messages_.Last().style, MB_ICONINFORMATION);
  const std::string& text = messages_.Last().text;
  EXPECT_LT(text.find("SCREW"), text.find("NUT")) << text;  // the later item first

  // The same record, or another record of the same ID, is no duplicate.
  LineItemRecord a{};
  a.ItemID = "NUT";
  a.UpcSku = "222";
  a.RecordNumber = 4;
  LineItemRecord b = a;
  EXPECT_EQ(IsDuplicateUpcSku(&a, &b), 0);
  b.RecordNumber = 9;
  EXPECT_EQ(IsDuplicateUpcSku(&a, &b), 0);
  b.ItemID = "SCREW";
  EXPECT_EQ(IsDuplicateUpcSku(&a, &b), 1);
}

}  // namespace
