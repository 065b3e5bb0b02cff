// make-fixture-home <folder>: writes a realistic developer's home into <folder> (created when
// missing) for the demo and for trying the tool by hand.
#include <filesystem>
#include <iostream>
#include <string>

#include "support/FixtureHome.h"

int main(int argc, char** argv) {
  if (argc != 2 || std::string(argv[1]) == "--help") {
    std::cerr << "usage: make-fixture-home <folder>\n";
    return 2;
  }
  try {
    const std::filesystem::path root = std::filesystem::absolute(argv[1]);
    std::filesystem::create_directories(root);
    std::cout << tw::test::FixtureHome::write(root).root.string() << "\n";
  } catch (const std::exception& error) {
    std::cerr << "make-fixture-home: " << error.what() << "\n";
    return 1;
  }
  return 0;
}
