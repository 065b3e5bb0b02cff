// Walks a home folder for project build folders the way the scanner does (without
// measuring) and prints how many folders of each kind it found.
#include <cstdio>
#include <filesystem>

#include "scan/ProjectBuildsScanner.h"

int main(int argc, char** argv) {
  if (argc != 2) {
    std::fprintf(stderr, "usage: %s <home folder>\n", argv[0]);
    return 2;
  }
  auto found = tw::ProjectBuildsScanner::findFolders({std::filesystem::path(argv[1])}, {}, {});
  size_t total = 0;
  for (const auto& [kind, folders] : found) total += folders.size();
  std::printf("%zu\n", total);
  return 0;
}
