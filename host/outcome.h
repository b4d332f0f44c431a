// What a command of the host program hands back: the text it prints on standard output,
// or the one reason it failed. The text is held until the command has finished, so that a
// command that fails half-way prints its reason and nothing else; a long report holds it
// in a temporary file instead of memory (Spool).
#ifndef BASICS_HOST_OUTCOME_H_
#define BASICS_HOST_OUTCOME_H_

#include <cstdio>
#include <string>
#include <vector>

namespace host {

// Marks a failure that has no record-manager status (a directory that cannot be made, a
// handle left open).
constexpr int kNoStatus = -1;

class Outcome {
 public:
  Outcome() = default;
  ~Outcome();
  Outcome(const Outcome&) = delete;
  Outcome& operator=(const Outcome&) = delete;

  // Appends formatted text to the output; nothing is printed before Finish.
  void Printf(const char* format, ...) __attribute__((format(printf, 2, 3)));
  // Records what could not be done and the record manager's status (kNoStatus when the
  // failure is not the record manager's). Only the first failure counts; the text gathered
  // so far is dropped and later text is ignored.
  void Fail(const std::string& what, int status);
  // From now on holds the text in an anonymous temporary file (removed when the process
  // ends), for output too large for memory; the text so far moves there. Answers false,
  // the text staying in memory, when no temporary file can be made.
  bool Spool();
  // Keeps a message the library or the platform showed while the command ran.
  void Note(const std::string& message);
  bool failed() const { return failed_; }
  // Writes the text to standard output and the kept messages to standard error, or, after
  // a failure, only the one line "basics: DIR: what (status N)". Answers the exit status:
  // 0, or 1 after a failure.
  int Finish(const std::string& dir) const;

 private:
  std::string text_;
  std::FILE* spool_ = nullptr;  // holds the text instead of text_ once Spool was called
  std::vector<std::string> notes_;
  bool failed_ = false;
  std::string what_;
  int status_ = kNoStatus;
};

}  // namespace host

#endif  // BASICS_HOST_OUTCOME_H_
