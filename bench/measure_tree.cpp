// Measures one folder the way a scan does and prints its allocated bytes, for the benchmark
// script to time against other disk-usage tools.
//   measure_tree [--sequential] [--no-tracker] <folder>
#include <cstdio>
#include <cstring>
#include <exception>
#include <string>

#include "fs/DirectorySize.h"
#include "fs/DirectoryWalk.h"

int main(int argc, char** argv) {
  tw::WalkMode mode = tw::WalkMode::parallel;
  bool useTracker = true;
  const char* folder = nullptr;
  for (int i = 1; i < argc; ++i) {
    if (std::strcmp(argv[i], "--sequential") == 0) {
      mode = tw::WalkMode::sequential;
    } else if (std::strcmp(argv[i], "--no-tracker") == 0) {
      useTracker = false;
    } else {
      folder = argv[i];
    }
  }
  if (!folder) {
    std::fprintf(stderr, "usage: measure_tree [--sequential] [--no-tracker] <folder>\n");
    return 2;
  }
  try {
    tw::HardLinkTracker tracker;
    const int64_t bytes = tw::allocatedSizeOfDirectory(folder, useTracker ? &tracker : nullptr, mode);
    std::printf("%lld\n", static_cast<long long>(bytes));
  } catch (const std::exception& error) {
    std::fprintf(stderr, "measure_tree: %s\n", error.what());
    return 1;
  }
  return 0;
}
