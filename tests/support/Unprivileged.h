// Running a piece of a test as an ordinary user. Root reads, writes and removes anything, so
// tests about permission failures run their body in a child process that has given up root
// (as "nobody"); run by an ordinary user the body simply runs in place.
#pragma once

#include <filesystem>
#include <functional>
#include <optional>
#include <string>

namespace tw::test {

// Runs `body`, which returns its failures as text (empty when all is well), with no special
// privileges. `workFolder` is handed to the unprivileged user first. Returns the body's text
// (an exception it throws becomes text too), or nothing when no unprivileged user can be had
// (the test should then skip).
std::optional<std::string> runUnprivileged(const std::filesystem::path& workFolder,
                                           const std::function<std::string()>& body);

// Hands a whole tree to the unprivileged user (as root; without root it changes nothing), for
// bodies that must also write below the work folder. False when that is not possible.
bool handOverTree(const std::filesystem::path& folder);

}  // namespace tw::test
