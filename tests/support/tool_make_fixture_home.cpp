// make-fixture-home <folder>: writes a realistic developer's home into <folder> (created when missing) for the demo.
#include <filesystem>
#include <iostream>
#include <string>

#include "support/FixtureHome.h"

int main(int argc, char** argv) {
  if (argc != 2 || std::string(argv[1]) == "--help") return std::cerr << "usage: make-fixture-home <folder>\n", 2;
  try {
    std::cout << tw::test::FixtureHome::write(std::filesystem::absolute(argv[1])).root.string() << "\n";
    return 0;
  } catch (const std::exception& error) {
    return std::cerr << "make-fixture-home: " << error.what() << "\n", 1;
  }
}
