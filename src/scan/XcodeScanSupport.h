// What the Xcode scanners share: the shallow folder listing they all use, reading metadata
// property lists, and the creation date of a folder.
#pragma once

#include <chrono>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "platform/PropertyList.h"

namespace tw::xcode {

// The visible items of `folder` (names starting with "." are skipped), not descending, in
// byte order of their names so that scans are repeatable. Absent when the folder cannot be
// listed (missing, not a folder, unreadable).
std::optional<std::vector<std::filesystem::path>> listFolder(const std::filesystem::path& folder);

// The standard folder followed by the user's custom one when that is set and not the same.
std::vector<std::filesystem::path> scanRoots(const std::filesystem::path& standardFolder,
                                             const std::optional<std::filesystem::path>& customFolder);

// Whether `folder` is there at all (following a symbolic link), as opposed to unreadable.
bool itemExists(const std::filesystem::path& path);

// The item's creation date; the distant past when its attributes cannot be read.
std::chrono::system_clock::time_point creationDate(const std::filesystem::path& path);

using tw::PropertyList;

// The dictionary of a metadata property list (an Info.plist, device.plist and the like).
// Absent when the file is missing, or refused or unreadable, which is logged.
std::optional<PropertyList> readMetadata(const std::filesystem::path& file);

}  // namespace tw::xcode
