// The inventory options page of the host's company-settings dialog: its check boxes and
// three-way choices filled from and read back into the inventory settings record (kind 7),
// and the check for items that share a UPC/SKU code. Owns no file; the item walk uses the
// item unit's browsing handle (closed by CloseInternalItemFile). Builds on General,
// LineItemDcl and the dialog functions. User-interface thread only.
#ifndef BASICS_GENERALFLD_H_
#define BASICS_GENERALFLD_H_

#include "General.h"
#include "LineItemDcl.h"
#include "dialog.h"

// Controls of the inventory options page.
enum : int {
  kCtlChoice1060First = 9021,  // 9021 to 9023: values 0, 1, 2 of the choice at 1060
  kCtlChoice1058First = 9024,  // 9024 to 9026: values 0, 1, 2 of the choice at 1058
  kCtlCheckDupUpcSku = 9027,
  kCtlOption1057 = 9028,
};

// Sets check boxes 9027 and 9028 from the record's two options and checks, in each group
// of radio buttons, exactly the one matching its stored value (none for a value outside 0
// to 2). The record is only read; a null dialog or record changes nothing.
void LoadGeneralFolder(HWND dialog, GeneralDataType* rec);
// Stores the two check boxes into rec and, for each three-way group, the value of the
// checked button when exactly one of the three is checked (otherwise the stored value
// stays). Answers 1, also for a null dialog or record (nothing stored then).
int UnloadGeneralFolder(HWND dialog, GeneralDataType* rec);

// Walks the items in UPC/SKU order, testing each first item of a code with the one that
// follows it. On the first pair that shares a code: check box 9027 is checked, message 2551
// names the pair, and the answer is 1. 0 when no two items share a non-empty code (the
// dialog is left as it was) or the item file cannot be read.
int AreThereAnyDupUpcSku(HWND dialog);
// 1 when b carries a non-empty UPC/SKU equal to a's (first 20 characters), is not the same
// record (record number) and has another item ID (first 20 characters); else 0 (also for
// a null item). The items are only read.
int IsDuplicateUpcSku(LineItemRecord* a, LineItemRecord* b);
// Shows message 2551 (information) with b's item ID first and a's second; nothing for a
// null item.
void DisplayErrorMessage(LineItemRecord* a, LineItemRecord* b);

#endif  // BASICS_GENERALFLD_H_
