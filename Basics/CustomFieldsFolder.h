// The custom-field page of the host's company-settings dialog: five labels with their
// enabled flags, filled from and read back into the general record of receivables (kind
// 1), payables (2), payroll (3), inventory (7) or kind 8, with the checks that an enabled
// field has a label of its own. Owns no file. Builds on General and the dialog functions.
// User-interface thread only.
#ifndef BASICS_CUSTOMFIELDSFOLDER_H_
#define BASICS_CUSTOMFIELDSFOLDER_H_

#include "General.h"
#include "dialog.h"

// Controls of the page: label edits 9001 to 9005 and enabled check boxes 9006 to 9010 of
// entries 0 to 4.
enum : int { kCtlCustomLabelFirst = 9001, kCtlCustomEnabledFirst = 9006, kCustomFieldCount = 5 };
// The longest label.
constexpr int kCustomLabelChars = 16;

// Puts each entry's label into its edit (limited to 16 characters), sets its check box from
// the enabled flag and enables the edit only for an enabled entry. rec is only read; a null
// dialog or record, or a kind without custom fields, changes nothing.
void LoadCustomFieldsFolder(HWND dialog, GeneralDataType* rec);
// Reads the five check boxes and labels (at most 16 characters, trimmed). An enabled entry
// without a label (message 10320), or two enabled entries with the same label (message
// 10321; case counts), is refused: the control focus_control gets the focus (none for a
// negative number) and the answer is 0 with rec unchanged. Otherwise every entry's flag and
// label is stored into rec and the answer is 1. 0 without a message for a null dialog or
// record or a kind without custom fields.
int UnloadCustomFieldsFolder(HWND dialog, GeneralDataType* rec, short focus_control);
// A command from check box 9006 to 9010 enables or disables the edit five numbers lower to
// match it and answers 1; any other control answers 0 and changes nothing.
int CustomFields_OnCommand(HWND dialog, short control_id, HWND control, unsigned int notify_code);

#endif  // BASICS_CUSTOMFIELDSFOLDER_H_
