// The inventory options page and the duplicate UPC/SKU check.
#include "GENERALFLD.h"

#include "utility.h"

namespace {

// Checks exactly the button of the group (first, first + 1, first + 2) matching value.
void CheckChoice(HWND dialog, int first, uint16_t value) {
  for (int i = 0; i < 3; ++i) {
    CheckDlgButton(dialog, first + i, value == i ? BST_CHECKED : BST_UNCHECKED);
  }
}

// The group's value when exactly one button is checked; otherwise the stored value, so a
// page whose buttons were left in an odd state never invents a setting.
uint16_t ReadChoice(HWND dialog, int first, uint16_t stored) {
  int checked = 0;
  uint16_t value = stored;
  for (int i = 0; i < 3; ++i) {
    if (IsDlgButtonChecked(dialog, first + i) == BST_CHECKED) {
      ++checked;
      value = static_cast<uint16_t>(i);
    }
  }
  return checked == 1 ? value : stored;
}

bool Checked(HWND dialog, int id) { return IsDlgButtonChecked(dialog, id) == BST_CHECKED; }

}  // namespace

void LoadGeneralFolder(HWND dialog, GeneralDataType* rec) {
  if (dialog == nullptr || rec == nullptr) return;
  const InventoryRecord& inv = rec->INV;
  CheckDlgButton(dialog, kCtlCheckDupUpcSku, inv.CheckDupUpcSku ? BST_CHECKED : BST_UNCHECKED);
  CheckDlgButton(dialog, kCtlOption1057, inv.Option1057 ? BST_CHECKED : BST_UNCHECKED);
  CheckChoice(dialog, kCtlChoice1060First, inv.Choice1060);
  CheckChoice(dialog, kCtlChoice1058First, inv.Choice1058);
}

int UnloadGeneralFolder(HWND dialog, GeneralDataType* rec) {
  if (dialog == nullptr || rec == nullptr) return 1;
  InventoryRecord& inv = rec->INV;
  inv.CheckDupUpcSku = Checked(dialog, kCtlCheckDupUpcSku) ? 1 : 0;
  inv.Option1057 = Checked(dialog, kCtlOption1057) ? 1 : 0;
  inv.Choice1060 = ReadChoice(dialog, kCtlChoice1060First, inv.Choice1060);
  inv.Choice1058 = ReadChoice(dialog, kCtlChoice1058First, inv.Choice1058);
  return 1;
}

int AreThereAnyDupUpcSku(HWND dialog) {
  // Each step jumps past every item of the current code, so only the first two items of a
  // code are compared: enough to tell whether the code is shared.
  LineItemRecord first{};
  while (GetLineItemGreaterRecByKey(&first, kItemKeyUpcSku) != 0) {
    LineItemRecord next = first;
    if (GetNextLineItemRecByKey(&next, kItemKeyUpcSku) == 0) break;
    if (IsDuplicateUpcSku(&first, &next) != 0) {
      CheckDlgButton(dialog, kCtlCheckDupUpcSku, BST_CHECKED);
      DisplayErrorMessage(&first, &next);
      return 1;
    }
  }
  return 0;
}

int IsDuplicateUpcSku(LineItemRecord* a, LineItemRecord* b) {
  if (a == nullptr || b == nullptr) return 0;
  if (CompareStr(a->UpcSku, b->UpcSku, 20) != 0 || b->UpcSku.IsEmpty()) return 0;
  if (a->RecordNumber == b->RecordNumber) return 0;
  return CompareStr(a->ItemID, b->ItemID, 20) != 0 ? 1 : 0;
}

void DisplayErrorMessage(LineItemRecord* a, LineItemRecord* b) {
  if (a == nullptr || b == nullptr) return;
  MessageWithCard(MB_ICONINFORMATION, 2551, b->ItemID, a->ItemID);
}
