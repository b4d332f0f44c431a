// GUIDs: random version-4 identifiers from the kernel's random source, which stays
// unique across threads and across forked processes (no generator state to duplicate).

#include <fcntl.h>
#include <sys/random.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "utility.h"

namespace {

bool FillFromKernel(uint8_t* bytes, size_t size) {
  size_t done = 0;
  while (done < size) {
    ssize_t got = getrandom(bytes + done, size - done, 0);
    if (got < 0) {
      if (errno == EINTR) continue;
      break;
    }
    done += static_cast<size_t>(got);
  }
  if (done == size) return true;
  int fd = ::open("/dev/urandom", O_RDONLY | O_CLOEXEC);
  if (fd < 0) return false;
  done = 0;
  while (done < size) {
    ssize_t got = ::read(fd, bytes + done, size - done);
    if (got < 0 && errno == EINTR) continue;
    if (got <= 0) break;
    done += static_cast<size_t>(got);
  }
  ::close(fd);
  return done == size;
}

// Last resort when no random source answers: mixes the time, the process and a counter,
// so that GUIDs still differ (they are identifiers, not secrets).
void FillFromMix(uint8_t* bytes, size_t size) {
  static std::atomic<uint64_t> counter{0};
  struct timespec now {};
  clock_gettime(CLOCK_REALTIME, &now);
  uint64_t state = static_cast<uint64_t>(now.tv_sec) * 1000000007ull ^
                   static_cast<uint64_t>(now.tv_nsec) ^ (static_cast<uint64_t>(getpid()) << 32) ^
                   (counter.fetch_add(1) * 0x9E3779B97F4A7C15ull);
  for (size_t i = 0; i < size; ++i) {
    // splitmix64 steps
    state += 0x9E3779B97F4A7C15ull;
    uint64_t z = state;
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    bytes[i] = static_cast<uint8_t>(z ^ (z >> 31));
  }
}

}  // namespace

void AssignGUID(GUID& guid) {
  uint8_t bytes[16];
  if (!FillFromKernel(bytes, sizeof bytes)) FillFromMix(bytes, sizeof bytes);
  std::memcpy(&guid, bytes, sizeof guid);
  guid.Data3 = static_cast<uint16_t>((guid.Data3 & 0x0FFF) | 0x4000);   // version 4
  guid.Data4[0] = static_cast<uint8_t>((guid.Data4[0] & 0x3F) | 0x80);  // RFC 4122 variant
}

bool IsNullGUID(const GUID& guid) {
  static const GUID kNull{};
  return std::memcmp(&guid, &kNull, sizeof guid) == 0;
}

std::string GUIDToString(const GUID& guid) {
  char text[40];
  std::snprintf(text, sizeof text, "{%08X-%04X-%04X-%02X%02X-%02X%02X%02X%02X%02X%02X}",
                static_cast<unsigned>(guid.Data1), unsigned{guid.Data2}, unsigned{guid.Data3},
                unsigned{guid.Data4[0]}, unsigned{guid.Data4[1]}, unsigned{guid.Data4[2]},
                unsigned{guid.Data4[3]}, unsigned{guid.Data4[4]}, unsigned{guid.Data4[5]},
                unsigned{guid.Data4[6]}, unsigned{guid.Data4[7]});
  return text;
}
