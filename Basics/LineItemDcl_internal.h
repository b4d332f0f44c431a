// What the item unit's sources share and hosts must not call: its two read-only item
// handles, the table of the fields a sub-item inherits, and the forming of sub-item IDs.
#ifndef BASICS_LINEITEMDCL_INTERNAL_H_
#define BASICS_LINEITEMDCL_INTERNAL_H_

#include <cstddef>
#include <cstdint>

#include "LineItemDcl.h"
#include "record_manager.h"

namespace lineitem {

constexpr const char* kUnit = "Basics/LineItemDcl";
constexpr uint32_t kItemLength = sizeof(LineItemRecord);

// ItemFile, the browsing handle, opened read-only when still closed; null when it cannot be.
BtrvFile* BrowseHandle();
// The conversion handle, likewise.
BtrvFile* ConversionHandle();

// A field of the item record by offset and width.
struct FieldSpan {
  uint16_t offset;
  uint16_t size;
};

// The description and every inherited field, in record order. The 21 bytes at 1152 are
// listed whole; a new sub-item takes only their first 4 (kField1152Taken).
constexpr FieldSpan kInheritedFields[] = {
    {37, 31},  {72, 1},     {128, 161}, {289, 161}, {450, 9},   {459, 7},
    {466, 4},  {470, 2},    {1144, 4},  {1148, 4},  {1152, 21}, {4340, 5 * 41},
    {4545, 2}, {4547, 550}, {5097, 11}, {5108, 1},  {5118, 8},  {5126, 4},
};
constexpr uint16_t kField1152Taken = 4;

inline uint8_t* Bytes(LineItemRecord* r) { return reinterpret_cast<uint8_t*>(r); }
inline const uint8_t* Bytes(const LineItemRecord* r) { return reinterpret_cast<const uint8_t*>(r); }

// A value count as stored, kept within the 20 slots of an attribute block.
inline int ValueCount(int32_t stored) { return stored < 0 ? 0 : (stored > 20 ? 20 : stored); }

// The ID of a sub-item: the master's ID, "-", at most 4 characters of the first code and,
// when second is not null, "-" and at most 4 characters of the second; cut to 20.
FixedString<21> FormSubItemID(const FixedString<21>& master_id, const FixedString<5>& first,
                              const FixedString<5>* second);

// Calls visit(id, first_index, second_index) for every sub-item ID the master's attributes
// form (second_index -1 with one attribute), first values outermost, until visit answers
// false. Answers false when a visit did.
template <typename Visit>
bool ForEachSubItemID(const LineItemRecord& master, Visit visit) {
  const int firsts = ValueCount(master.FirstValueCount);
  const int seconds = ValueCount(master.SecondValueCount);
  for (int i = 0; i < firsts; ++i) {
    const FixedString<5>& first = master.FirstAttributes.Codes[i];
    if (seconds == 0) {
      if (!visit(FormSubItemID(master.ItemID, first, nullptr), i, -1)) return false;
      continue;
    }
    for (int j = 0; j < seconds; ++j) {
      const FixedString<5>& second = master.SecondAttributes.Codes[j];
      if (!visit(FormSubItemID(master.ItemID, first, &second), i, j)) return false;
    }
  }
  return true;
}

// Reports a written or removed item to the host's audit hook, when set.
void ReportToAuditTrail(const LineItemRecord* record, unsigned short action, HWND window);

}  // namespace lineitem

#endif  // BASICS_LINEITEMDCL_INTERNAL_H_
