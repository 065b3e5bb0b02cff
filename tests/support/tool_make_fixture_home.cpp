// make-fixture-home <folder> [size-factor]: writes a realistic developer's home into <folder>
// (created when missing) for the demo and for trying the tool by hand.
#include <cstdlib>
#include <filesystem>
#include <iostream>
#include <string>

#include "support/FixtureHome.h"

int main(int argc, char** argv) {
  if (argc < 2 || argc > 3 || std::string(argv[1]) == "--help") {
    std::cerr << "usage: make-fixture-home <folder> [size-factor]\n";
    return 2;
  }
  char* end = nullptr;
  const unsigned long factor = argc == 3 ? std::strtoul(argv[2], &end, 10) : 1;
  if (argc == 3 && (*end != '\0' || factor == 0 || factor > 1000)) {
    std::cerr << "make-fixture-home: size factor must be a whole number from 1 to 1000\n";
    return 2;
  }
  try {
    const std::filesystem::path root = std::filesystem::absolute(argv[1]);
    std::filesystem::create_directories(root);
    std::cout << tw::test::FixtureHome::write(root, {.sizeFactor = factor}).root.string() << "\n";
  } catch (const std::exception& error) {
    std::cerr << "make-fixture-home: " << error.what() << "\n";
    return 1;
  }
  return 0;
}
