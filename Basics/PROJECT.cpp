// Projects: lookups on the module's private read-only handle, the transaction test, list
// rows, and the journal-row walks that the project, phase and cost-code use tests share.
#include "PROJECT.h"

#include <cstring>

#include "JOURNAL.h"
#include "OpenDat.h"
#include "OpenDat_internal.h"
#include "PROJECT_internal.h"
#include "record_manager.h"
#include "utility.h"

namespace {

constexpr const char* kUnit = "Basics/PROJECT";

// Message and string numbers.
constexpr int kMsgProjectNotFound = 801;
constexpr int kMsgProjectInactive = 804;
constexpr unsigned kStrProjectMissing = 806;
constexpr unsigned kStrProjectInactive = 807;

// Medium date text: 12 characters and terminator.
constexpr size_t kDateChars = 13;

// Key 6 of the journal row file orders rows by job record number, then date.
constexpr int16_t kRowKeyJob = 6;

int OpenForLookup(BtrvFile** file, uint16_t mode) { return OpenProjFile(file, mode); }

MasterLookup<ProjectRecord> g_lookup(OpenForLookup, kUnit, kProjKeyID, kProjKeyRecordNumber,
                                     kProjKeyGUID);

// Reads a project by ID; an empty ID never reaches the file.
bool ReadById(const FixedString<21>& id, ProjectRecord* record) {
  if (id.IsEmpty()) {
    MasterLookup<ProjectRecord>::KeyById(record, id);
    return false;
  }
  return g_lookup.ReadById(id, record);
}

bool ReadByNumber(int32_t record_number, ProjectRecord* record) {
  if (record_number == 0) {
    MasterLookup<ProjectRecord>::KeyByNumber(record, 0);
    return false;
  }
  return g_lookup.ReadByNumber(record_number, record);
}

// Opens the journal row file read-only for one walk; null when it cannot be opened.
BtrvFile* OpenRowsForWalk() {
  BtrvFile* rows = nullptr;
  return OpenJrnlRowFile(&rows, kOpenModeReadOnly) != 0 ? rows : nullptr;
}

}  // namespace

uint8_t OpenProjFile(BtrvFile** file, uint16_t mode) {
  return BASICS_OPEN_OWNER(file, ProjectName, mode, kFileNoProject, csTheOwner.c_str(),
                           "Basics/PROJECT") != 0
             ? 1
             : 0;
}

bool ProjExist(const FixedString<21>& id) {
  if (id.IsEmpty()) return false;
  BtrvFile* file = g_lookup.Handle();
  if (file == nullptr) return false;
  // A key-only read: the record itself is never fetched.
  FixedString<21> key = id;
  return GetFileEqual(file, kLockBiasKeyOnly, sizeof key, &key, kProjKeyID) != 0;
}

bool ProjExist(int32_t record_number) {
  if (record_number == 0) return false;
  BtrvFile* file = g_lookup.Handle();
  if (file == nullptr) return false;
  int32_t key = record_number;
  return GetFileEqual(file, kLockBiasKeyOnly, sizeof key, &key, kProjKeyRecordNumber) != 0;
}

bool ProjTrxAllowed(const FixedString<21>& id) {
  if (id.IsEmpty()) return false;
  if (g_lookup.Handle() == nullptr) return false;
  const FixedString<21> text = jobs::IdText(id);
  ProjectRecord record;
  if (!g_lookup.ReadById(id, &record)) {
    MessageWithString(MB_ICONEXCLAMATION, kMsgProjectNotFound, text.s);
    return false;
  }
  if (!record.Inactive) return true;
  return jobs::UseInactiveAnyway(kMsgProjectInactive, text.s);
}

bool GetProj(ProjectRecord* record, int key) {
  if (record == nullptr) return false;
  BtrvFile* file = g_lookup.Handle();
  return file != nullptr && ReadEqual(file, record, static_cast<int16_t>(key));
}

int32_t GetProjNumFromID(const FixedString<21>& id) {
  ProjectRecord record;
  return ReadById(id, &record) ? record.RecordNumber : 0;
}

int32_t GetProjNumFromGUID(const GUID& guid) {
  ProjectRecord record;
  return g_lookup.ReadByGuid(guid, &record) ? record.RecordNumber : 0;
}

bool GetProjIDFromNum(int32_t record_number, FixedString<21>& id) {
  id.Clear();
  ProjectRecord record;
  if (!ReadByNumber(record_number, &record)) return false;
  id = record.ID;
  return true;
}

bool GetProjGUIDFromNum(int32_t record_number, GUID& guid) {
  ProjectRecord record;
  if (!ReadByNumber(record_number, &record)) return false;
  guid = record.Guid;
  return true;
}

bool GetProjectInfo(const FixedString<21>& id, ProjectRecord* record) {
  return record != nullptr && ReadById(id, record);
}

bool GetProjectInfo(int32_t record_number, ProjectRecord* record) {
  return record != nullptr && ReadByNumber(record_number, record);
}

bool UsePhases(const FixedString<21>& id) {
  ProjectRecord record;
  return ReadById(id, &record) && record.UsesPhases != 0;
}

// --- Display ----------------------------------------------------------------------------

bool SetProjName(const FixedString<21>& id, FixedString<31>& name) {
  ProjectRecord record;
  if (!ReadById(id, &record)) {
    jobs::LoadText(kStrProjectMissing, name);
    return false;
  }
  if (record.Inactive) {
    jobs::LoadText(kStrProjectInactive, name);
  } else {
    Assign(name, record.Name.s, jobs::kTextChars);
  }
  return true;
}

bool SetDlgProjName(HWND dialog, short source_item, short target_item) {
  // Read more than an ID's width so that blanks around the ID do not push it out.
  char typed[256] = {};
  GetDlgItemTextA(dialog, source_item, typed, static_cast<int>(sizeof typed));
  FixedString<21> id;
  Assign(id, Trim(typed), jobs::kIdChars);
  FixedString<31> name;
  if (id.IsEmpty()) {
    jobs::LoadText(kStrProjectMissing, name);
    SetDlgItemTextA(dialog, target_item, name.s);
    return false;
  }
  const bool found = SetProjName(id, name);
  SetDlgItemTextA(dialog, target_item, name.s);
  return found;
}

void MakeProjectString(ProjectRecord* record, unsigned short capacity, char* text) {
  if (!jobs::StartListRow(text, capacity, record != nullptr,
                          record != nullptr ? record->ID.s : nullptr,
                          record != nullptr ? record->Name.s : nullptr)) {
    return;
  }
  sstrcat(text, "\t", capacity);
  if (record->Inactive) {
    // The label stands in for both dates: an inactive job's schedule no longer matters.
    FixedString<31> label;
    jobs::LoadText(kStrProjectInactive, label);
    sstrcat(text, label.s, capacity);
    return;
  }
  char date[kDateChars];
  MediumDateText(record->StartDate, date, sizeof date);
  sstrcat(text, date, capacity);
  sstrcat(text, "\t", capacity);
  MediumDateText(record->EndDate, date, sizeof date);
  sstrcat(text, date, capacity);
}

void SetProjectTabs(HWND list) {
  static const int16_t kTabs[] = {104, 232, 292};
  jobs::SendTabs(list, kTabs, sizeof kTabs / sizeof kTabs[0]);
}

// --- Use ------------------------------------------------------------------------------------

bool IsProjectUsed(ProjectRecord* project, unsigned char phase_rows_only) {
  if (project == nullptr || project->RecordNumber == 0) return false;
  BtrvFile* rows = OpenRowsForWalk();
  if (rows == nullptr) return false;  // unlike phases and cost codes: a delete may go on
  const int32_t job = project->RecordNumber;
  JrnlRowType row;
  std::memset(&row, 0, sizeof row);
  row.Job = job;
  bool used = false;
  // Rows are in job order, so the project's rows come together from the first one at or
  // after its number; the walk ends with them.
  for (uint8_t ok = GetFileGE(rows, kLockBiasNone, sizeof row, &row, kRowKeyJob);
       ok != 0 && row.Job == job;
       ok = GetFileNext(rows, kLockBiasNone, sizeof row, &row, kRowKeyJob)) {
    if (!phase_rows_only || row.Phase[0] != '\0') {
      used = true;
      break;
    }
  }
  BASICS_CLOSE(&rows, kUnit);
  return used;
}

void CloseInternalProjFile() { g_lookup.Close(); }

// --- Shared with the phase and cost-code units --------------------------------------------

namespace jobs {

bool UseInactiveAnyway(int message, const char* id) {
  return MessageWithString(MB_YESNO | MB_ICONQUESTION, message, id) == IDYES;
}

bool StartListRow(char* text, size_t capacity, bool has_record, const char* id, const char* name) {
  if (text == nullptr || capacity == 0) return false;
  std::memset(text, 0, capacity);
  if (!has_record) return false;
  FixedString<21> id_text;
  Assign(id_text, id, kIdChars);
  FixedString<31> name_text;
  Assign(name_text, name, kTextChars);
  sstrcat(text, id_text.s, capacity);
  sstrcat(text, "\t", capacity);
  sstrcat(text, name_text.s, capacity);
  return true;
}

void SendTabs(HWND list, const int16_t* tabs, size_t count) {
  SendMessageA(list, LB_SETTABSTOPS_MSG, static_cast<WPARAM>(count),
               reinterpret_cast<LPARAM>(tabs));
}

int JobRowsName(RowField field, const char* id, bool needs_cost_code) {
  BtrvFile* rows = OpenRowsForWalk();
  if (rows == nullptr) return -1;
  JrnlRowType row;
  std::memset(&row, 0, sizeof row);
  row.Job = 1;  // rows of no job (0) never count
  int named = 0;
  for (uint8_t ok = GetFileGE(rows, kLockBiasNone, sizeof row, &row, kRowKeyJob); ok != 0;
       ok = GetFileNext(rows, kLockBiasNone, sizeof row, &row, kRowKeyJob)) {
    const char* text = field == RowField::kPhase ? row.Phase : row.CostCode;
    if (CompareStr(text, id, kIdChars) == 0 && (!needs_cost_code || row.CostCode[0] != '\0')) {
      named = 1;
      break;
    }
  }
  BASICS_CLOSE(&rows, kUnit);
  return named;
}

}  // namespace jobs
