// The custom-field page on the dialog model: each record kind's five entries at their own
// place in the general record, the label checks with their messages, and the check boxes
// that enable their edits.
#include <cstdio>
#include <cstring>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Basics.h"
#include "scripted_messages.h"

namespace {

class CustomFieldsFolderTest : public ::testing::Test {
 protected:
  CustomFieldsFolderTest() : dialog_(CreateDialogModel()) {}
  ~CustomFieldsFolderTest() override { DestroyDialogModel(dialog_); }

  // Fills the page as a user would.
  void Fill(const std::vector<bool>& enabled, const std::vector<const char*>& labels) {
    for (int i = 0; i < 5; ++i) {
      SetDlgItemTextA(dialog_, 9001 + i, labels[i]);
      CheckDlgButton(dialog_, 9006 + i, enabled[i] ? BST_CHECKED : BST_UNCHECKED);
    }
  }
  std::string Text(int id) {
    char text[64];
    GetDlgItemTextA(dialog_, id, text, sizeof text);
    return text;
  }

  HWND dialog_;
  ScriptedMessages messages_;
};

TEST_F(CustomFieldsFolderTest, EachKindLoadsAndStoresItsOwnEntries) {
  // Five 18-byte entries (17-byte label, then the enabled flag) at each kind's offset.
  const std::pair<uint16_t, size_t> places[] = {{1, 1237}, {2, 194}, {3, 2726}, {7, 2}, {8, 2}};
  for (const auto& [kind, offset] : places) {
    SCOPED_TRACE(kind);
    GeneralDataType rec{};
    rec.Kind = kind;
    for (int i = 0; i < 5; ++i) {
      std::snprintf(reinterpret_cast<char*>(rec.raw + offset + 18 * i), 17, "Label %d", i);
      rec.raw[offset + 18 * i + 17] = i % 2;
    }
    LoadCustomFieldsFolder(dialog_, &rec);
    for (int i = 0; i < 5; ++i) {
      EXPECT_EQ(Text(9001 + i), "Label " + std::to_string(i));
      EXPECT_EQ(GetDlgItemLimit(dialog_, 9001 + i), 16);
      EXPECT_EQ(IsDlgButtonChecked(dialog_, 9006 + i), i % 2 ? BST_CHECKED : BST_UNCHECKED);
      EXPECT_EQ(IsDlgItemEnabled(dialog_, 9001 + i), i % 2 == 1);
    }
    Fill({true, false, true, false, false}, {"  Colour ", "", "Sixteen chars ok", "off", "x"});
    ASSERT_EQ(UnloadCustomFieldsFolder(dialog_, &rec, 9001), 1);
    const char* stored[] = {"Colour", "", "Sixteen chars ok", "off", "x"};
    for (int i = 0; i < 5; ++i) {
      EXPECT_STREQ(reinterpret_cast<const char*>(rec.raw + offset + 18 * i), stored[i]);
      EXPECT_EQ(rec.raw[offset + 18 * i + 17], i == 0 || i == 2 ? 1 : 0);
    }
  }
  // Kinds without custom fields leave page and record alone.
  GeneralDataType gl{};
  gl.Kind = MOD_GL;
  LoadCustomFieldsFolder(dialog_, &gl);
  EXPECT_EQ(Text(9001), "  Colour ");
  EXPECT_EQ(UnloadCustomFieldsFolder(dialog_, &gl, 9001), 0);
  EXPECT_EQ(gl.raw[2], 0);
  EXPECT_TRUE(messages_.shown().empty());
}

TEST_F(CustomFieldsFolderTest, LabelsMustBePresentAndDistinct) {
  struct Case {
    std::vector<bool> enabled;
    std::vector<const char*> labels;
    short focus;
    int message;  // 0: accepted
  };
  const Case cases[] = {
      // A blank label is reported even though two labels also repeat.
      {{true, true, true, false, false}, {"Size", "Size", "   ", "", ""}, 9003, 10320},
      {{true, false, false, false, false}, {"", "", "", "", ""}, -1, 10320},
      {{false, false, false, true, true}, {"", "", "", "Size", " Size "}, 9003, 10321},
      {{true, true, false, false, false}, {"Size", "size", "", "", ""}, 9003, 0},
      {{true, false, false, false, false}, {"Size", "Size", "   ", "", ""}, 9003, 0},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(testing::Message() << c.labels[0] << "/" << c.labels[1] << " " << c.message);
    GeneralDataType rec{};
    rec.Kind = MOD_AP;
    std::strcpy(rec.AP.CustomFields[0].Label, "Before");
    messages_.Clear();
    SetFocus(GetDlgItem(dialog_, 1));
    Fill(c.enabled, c.labels);
    EXPECT_EQ(UnloadCustomFieldsFolder(dialog_, &rec, c.focus), c.message == 0 ? 1 : 0);
    EXPECT_EQ(messages_.Numbers(), c.message ? std::vector<int>{c.message} : std::vector<int>{});
    EXPECT_EQ(GetFocusedItem(dialog_), c.message && c.focus > 0 ? c.focus : 1);
    EXPECT_EQ(std::string(rec.AP.CustomFields[0].Label) == "Before", c.message != 0);
  }
}

TEST_F(CustomFieldsFolderTest, CheckBoxesEnableTheirEdits) {
  for (int i = 0; i < 5; ++i) {
    CheckDlgButton(dialog_, 9006 + i, i == 3 ? BST_UNCHECKED : BST_CHECKED);
    EXPECT_EQ(CustomFields_OnCommand(dialog_, static_cast<short>(9006 + i), nullptr, 0), 1);
    EXPECT_EQ(IsDlgItemEnabled(dialog_, 9001 + i), i != 3) << i;
  }
  for (short other : {9005, 9011}) EXPECT_EQ(CustomFields_OnCommand(dialog_, other, nullptr, 0), 0);
  EXPECT_TRUE(IsDlgItemEnabled(dialog_, 9000) && IsDlgItemEnabled(dialog_, 9006));
}

}  // namespace
