// The built-in English texts of the messages and string resources that the library shows.
// Message texts mark their inserts with %s (a name or an ID) and %ld (a number); the
// message functions fill them with their own small formatter, never with printf.

#include <algorithm>
#include <iterator>

#include "message_table_internal.h"

namespace {

constexpr NumberedText kMessages[] = {
    // Journal names, shown in lists and titles; each fits a 29-character field.
    {310, "Cash Disbursements Journal"},
    {311, "General Journal"},
    {312, "Purchases Journal"},
    {313, "Cash Receipts Journal"},
    {314, "Sales Journal"},
    {315, "Payroll Journal"},
    {316, "Cost of Goods Sold Journal"},
    {317, "Inventory Adjustment Journal"},
    {318, "Assembly Journal"},
    {319, "Purchase Orders"},
    {320, "Sales Orders"},
    {321, "Second Sales Journal"},
    {322, "Sales/Invoicing Journal"},
    {323, "Purchases/Receiving Journal"},
    // Projects.
    {801, "Project %s was not found."},
    {804, "Project %s is inactive.\nDo you want to use it anyway?"},
    // Chart of accounts.
    {1913, "No cash account is set up for bank reconciliation."},
    {2200, "The chart of accounts file could not be created."},
    {2203, "Account %s was not found."},
    {2204, "Account %s is inactive.\nDo you want to use it anyway?"},
    // Journal.
    {2400, "The journal files could not be created."},
    {2417, "The invoice that a cash-basis line applies to was not found."},
    {2477, "A receipt can hold at most 560 lines."},
    {2493, "A receipt can hold at most 560 lines."},
    {2507, "The customer payment shadow record could not be written."},
    {2508, "The vendor receipt shadow record could not be written."},
    {2509, "The customer payment shadow record was not found."},
    {2510, "The vendor receipt shadow record was not found."},
    {2533, "The account was not found."},
    // Items.
    {2550, "Item %s already uses this UPC/SKU."},
    {2551, "Items %s and %s have the same UPC/SKU."},
    {4482, "Sub-item %s has journal activity and cannot be changed."},
    {4484, "A sub-item's ID would be the same as the ID of an existing item."},
    {4493, "Attribute code %s cannot be changed: sub-item %s has journal activity."},
    {4497, "Sub-item %s is a component of another item."},
    // General file.
    {5500, "The general file could not be created."},
    {5501, "A default general record could not be written (record manager status %ld)."},
    {5502, "A general record could not be read (record kind %ld)."},
    {5503,
     "The company settings are being changed elsewhere: the general file is already open "
     "for writing.\nPress Retry to try again."},
    // Custom fields.
    {10320, "An enabled custom field needs a label."},
    {10321, "Two custom fields have the same label.\nEach custom field needs a label of its own."},
    // Phases and cost codes.
    {15603, "Phase %s was not found."},
    {15604, "Phase %s is inactive.\nDo you want to use it anyway?"},
    {15703, "Cost code %s was not found."},
    {15704, "Cost code %s is inactive.\nDo you want to use it anyway?"},
    // Record-manager statuses (20000 + status); the insert is the file's name.
    {20002, "The data file %s could not be read or written; it may be damaged."},
    {20003, "The data file %s is not open."},
    {20004, "A record was not found in the data file %s."},
    {20005, "A record with the same key already exists in the data file %s."},
    {20006, "An invalid key number was used on the data file %s."},
    {20008, "There is no current record in the data file %s."},
    {20009, "The end of the data file %s was reached."},
    {20010, "A key that cannot be changed was changed in the data file %s."},
    {20012, "The data file %s was not found."},
    {20018, "The disk is full: the data file %s could not be written."},
    {20022, "A record of the wrong length was used on the data file %s."},
    {20025, "The data file %s could not be created from its description."},
    {20043, "An invalid record position was used on the data file %s."},
    {20046, "The data file %s is open for reading only and cannot be written."},
    {20051, "The owner name of the data file %s is wrong or missing."},
    {20059, "The data file %s already exists."},
    {20080, "A record in the data file %s was changed by another user since it was read."},
    {20084, "A record in the data file %s is in use by another user.\nPress Retry to try again."},
    {20085, "The data file %s is in use by another user.\nPress Retry to try again."},
    {20258, "Another user is running an operation that must run alone.\nPress Retry to try again."},
};

constexpr NumberedText kStrings[] = {
    {806, "<Project not found>"},
    {807, "<Inactive Project>"},
    {2206, "<Account not found>"},
    {2207, "<Inactive Account>"},
    {2208, "<Unknown Account Type>"},
    {2220, "Cash"},
    {2221, "Accounts Receivable"},
    {2222, "Inventory"},
    {2223, "Other Current Assets"},
    {2224, "Fixed Assets"},
    {2225, "Accumulated Depreciation"},
    {2226, "Other Assets"},
    {2227, "Accounts Payable"},
    {2228, "Other Current Liabilities"},
    {2229, "Long Term Liabilities"},
    {2230, "Equity - Does Not Close"},
    {2231, "Equity - Retained Earnings"},
    {2232, "Equity - Gets Closed"},
    {2233, "Income"},
    {2234, "Cost of Sales"},
    {2235, "Expenses"},
    {2236, "Other Account Type"},
    {2252, "Increase"},
    {2253, "Decrease"},
    {4406, "Sales Tax"},
    {10106, "Reminder"},
    {15706, "<Inactive Cost Code>"},
};

template <size_t N>
constexpr bool IsSorted(const NumberedText (&table)[N]) {
  for (size_t i = 1; i < N; ++i) {
    if (table[i - 1].number >= table[i].number) return false;
  }
  return true;
}
static_assert(IsSorted(kMessages), "message numbers are sorted and unique");
static_assert(IsSorted(kStrings), "string numbers are sorted and unique");

template <size_t N>
const char* Find(const NumberedText (&table)[N], int number) {
  const NumberedText* end = table + N;
  const NumberedText* found = std::lower_bound(
      table, end, number, [](const NumberedText& entry, int n) { return entry.number < n; });
  return found != end && found->number == number ? found->text : nullptr;
}

}  // namespace

const char* const kGenericStatusMessage = "The record manager could not use the data file %s.";

const char* FindMessageText(int number) {
  const char* text = Find(kMessages, number);
  if (text == nullptr && number >= kStatusMessageBase && number <= kStatusMessageLast) {
    return kGenericStatusMessage;
  }
  return text;
}

const char* FindStringText(unsigned id) {
  if (id > 0x7FFFFFFFu) return nullptr;
  return Find(kStrings, static_cast<int>(id));
}

const NumberedText* MessageTable(size_t* count) {
  if (count != nullptr) *count = std::size(kMessages);
  return kMessages;
}

const NumberedText* StringTable(size_t* count) {
  if (count != nullptr) *count = std::size(kStrings);
  return kStrings;
}
