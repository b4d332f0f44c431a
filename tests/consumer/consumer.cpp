// An outside program built against an installed copy of the library: it sees only
// "Basics.h" and the installed libraries. It makes a company in a fresh directory, adds one
// account through the record manager, finds it again through the chart lookups and prints
// what it found; it exits non-zero when any step fails.
#include <stdlib.h>
#include <unistd.h>

#include <cstdio>
#include <filesystem>
#include <string>

#include "Basics.h"

namespace {

int Check(bool ok, const char* step) {
  if (!ok) std::fprintf(stderr, "consumer: %s failed\n", step);
  return ok ? 0 : 1;
}

int Run(const std::string& dir) {
  if (CreateNewCompany(dir.c_str()) != 1 || chdir(dir.c_str()) != 0) {
    return Check(false, "creating the company");
  }
  g_szCompanyPath = dir.c_str();

  BtrvFile* chart = nullptr;
  if (OpenChartFile(&chart, kOpenModeNormal) == 0) return Check(false, "opening the chart");
  AccountType account = {};
  account.ID = "1100";
  account.Description = "Cash at bank";
  AssignGUID(account.Guid);
  const bool inserted =
      NumRecsInFile(chart) == 0 && InsertRecord(chart, sizeof account, &account) != 0;
  RealCloseFile(&chart, __FILE__, __LINE__);
  if (Check(inserted, "adding an account") != 0) return 1;

  FixedString<16> id;
  id = "1100";
  const int32_t number = GetAcctRecNumFromID(id);
  AccountType found = {};
  const bool read = GetAccountInfo(number, &found);
  CloseInternalChartFile();
  DeallocGeneralRecReadPtr();
  if (Check(number == 1 && read, "finding the account") != 0) return 1;
  std::printf("account %s is record %d: %s\n", found.ID.c_str(), static_cast<int>(number),
              found.Description.c_str());
  return Check(ListOpenHandles().empty(), "closing every handle");
}

}  // namespace

int main() {
  std::string dir = (std::filesystem::temp_directory_path() / "basics-consumer-XXXXXX").string();
  if (mkdtemp(dir.data()) == nullptr) return Check(false, "making a directory");
  const int status = Run(dir);
  if (chdir("/") == 0) std::filesystem::remove_all(dir);
  return status;
}
