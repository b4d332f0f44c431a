// The custom-field page: five labels and enabled flags per record kind.
#include "CustomFieldsFolder.h"

#include <cstring>

#include "utility.h"

namespace {

constexpr int kMessageLabelMissing = 10320;
constexpr int kMessageLabelTwice = 10321;

// The five entries of a record kind that has custom fields; null for any other kind.
CustomFieldDef* EntriesOf(GeneralDataType* rec) {
  switch (rec->Kind) {
    case MOD_AR:
      return rec->AR.CustomFields;
    case MOD_AP:
      return rec->AP.CustomFields;
    case MOD_PR:
      return rec->PR.CustomFields;
    case MOD_INV:
      return rec->INV.CustomFields;
    case MOD_8:
      return rec->M8.CustomFields;
    default:
      return nullptr;
  }
}

struct PageEntry {
  bool enabled;
  char label[kCustomLabelChars + 1];
};

// Focuses the control named by the caller; a negative number names none.
void Refuse(HWND dialog, short focus_control, int message) {
  if (focus_control >= 0) SetFocus(GetDlgItem(dialog, focus_control));
  Message(MB_ICONEXCLAMATION, message);
}

}  // namespace

void LoadCustomFieldsFolder(HWND dialog, GeneralDataType* rec) {
  if (dialog == nullptr || rec == nullptr) return;
  const CustomFieldDef* entries = EntriesOf(rec);
  if (entries == nullptr) return;
  for (int i = 0; i < kCustomFieldCount; ++i) {
    char label[kCustomLabelChars + 1];
    sstrcpy(label, entries[i].Label, sizeof label);  // a stored label may lack its terminator
    const int edit = kCtlCustomLabelFirst + i;
    SetDlgItemTextA(dialog, edit, label);
    SendDlgItemMessageA(dialog, edit, EM_LIMITTEXT, kCustomLabelChars, 0);
    const bool enabled = entries[i].Enabled != 0;
    CheckDlgButton(dialog, kCtlCustomEnabledFirst + i, enabled ? BST_CHECKED : BST_UNCHECKED);
    EnableWindow(GetDlgItem(dialog, edit), enabled ? 1 : 0);
  }
}

int UnloadCustomFieldsFolder(HWND dialog, GeneralDataType* rec, short focus_control) {
  if (dialog == nullptr || rec == nullptr) return 0;
  CustomFieldDef* entries = EntriesOf(rec);
  if (entries == nullptr) return 0;

  PageEntry page[kCustomFieldCount];
  for (int i = 0; i < kCustomFieldCount; ++i) {
    page[i].enabled = IsDlgButtonChecked(dialog, kCtlCustomEnabledFirst + i) == BST_CHECKED;
    GetDlgItemTextA(dialog, kCtlCustomLabelFirst + i, page[i].label, sizeof page[i].label);
    Trim(page[i].label);
  }
  // Every missing label is reported before any duplicate is looked for.
  for (const PageEntry& entry : page) {
    if (entry.enabled && entry.label[0] == '\0') {
      Refuse(dialog, focus_control, kMessageLabelMissing);
      return 0;
    }
  }
  for (int i = 0; i < kCustomFieldCount; ++i) {
    for (int j = i + 1; j < kCustomFieldCount; ++j) {
      if (page[i].enabled && page[j].enabled && std::strcmp(page[i].label, page[j].label) == 0) {
        Refuse(dialog, focus_control, kMessageLabelTwice);
        return 0;
      }
    }
  }
  for (int i = 0; i < kCustomFieldCount; ++i) {
    entries[i].Enabled = page[i].enabled ? 1 : 0;
    std::memset(entries[i].Label, 0, sizeof entries[i].Label);
    sstrcpy(entries[i].Label, page[i].label, sizeof entries[i].Label);
  }
  return 1;
}

int CustomFields_OnCommand(HWND dialog, short control_id, HWND /*control*/,
                           unsigned int /*notify_code*/) {
  if (control_id < kCtlCustomEnabledFirst ||
      control_id >= kCtlCustomEnabledFirst + kCustomFieldCount) {
    return 0;
  }
  const bool checked = IsDlgButtonChecked(dialog, control_id) == BST_CHECKED;
  EnableWindow(GetDlgItem(dialog, control_id - (kCtlCustomEnabledFirst - kCtlCustomLabelFirst)),
               checked ? 1 : 0);
  return 1;
}
