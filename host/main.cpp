// The command-line host program `basics`.
#include <cstdio>

int main(int argc, char** argv) {
  (void)argv;
  if (argc < 2) {
    std::fprintf(stderr, "usage: basics COMMAND DIR\n");
    return 2;
  }
  return 0;
}
