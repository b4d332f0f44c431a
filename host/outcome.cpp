#include "outcome.h"

#include <cstdarg>
#include <cstdio>

namespace host {

Outcome::~Outcome() {
  if (spool_ != nullptr) std::fclose(spool_);
}

bool Outcome::Spool() {
  if (spool_ != nullptr || failed_) return spool_ != nullptr;
  spool_ = std::tmpfile();
  if (spool_ == nullptr) return false;
  std::fwrite(text_.data(), 1, text_.size(), spool_);
  std::string().swap(text_);
  return true;
}

void Outcome::Printf(const char* format, ...) {
  if (failed_) return;
  va_list args;
  va_start(args, format);
  if (spool_ != nullptr) {
    std::vfprintf(spool_, format, args);
    va_end(args);
    return;
  }
  va_list again;
  va_copy(again, args);
  int length = std::vsnprintf(nullptr, 0, format, args);
  va_end(args);
  if (length > 0) {
    size_t start = text_.size();
    text_.resize(start + static_cast<size_t>(length) + 1);
    std::vsnprintf(text_.data() + start, static_cast<size_t>(length) + 1, format, again);
    text_.resize(start + static_cast<size_t>(length));
  }
  va_end(again);
}

void Outcome::Fail(const std::string& what, int status) {
  if (failed_) return;
  failed_ = true;
  what_ = what;
  status_ = status;
  text_.clear();
  if (spool_ != nullptr) {
    std::fclose(spool_);
    spool_ = nullptr;
  }
}

void Outcome::Note(const std::string& message) { notes_.push_back(message); }

int Outcome::Finish(const std::string& dir) const {
  if (failed_) {
    if (status_ == kNoStatus) {
      std::fprintf(stderr, "basics: %s: %s\n", dir.c_str(), what_.c_str());
    } else {
      std::fprintf(stderr, "basics: %s: %s (status %d)\n", dir.c_str(), what_.c_str(), status_);
    }
    return 1;
  }
  bool written = true;
  if (spool_ != nullptr) {
    // A spool that could not be written in full (a full disk) fails like stdout would.
    char buffer[1 << 16];
    written = std::fflush(spool_) == 0 && std::ferror(spool_) == 0;
    std::rewind(spool_);
    for (size_t n; written && (n = std::fread(buffer, 1, sizeof buffer, spool_)) > 0;) {
      written = std::fwrite(buffer, 1, n, stdout) == n;
    }
  } else {
    std::fwrite(text_.data(), 1, text_.size(), stdout);
  }
  if (!written || std::fflush(stdout) != 0) {
    std::fprintf(stderr, "basics: %s: the output could not be written\n", dir.c_str());
    return 1;
  }
  for (const std::string& note : notes_)
    std::fprintf(stderr, "basics: %s: %s\n", dir.c_str(), note.c_str());
  return 0;
}

}  // namespace host
