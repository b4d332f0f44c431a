// A GoogleTest fixture with a real, empty company: a fresh temporary directory made the
// current directory, every data file created empty (CreateNewCompany), the company path
// set, and a scripted message handler. Derived fixtures close the library files their
// tests open (CloseLibraryFiles); TearDown then checks that no handle is left open.
#ifndef BASICS_TESTS_SUPPORT_COMPANY_TEST_H_
#define BASICS_TESTS_SUPPORT_COMPANY_TEST_H_

#include <memory>
#include <string>

#include <gtest/gtest.h>

#include "scripted_messages.h"
#include "temp_dir.h"

class CompanyTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;
  // Closes the library's internal handles that the tests of a unit open.
  virtual void CloseLibraryFiles() {}

  const std::string& dir() const { return dir_->path(); }

  ScriptedMessages messages_;

 private:
  std::unique_ptr<TempDir> dir_;
  std::unique_ptr<ScopedChdir> chdir_;
};

#endif  // BASICS_TESTS_SUPPORT_COMPANY_TEST_H_
