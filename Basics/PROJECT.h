// Projects (jobs): the project file's open function, lookups between project IDs, record
// numbers and GUIDs, the check made before a transaction uses a project, list-box rows and
// whether journal rows still name a project. Owns a private read-only lookup handle (opened
// on first use, closed by CloseInternalProjFile). Builds on OpenDat and the journal row
// layout. Not thread-safe (the host serialises its calls).
#ifndef BASICS_PROJECT_H_
#define BASICS_PROJECT_H_

#include <cstddef>
#include <cstdint>

#include "dialog.h"
#include "record_manager.h"
#include "zor_types.h"

// ProjectRecord, 622 bytes. Fields the library touches; every other byte belongs to the
// host's job maintenance and is carried unchanged.
//   offset  size  field
//        0    21  project ID (20 characters and terminator); key 0
//       21     4  record number (s32); key 1
//       25    31  project name (30 characters and terminator)
//       56     4  start date
//       60     4  end date
//      336     1  inactive flag
//      379     1  uses-phases flag
//      606    16  GUID; key 5
#pragma pack(push, 1)
struct ProjectRecord {
  FixedString<21> ID;
  int32_t RecordNumber;
  FixedString<31> Name;
  DatesType StartDate;
  DatesType EndDate;
  uint8_t reserved64[272];
  uint8_t Inactive;
  uint8_t reserved337[42];
  uint8_t UsesPhases;
  uint8_t reserved380[226];
  GUID Guid;
};
#pragma pack(pop)
static_assert(sizeof(ProjectRecord) == 622, "ProjectRecord is 622 bytes");
static_assert(offsetof(ProjectRecord, RecordNumber) == 21, "project record number at 21");
static_assert(offsetof(ProjectRecord, Name) == 25, "project name at 25");
static_assert(offsetof(ProjectRecord, StartDate) == 56, "project start date at 56");
static_assert(offsetof(ProjectRecord, EndDate) == 60, "project end date at 60");
static_assert(offsetof(ProjectRecord, Inactive) == 336, "project inactive flag at 336");
static_assert(offsetof(ProjectRecord, UsesPhases) == 379, "project uses-phases flag at 379");
static_assert(offsetof(ProjectRecord, Guid) == 606, "project GUID at 606");

// Key numbers of the project file.
enum : int16_t { kProjKeyID = 0, kProjKeyRecordNumber = 1, kProjKeyGUID = 5 };

// Opens the project file (file number 13); 1 on success, the handle then the caller's to
// close. On failure 0 with *file null, shown to the user only for a file in use (the record
// manager's prompt); *file must not hold an open handle on entry.
uint8_t OpenProjFile(BtrvFile** file, uint16_t mode);

// Lookups show no message; a project file that cannot be opened answers not found.

// Whether the project exists, by a key-only read; false for an empty ID or number 0.
bool ProjExist(const FixedString<21>& id);
bool ProjExist(int32_t record_number);
// true for an active project, or an inactive one when the user answers Yes to message 804
// naming it; false after message 801 naming it when absent; false silently for an empty
// ID or a file that cannot be opened.
bool ProjTrxAllowed(const FixedString<21>& id);
// Reads equal on key with the key fields the caller set in *record; true with the record
// read, false with *record left as it was (false for a null record).
bool GetProj(ProjectRecord* record, int key);
// Record number of a project ID or GUID; 0 for an empty or unknown ID, an unknown GUID.
int32_t GetProjNumFromID(const FixedString<21>& id);
int32_t GetProjNumFromGUID(const GUID& guid);
// Clears id, then fills it; false, id empty, for number 0 or an unknown number.
bool GetProjIDFromNum(int32_t record_number, FixedString<21>& id);
// true with the project's GUID; false, guid left as it was, for 0 or an unknown number.
bool GetProjGUIDFromNum(int32_t record_number, GUID& guid);
// Clears the record, puts the key in it and reads it; false for an empty ID / number 0 or
// an unknown one, with the record cleared but for the key (false for a null record).
bool GetProjectInfo(const FixedString<21>& id, ProjectRecord* record);
bool GetProjectInfo(int32_t record_number, ProjectRecord* record);
// The project's uses-phases flag; false when absent or the ID is empty.
bool UsePhases(const FixedString<21>& id);

// --- Display -----------------------------------------------------------------------------
// name := the project's name, string 807 when inactive, string 806 when absent (or the file
// cannot be opened); answers whether the project was found.
bool SetProjName(const FixedString<21>& id, FixedString<31>& name);
// Reads the source item's text (trimmed, at most 20 characters) and puts the SetProjName
// text of that ID into the target item; answers whether the project was found. An empty
// source puts string 806 in the target and answers false.
bool SetDlgProjName(HWND dialog, short source_item, short target_item);
// text := ID (20), tab, name (30), tab, then string 807 for an inactive project, else the
// start date, tab, end date as medium date texts; cut to capacity (counting the
// terminator). Empty for a null record; nothing written for a null text or capacity 0.
void MakeProjectString(ProjectRecord* record, unsigned short capacity, char* text);
// Sets the project list's tab positions 104, 232 and 292 (list message 2077).
void SetProjectTabs(HWND list);

// --- Use --------------------------------------------------------------------------------
// Whether a journal row carries the project's record number (with phase_rows_only, a row
// that also names a phase). false for a null project, record number 0, or a journal row
// file that cannot be opened. Shows no message.
bool IsProjectUsed(ProjectRecord* project, unsigned char phase_rows_only);

// Closes the lookup handle when open.
void CloseInternalProjFile();

#endif  // BASICS_PROJECT_H_
