// Names of the platform's standard images that entries use as system icons
// (CleanupEntry::Icon::system), each defined once here so that every scanner spells an image
// the same way and the interface can map each name to a picture of its own.
#pragma once

#include <array>
#include <string_view>

namespace tw::systemImage {

inline constexpr const char* folder = "NSImageNameFolder";
inline constexpr const char* multipleDocuments = "NSImageNameMultipleDocuments";
inline constexpr const char* computer = "NSImageNameComputer";
inline constexpr const char* network = "NSImageNameNetwork";
inline constexpr const char* trashFull = "NSImageNameTrashFull";

// Every name above; an entry's system icon is always one of them.
inline constexpr std::array<std::string_view, 5> all{folder, multipleDocuments, computer, network, trashFull};

}  // namespace tw::systemImage
