// Set-up helper of the golden tests: changes a company the way only the record manager
// can, so that a case's setup script can put it in a state a user may meet.
//
//   golden_tool drop DIR FILE    removes data file FILE (e.g. GENERAL.DAT) from DIR
//   golden_tool empty DIR FILE   deletes every record of data file FILE, keeping the file
// and damages a book the way a crash or a faulty program might, behind the posting's back:
//   golden_tool unbalance DIR POST            adds 1.00 to the first line of transaction POST
//                                             (its post order number)
//   golden_tool drop-row DIR POST LINE        deletes the rows of line LINE (0: the main row)
//   golden_tool drop-header DIR POST          deletes the header of transaction POST
//   golden_tool renumber DIR POST NUMBER      gives transaction POST the number NUMBER
//   golden_tool drop-account DIR ID           deletes account ID from the chart
// and, as a bank reconciliation would:
//   golden_tool clear DIR POST YYYY-MM-DD     marks every row of transaction POST cleared
//
// Exits 0 on success; otherwise prints the record manager's status and exits 1.
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <vector>

#include "Basics.h"

namespace {

constexpr const char* kTool = "golden_tool";

int Fail(const char* what, const std::string& name, uint16_t status) {
  std::fprintf(stderr, "golden_tool: cannot %s %s (status %u)\n", what, name.c_str(), status);
  return 1;
}

// The record lengths of the files a case may empty.
bool RecordLength(const char* file, uint16_t* length) {
  const struct {
    const char* name;
    DataFileKind kind;
  } kFiles[] = {{"GENERAL.DAT", DataFileKind::kGeneral},
                {"CHART.DAT", DataFileKind::kChart},
                {"CUSTOMER.DAT", DataFileKind::kCustomer},
                {"VENDOR.DAT", DataFileKind::kVendor},
                {"EMPLOYEE.DAT", DataFileKind::kEmployee}};
  for (const auto& f : kFiles) {
    FileSpec spec{};
    if (std::strcmp(f.name, file) == 0 && DescribeDataFile(f.kind, &spec)) {
      *length = spec.recordLength;
      return true;
    }
  }
  return false;
}

int Empty(const std::string& name, uint16_t length) {
  BtrvFile* file = nullptr;
  if (RealOpenBFileOwner(&file, name.c_str(), kOpenModeNormal, 0, csTheOwner.c_str(), kTool,
                         __LINE__) == 0) {
    return Fail("open", name, GetErrorCode(nullptr));
  }
  std::vector<char> buffer(length);
  uint16_t status = 0;
  while (status == 0) {
    if (GetFileLowest(file, kLockBiasNone, length, buffer.data(), 0) == 0) {
      if (GetErrorCode(file) != kStatusEndOfFile) status = GetErrorCode(file);
      break;
    }
    if (DeleteRecord(file, length, buffer.data()) == 0) status = GetErrorCode(file);
  }
  RealCloseFile(&file, kTool, __LINE__);
  return status == 0 ? 0 : Fail("empty", name, status);
}

// The date that the clear action gives the rows.
DatesType g_cleared{};

// Opens the data file named base in dir for writing into *file.
bool Open(const std::string& dir, const char* base, BtrvFile** file) {
  const std::string name = dir + "/" + base;
  return RealOpenBFileOwner(file, name.c_str(), kOpenModeNormal, 0, csTheOwner.c_str(), kTool,
                            __LINE__) != 0;
}

// Applies change to every row of transaction post (of line line; -1 every line), or
// deletes them when change is null. Answers the number of rows met, or -1.
int ChangeRows(const std::string& dir, uint32_t post, int line, void (*change)(JrnlRowType*)) {
  BtrvFile* file = nullptr;
  if (!Open(dir, JrnlRowFileName.c_str(), &file)) return -1;
  constexpr int16_t kPostOrderKey = 0;
  int met = 0;
  bool ok = true;
  JrnlRowType row{};
  row.PostOrder = post;
  for (uint8_t found = GetFileGE(file, kLockBiasNone, sizeof row, &row, kPostOrderKey);
       ok && found && row.PostOrder == post;
       found = GetFileNext(file, kLockBiasNone, sizeof row, &row, kPostOrderKey)) {
    if (line >= 0 && row.LineNumber != line) continue;
    ++met;
    if (change == nullptr) {
      ok = DeleteRecord(file, sizeof row, &row) != 0;
    } else {
      change(&row);
      ok = UpdateFile(file, sizeof row, &row, kPostOrderKey) != 0;
    }
  }
  RealCloseFile(&file, kTool, __LINE__);
  return ok ? met : -1;
}

// The header of transaction post: deleted, or rewritten with a new number (deleted and
// inserted again, as its key changes).
int ChangeHeader(const std::string& dir, uint32_t post, bool renumber, int32_t number) {
  BtrvFile* file = nullptr;
  const std::string name = dir + "/" + JrnlHdrFileName.c_str();
  if (!Open(dir, JrnlHdrFileName.c_str(), &file)) return Fail("open", name, GetErrorCode(nullptr));
  constexpr int16_t kPostOrderKey = 5;
  JrnlHdrType hdr{};
  hdr.PostOrder = post;
  uint16_t status = 0;
  if (GetFileEqual(file, kLockBiasNone, sizeof hdr, &hdr, kPostOrderKey) == 0 ||
      DeleteRecord(file, sizeof hdr, &hdr) == 0) {
    status = GetErrorCode(file);
  } else if (renumber) {
    hdr.Key1.TrxNumber = number;
    if (InsertRecord(file, sizeof hdr, &hdr) == 0) status = GetErrorCode(file);
  }
  RealCloseFile(&file, kTool, __LINE__);
  return status == 0 ? 0 : Fail("change a header in", name, status);
}

int DropAccount(const std::string& dir, const char* id) {
  BtrvFile* file = nullptr;
  const std::string name = dir + "/CHART.DAT";
  if (!Open(dir, "CHART.DAT", &file)) return Fail("open", name, GetErrorCode(nullptr));
  AccountType account{};
  account.ID = id;
  uint16_t status = 0;
  if (GetFileEqual(file, kLockBiasNone, sizeof account, &account, kChartKeyID) == 0 ||
      DeleteRecord(file, sizeof account, &account) == 0) {
    status = GetErrorCode(file);
  }
  RealCloseFile(&file, kTool, __LINE__);
  return status == 0 ? 0 : Fail("delete an account in", name, status);
}

int Damage(const std::string& action, const std::string& dir, char** args, int count) {
  const uint32_t post = static_cast<uint32_t>(std::strtoul(args[0], nullptr, 10));
  if (action == "drop-header" && count == 1) return ChangeHeader(dir, post, false, 0);
  if (action == "renumber" && count == 2) {
    return ChangeHeader(dir, post, true, static_cast<int32_t>(std::strtol(args[1], nullptr, 10)));
  }
  int met = -2;
  if (action == "unbalance" && count == 1) {
    met = ChangeRows(dir, post, 1, [](JrnlRowType* row) {
      if (row->Kind == kRowDistribution) row->Amount = row->Amount + 1.0;
    });
  }
  if (action == "clear" && count == 2) {
    int year = 0, month = 0, day = 0;
    if (std::sscanf(args[1], "%d-%d-%d", &year, &month, &day) != 3) return 2;
    MakeDate(month, day, year, g_cleared);
    met = ChangeRows(dir, post, -1, [](JrnlRowType* row) { row->DateCleared = g_cleared; });
  }
  if (action == "drop-row" && count == 2) {
    met = ChangeRows(dir, post, static_cast<int>(std::strtol(args[1], nullptr, 10)), nullptr);
  }
  if (met == -2) {
    std::fprintf(stderr, "golden_tool: unknown action '%s' or wrong arguments\n", action.c_str());
    return 2;
  }
  if (met <= 0) {
    std::fprintf(stderr, "golden_tool: no rows of post order %u changed\n", post);
    return 1;
  }
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc >= 4 && std::strcmp(argv[1], "drop-account") == 0) return DropAccount(argv[2], argv[3]);
  if (argc >= 4 && std::strcmp(argv[1], "drop") != 0 && std::strcmp(argv[1], "empty") != 0) {
    return Damage(argv[1], argv[2], argv + 3, argc - 3);
  }
  if (argc != 4) {
    std::fprintf(stderr, "usage: golden_tool drop|empty DIR FILE, or an action on a book\n");
    return 2;
  }
  const std::string name = std::string(argv[2]) + "/" + argv[3];
  if (std::strcmp(argv[1], "drop") == 0) {
    uint16_t status = ZORDeleteFile(name.c_str());
    return status == 0 ? 0 : Fail("drop", name, status);
  }
  uint16_t length = 0;
  if (std::strcmp(argv[1], "empty") == 0) {
    if (!RecordLength(argv[3], &length)) {
      std::fprintf(stderr, "golden_tool: cannot empty %s\n", argv[3]);
      return 2;
    }
    return Empty(name, length);
  }
  std::fprintf(stderr, "golden_tool: unknown action '%s'\n", argv[1]);
  return 2;
}
