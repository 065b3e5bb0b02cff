// Dates of file-system items. The creation ("birth") date comes from statx where the file system
// records it; elsewhere the modification date stands in for it, which is the best this machine
// can tell about when a folder appeared.
#pragma once

#include <chrono>
#include <filesystem>
#include <optional>

namespace tw {

using FileDate = std::chrono::system_clock::time_point;

// The creation date of the item itself (a symbolic link is not followed); absent when the item
// cannot be examined.
std::optional<FileDate> fileCreationDate(const std::filesystem::path& path);
// The same for `name` inside the open directory `directoryFd`, for walks that work with descriptors.
std::optional<FileDate> fileCreationDate(int directoryFd, const char* name);

// The date used when an item has none: the earliest representable moment, which date texts show
// as 1 January of year 1.
constexpr FileDate distantPast() { return FileDate::min(); }

}  // namespace tw
