#include "temp_dir.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <system_error>

#include <gtest/gtest.h>

TempDir::TempDir() {
  std::string pattern = (std::filesystem::temp_directory_path() / "basics-test-XXXXXX").string();
  char* made = ::mkdtemp(pattern.data());
  if (made == nullptr) {
    ADD_FAILURE() << "cannot make a temporary directory";
    return;
  }
  path_ = made;
}

TempDir::~TempDir() {
  if (path_.empty()) return;
  std::error_code ignored;
  std::filesystem::remove_all(path_, ignored);
}

std::string TempDir::File(const std::string& name) const { return path_ + "/" + name; }

ScopedChdir::ScopedChdir(const std::string& dir) {
  char buffer[4096];
  if (::getcwd(buffer, sizeof buffer) != nullptr) previous_ = buffer;
  if (::chdir(dir.c_str()) != 0) ADD_FAILURE() << "cannot change to " << dir;
}

ScopedChdir::~ScopedChdir() {
  if (!previous_.empty() && ::chdir(previous_.c_str()) != 0) {
    ADD_FAILURE() << "cannot change back to " << previous_;
  }
}
