// What the job-costing units (projects, phases, cost codes, estimates) share and hosts
// must not call: text helpers of their lookups and list rows, the inactive question, and
// the scans of the journal rows and estimates that tell whether a phase or cost code is
// still named. Builds on the record manager and the utility library. Not thread-safe.
#ifndef BASICS_PROJECT_INTERNAL_H_
#define BASICS_PROJECT_INTERNAL_H_

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "dialog.h"
#include "utility.h"
#include "zor_types.h"

namespace jobs {

// Characters of an ID and of a name or description, as lists show and compare them.
constexpr size_t kIdChars = 20;
constexpr size_t kTextChars = 30;

// A terminated copy of a caller's ID (an ID field may arrive without its terminator).
inline FixedString<21> IdText(const FixedString<21>& id) {
  FixedString<21> copy;
  Assign(copy, id.s, kIdChars);
  return copy;
}

// text := string resource id (empty when the table has none).
template <size_t N>
void LoadText(unsigned id, FixedString<N>& text) {
  text.Clear();
  LoadStringA(nullptr, id, text.s, static_cast<int>(N));
}

// The inactive question of the transaction tests: true only when the user answers Yes to
// message naming id.
bool UseInactiveAnyway(int message, const char* id);

// Starts a list row: text := ID (at most 20 characters), tab, name (at most 30), cut to
// capacity. Answers false, nothing written, for a null text or capacity 0; an empty text
// and false for a null record (has_record false).
bool StartListRow(char* text, size_t capacity, bool has_record, const char* id, const char* name);

// Sends the list's tab positions (list message 2077).
void SendTabs(HWND list, const int16_t* tabs, size_t count);

// The journal row field a phase or cost code is named in.
enum class RowField { kPhase, kCostCode };
// Walks the journal rows of every job (job record number 1 and up, key 6) on a row file
// opened read-only for the moment. 1 when a row names id in field (with
// needs_cost_code, only a row that also names a cost code counts), 0 when none does, -1
// when the row file cannot be opened.
int JobRowsName(RowField field, const char* id, bool needs_cost_code);

// The estimate field a phase or cost code is named in.
enum class EstimateField { kPhase, kCostCode };
// Whether any job estimate carries record_number in field, scanning the estimate file
// opened read-only for the moment; false when it cannot be opened.
bool EstimatesName(EstimateField field, int32_t record_number);

}  // namespace jobs

#endif  // BASICS_PROJECT_INTERNAL_H_
