// A GoogleTest fixture with a real, empty company: a fresh temporary directory made the
// current directory (served from a server first when a derived fixture's Serve says so),
// every data file created empty (CreateNewCompany), the company path set, and a scripted
// message handler. Derived fixtures close the library files their tests open
// (CloseLibraryFiles); TearDown then checks that no handle is left open.
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
  // Called with the company's directory before its files are made: a fixture that runs on
  // a server serves the directory from it here. Answers why it could not (the test then
  // fails), empty when the company may be made.
  virtual std::string Serve(const std::string& /*directory*/) { return std::string(); }

  const std::string& dir() const { return dir_->path(); }

  ScriptedMessages messages_;

 private:
  std::unique_ptr<TempDir> dir_;
  std::unique_ptr<ScopedChdir> chdir_;
};

#endif  // BASICS_TESTS_SUPPORT_COMPANY_TEST_H_
