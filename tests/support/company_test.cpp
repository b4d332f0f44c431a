#include "company_test.h"

#include "OpenDat.h"
#include "file_creation.h"
#include "record_manager.h"
#include "utility.h"

void CompanyTest::SetUp() {
  dir_ = std::make_unique<TempDir>();
  chdir_ = std::make_unique<ScopedChdir>(dir_->path());
  ResetStandardFileNames();
  const std::string why = Serve(dir_->path());
  if (!why.empty()) GTEST_FAIL() << why;
  ASSERT_EQ(CreateNewCompany(dir_->path().c_str()), 1);
  g_szCompanyPath = dir_->path().c_str();
}

void CompanyTest::TearDown() {
  CloseLibraryFiles();
  for (const OpenHandleInfo& h : ListOpenHandles()) {
    ADD_FAILURE() << "handle left open: " << h.fileName << " opened at " << h.srcFile << ":"
                  << h.srcLine;
  }
  g_szCompanyPath = "";
  ZORStopServingDirectory(dir_->path().c_str());
  chdir_.reset();
  dir_.reset();
}
