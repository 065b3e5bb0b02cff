// The web pages the window opens, in one place so that a fork or a rebrand changes them once.
#pragma once

namespace tw::links {

inline constexpr const char* donationPage = "https://tidewell.dev/donate";
inline constexpr const char* xcodeDownloadPage = "https://apps.apple.com/app/xcode/id497799835";
inline constexpr const char* onlineHelp = "https://tidewell.dev/help";
inline constexpr const char* makerPage = "https://tidewell.dev";

}  // namespace tw::links
