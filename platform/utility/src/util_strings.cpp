// String helpers of the utility library on terminated char buffers. Every copy is bounded
// by the caller's capacity and always terminates. Pure functions; safe from any thread.

#include <cstring>

#include "utility.h"

char* sstrcpy(char* dst, const char* src, size_t capacity) {
  if (dst == nullptr || capacity == 0) return dst;
  size_t length = src == nullptr ? 0 : ::strnlen(src, capacity - 1);
  // memmove: a caller may copy a tail of dst onto itself.
  if (length != 0) std::memmove(dst, src, length);
  dst[length] = '\0';
  return dst;
}

char* sstrcat(char* dst, const char* src, size_t capacity) {
  if (dst == nullptr || capacity == 0) return dst;
  size_t used = ::strnlen(dst, capacity);
  if (used >= capacity) {
    // Not terminated within its capacity: terminate it where it must end.
    dst[capacity - 1] = '\0';
    return dst;
  }
  sstrcpy(dst + used, src, capacity - used);
  return dst;
}

size_t Length(const char* text) { return text == nullptr ? 0 : std::strlen(text); }

char* Trim(char* text) {
  if (text == nullptr) return text;
  size_t start = 0;
  while (text[start] == ' ' || text[start] == '\t') ++start;
  size_t end = std::strlen(text + start) + start;
  while (end > start && (text[end - 1] == ' ' || text[end - 1] == '\t')) --end;
  size_t length = end - start;
  if (start != 0) std::memmove(text, text + start, length);
  text[length] = '\0';
  return text;
}

int CompareStr(const char* a, const char* b, size_t n) {
  if (a == nullptr) a = "";
  if (b == nullptr) b = "";
  for (size_t i = 0; i < n; ++i) {
    unsigned char ca = static_cast<unsigned char>(a[i]);
    unsigned char cb = static_cast<unsigned char>(b[i]);
    if (ca != cb) return ca < cb ? -1 : 1;
    if (ca == '\0') return 0;
  }
  return 0;
}
