// Set-up helper of the golden tests: changes a company the way only the record manager
// can, so that a case's setup script can put it in a state a user may meet.
//
//   golden_tool drop DIR FILE    removes data file FILE (e.g. GENERAL.DAT) from DIR
//   golden_tool empty DIR FILE   deletes every record of data file FILE, keeping the file
//
// Exits 0 on success; otherwise prints the record manager's status and exits 1.
#include <cstdio>
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

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: golden_tool drop|empty DIR FILE\n");
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
