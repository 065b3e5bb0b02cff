// Names of the platform's standard images that entries use as system icons
// (CleanupEntry::Icon::system). The interface maps them to pictures of its own.
#pragma once

namespace tw::systemImage {

inline constexpr const char* folder = "NSFolder";                        // NSImageNameFolder
inline constexpr const char* multipleDocuments = "NSMultipleDocuments";  // NSImageNameMultipleDocuments
inline constexpr const char* computer = "NSComputer";                    // NSImageNameComputer

}  // namespace tw::systemImage
