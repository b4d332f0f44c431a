// A fresh temporary directory for one test, removed with everything in it when the
// object goes (and cleared first, should a crashed run have left one behind).
#ifndef BASICS_TESTS_SUPPORT_TEMP_DIR_H_
#define BASICS_TESTS_SUPPORT_TEMP_DIR_H_

#include <string>

class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::string& path() const { return path_; }
  // path() + "/" + name
  std::string File(const std::string& name) const;

 private:
  std::string path_;
};

// Changes the current directory for the life of the object.
class ScopedChdir {
 public:
  explicit ScopedChdir(const std::string& dir);
  ~ScopedChdir();
  ScopedChdir(const ScopedChdir&) = delete;
  ScopedChdir& operator=(const ScopedChdir&) = delete;

 private:
  std::string previous_;
};

#endif  // BASICS_TESTS_SUPPORT_TEMP_DIR_H_
