// The catalogue rows, one list per location. The texts are shown to people as they are:
// labels, path patterns and tooltips (dashes are en dashes, the warning sign is U+26A0 U+FE0F).
#include "scan/DevCaches.h"

namespace tw::DevCaches {

// Function-local statics: each list is built once, thread-safely, on first use.
const std::vector<CacheSpec>& packageManagers() {
  static const std::vector<CacheSpec> specs = {
      {"",
       "Swift Package Manager",
       "Global SPM cache of downloaded packages & manifests. Packages are re-downloaded when needed.",
       {"~/Library/Caches/org.swift.swiftpm"}},
      {"",
       "Carthage",
       "Carthage cache of downloaded & built dependencies. Rebuilt on next \"carthage bootstrap/update\".",
       {"~/Library/Caches/org.carthage.CarthageKit", "~/Library/Caches/carthage"}},
      {"",
       "CocoaPods",
       "CocoaPods cache of downloaded pods. Re-downloaded on next \"pod install\".",
       {"~/Library/Caches/CocoaPods"}},
  };
  return specs;
}

const std::vector<CacheSpec>& devTools() {
  static const std::vector<CacheSpec> specs = {
      {"Rust",
       "Cargo registry & git",
       "Cargo registry & git checkouts cache. Crates are re-downloaded on next build.",
       {"~/.cargo/registry", "~/.cargo/git"}},
      {"Rust",
       "rustup toolchains",
       "Installed Rust toolchains. Deleting removes toolchains – reinstall with \"rustup toolchain install\".",
       {"~/.rustup/toolchains", "~/.rustup/downloads"}},
      {"Zig", "Global compiler cache", "Global Zig compiler cache. Recreated on next build.", {"~/.cache/zig"}},
      {"JavaScript / Web", "Bun", "Bun package install cache. Re-downloaded when needed.", {"~/.bun/install/cache"}},
      {"JavaScript / Web", "npm", "npm package cache (~/.npm). Re-downloaded when needed.", {"~/.npm"}},
      {"JavaScript / Web",
       "pnpm store",
       "pnpm content-addressable store & cache. Re-downloaded when needed.",
       {"~/Library/pnpm/store", "~/.pnpm-store", "~/Library/Caches/pnpm"}},
      {"JavaScript / Web",
       "Yarn",
       "Yarn package caches. Re-downloaded when needed.",
       {"~/Library/Caches/Yarn", "~/.yarn/berry/cache"}},
      {"JavaScript / Web",
       "TypeScript",
       "TypeScript & ts-node caches.",
       {"~/Library/Caches/typescript", "~/.cache/typescript"}},
      {"JavaScript / Web",
       "nvm/nodenv versions",
       "Node.js versions installed by nvm/nodenv. Deleting removes installed versions – reinstall with \"nvm "
       "install\".",
       {"~/.nvm/versions", "~/.nodenv/versions"}},
      {"Java / Android",
       "Gradle",
       "Gradle dependency caches, wrappers & daemon logs. Re-downloaded on next build.",
       {"~/.gradle/caches", "~/.gradle/wrapper", "~/.gradle/daemon"}},
      {"Flutter / Dart", "pub cache", "Dart pub package cache. Re-downloaded with \"dart pub get\".", {"~/.pub-cache"}},
      {"JavaScript / Web", "Cordova", "Cordova platform & plugin cache.", {"~/.cordova"}},
      {"JavaScript / Web",
       "React Native / Metro",
       "React Native build & Metro bundler caches.",
       {"~/Library/Caches/com.facebook.ReactNativeBuild", "/tmp/metro-*", "/tmp/haste-map-*"}},
      {"Build Tools",
       "Homebrew",
       "Homebrew downloads cache. Also cleanable with \"brew cleanup\".",
       {"~/Library/Caches/Homebrew"}},
      {"Java / Android",
       "Android tools",
       "Android tooling caches (adb, build cache).",
       {"~/.android/cache", "~/.android/build-cache"}},
      {"Java / Android",
       "Android SDK system images",
       "⚠️ Emulator system images. Deleting removes them from the SDK – re-download via SDK Manager.",
       {"~/Library/Android/sdk/system-images"}},
      {"VMs & Containers",
       "Docker Desktop VM data",
       "⚠️ Docker Desktop VM disk. Deleting removes ALL containers, images & volumes!",
       {"~/Library/Containers/com.docker.docker/Data/vms"}},
      {"VMs & Containers",
       "OrbStack data",
       "⚠️ OrbStack data. Deleting removes ALL machines, containers & images!",
       {"~/.orbstack"}},
      {"VMs & Containers", "QEMU", "QEMU caches.", {"~/Library/Caches/qemu"}},
      {"VMs & Containers",
       "VirtualBox",
       "VirtualBox caches & logs (virtual machines themselves are not touched).",
       {"~/Library/Caches/VirtualBox"}},
      {"Python",
       "pip",
       "pip download cache. Packages are re-downloaded when needed.",
       {"~/Library/Caches/pip", "~/.cache/pip"}},
      {"Python",
       "uv",
       "uv package cache. Packages are re-downloaded when needed.",
       {"~/Library/Caches/uv", "~/.cache/uv"}},
      {"Python",
       "pyenv versions",
       "Python versions installed by pyenv. Deleting removes installed versions – reinstall with \"pyenv install\".",
       {"~/.pyenv/versions"}},
      {"Python",
       "Conda/Anaconda packages",
       "Conda package caches. Re-downloaded when environments are recreated.",
       {"~/anaconda3/pkgs", "~/opt/anaconda3/pkgs", "~/miniconda3/pkgs", "~/opt/miniconda3/pkgs", "~/.conda/pkgs"}},
      {"Ruby",
       "gem & Bundler caches",
       "Cached downloaded .gem files. Re-downloaded when needed.",
       {"~/.gem/ruby/*/cache", "~/.bundle/cache"}},
      {"Ruby",
       "rbenv versions",
       "Ruby versions installed by rbenv. Deleting removes installed versions – reinstall with \"rbenv install\".",
       {"~/.rbenv/versions"}},
      {"Build Tools",
       "asdf installs",
       "Tool versions installed by asdf. Deleting removes installed versions – reinstall with \"asdf install\".",
       {"~/.asdf/installs"}},
      {"Go",
       "Module & build cache",
       "Go module downloads & build cache. Re-downloaded/rebuilt when needed.",
       {"~/go/pkg/mod", "~/Library/Caches/go-build"}},
      {"JavaScript / Web", "Deno", "Deno module & transpile cache.", {"~/Library/Caches/deno"}},
      {"JavaScript / Web",
       "Playwright browsers",
       "Browsers downloaded by Playwright. Re-downloaded with \"playwright install\".",
       {"~/Library/Caches/ms-playwright"}},
      {"JavaScript / Web", "Puppeteer browsers", "Chromium builds downloaded by Puppeteer.", {"~/.cache/puppeteer"}},
      {"JavaScript / Web", "Cypress", "Cypress binary versions cache.", {"~/Library/Caches/Cypress"}},
      {"JavaScript / Web",
       "Electron",
       "Electron & electron-builder download caches.",
       {"~/Library/Caches/electron", "~/Library/Caches/electron-builder"}},
      {"Build Tools",
       "ccache / sccache",
       "Compiler caches. Rebuilt over time; first builds after cleaning will be slower.",
       {"~/Library/Caches/ccache", "~/.ccache", "~/Library/Caches/Mozilla.sccache", "~/.cache/sccache"}},
      {"Build Tools",
       "Bazel",
       "Bazel output bases & repository cache.",
       {"/private/var/tmp/_bazel_*", "~/.cache/bazel"}},
      {"Java / Android",
       "Maven",
       "Maven local repository (~/.m2). Dependencies are re-downloaded on next build.",
       {"~/.m2/repository"}},
      {"PHP / .NET", "Composer", "Composer package cache.", {"~/Library/Caches/composer", "~/.composer/cache"}},
      {"PHP / .NET", "NuGet", "NuGet package cache. Re-downloaded with \"dotnet restore\".", {"~/.nuget/packages"}},
      {"Apple",
       "CoreSimulator logs",
       "Simulator logs & diagnostics, can grow to gigabytes over time.",
       {"~/Library/Logs/CoreSimulator"}},
  };
  return specs;
}

const std::vector<CacheSpec>& ides() {
  static const std::vector<CacheSpec> specs = {
      {"IDEs & Editors",
       "Visual Studio Code",
       "VS Code caches: cached data, code cache & downloaded extension archives. Settings & extensions are kept.",
       {"~/Library/Caches/com.microsoft.VSCode", "~/Library/Caches/com.microsoft.VSCode.ShipIt",
        "~/Library/Application Support/Code/Cache", "~/Library/Application Support/Code/CachedData",
        "~/Library/Application Support/Code/Code Cache", "~/Library/Application Support/Code/CachedExtensionVSIXs"}},
      {"IDEs & Editors",
       "JetBrains IDEs",
       "Caches of JetBrains IDEs (indexes etc.). IDEs re-index projects on next start.",
       {"~/Library/Caches/JetBrains"}},
  };
  return specs;
}

const std::vector<CacheSpec>& aiTools() {
  static const std::vector<CacheSpec> specs = {
      {"AI & LLM",
       "Hugging Face",
       "Downloaded Hugging Face models & datasets. Re-downloaded when used again.",
       {"~/.cache/huggingface"}},
      {"AI & LLM",
       "Ollama models",
       "⚠️ Downloaded Ollama models. Deleting removes them – pull again with \"ollama pull\".",
       {"~/.ollama/models"}},
      {"AI & LLM",
       "LM Studio models",
       "⚠️ Downloaded LM Studio models. Deleting removes them – re-download in LM Studio.",
       {"~/.lmstudio/models", "~/.cache/lm-studio/models"}},
      {"AI & LLM", "PyTorch hub", "Models & weights downloaded by PyTorch hub.", {"~/.cache/torch"}},
      {"AI & LLM",
       "Claude Code",
       "Claude Code caches & session scratchpads.",
       {"~/Library/Caches/claude-cli-nodejs", "/private/tmp/claude-*"}},
      {"AI & LLM",
       "Codex CLI",
       "Codex CLI logs & session history (deleting removes past conversation transcripts).",
       {"~/.codex/log", "~/.codex/sessions"}},
  };
  return specs;
}

const std::vector<CacheSpec>& browsers() {
  static const std::vector<CacheSpec> specs = {
      {"",
       "Safari",
       "Safari caches. May require Full Disk Access to see.",
       {"~/Library/Caches/com.apple.Safari", "~/Library/Containers/com.apple.Safari/Data/Library/Caches"}},
      {"",
       "Google Chrome",
       "Chrome caches. Pages will load slower on first visit after cleaning.",
       {"~/Library/Caches/Google/Chrome"}},
      {"", "Firefox", "Firefox caches.", {"~/Library/Caches/Firefox", "~/Library/Caches/Mozilla"}},
      {"", "Arc", "Arc browser caches.", {"~/Library/Caches/company.thebrowser.Browser"}},
      {"", "Brave", "Brave browser caches.", {"~/Library/Caches/BraveSoftware"}},
      {"",
       "Microsoft Edge",
       "Edge browser caches.",
       {"~/Library/Caches/Microsoft Edge", "~/Library/Caches/com.microsoft.edgemac"}},
      {"", "Opera", "Opera browser caches.", {"~/Library/Caches/com.operasoftware.Opera"}},
      {"", "Vivaldi", "Vivaldi browser caches.", {"~/Library/Caches/com.vivaldi.Vivaldi"}},
      {"", "Yandex Browser", "Yandex Browser caches.", {"~/Library/Caches/ru.yandex.desktop.yandex-browser"}},
      {"", "Chromium", "Chromium caches.", {"~/Library/Caches/Chromium"}},
  };
  return specs;
}

const std::vector<CacheSpec>& apps() {
  static const std::vector<CacheSpec> specs = {
      {"",
       "Slack",
       "Slack caches (messages & files are re-downloaded from the server).",
       {"~/Library/Application Support/Slack/Cache", "~/Library/Application Support/Slack/Code Cache",
        "~/Library/Application Support/Slack/Service Worker/CacheStorage",
        "~/Library/Containers/com.tinyspeck.slackmacgap/Data/Library/Application Support/Slack/Cache",
        "~/Library/Containers/com.tinyspeck.slackmacgap/Data/Library/Application Support/Slack/Code Cache"}},
      {"",
       "Discord",
       "Discord caches.",
       {"~/Library/Application Support/discord/Cache", "~/Library/Application Support/discord/Code Cache",
        "~/Library/Application Support/discord/GPUCache"}},
      {"",
       "Telegram",
       "Telegram media caches. Media is re-downloaded when you open old chats; chats & accounts are not touched.",
       {"~/Library/Group Containers/*.ru.keepcoder.Telegram/appstore/account-*/postbox/media",
        "~/Library/Application Support/Telegram Desktop/tdata/user_data/media_cache",
        "~/Library/Application Support/Telegram Desktop/tdata/user_data/cache"}},
      {"",
       "Microsoft Teams",
       "Teams caches.",
       {"~/Library/Application Support/Microsoft/Teams/Cache",
        "~/Library/Application Support/Microsoft/Teams/Service Worker/CacheStorage"}},
      {"", "Zoom", "Zoom auto-updater downloads.", {"~/Library/Application Support/zoom.us/AutoUpdater"}},
      {"",
       "Spotify",
       "Spotify streaming cache. Songs are re-cached during playback; downloaded playlists will need re-downloading.",
       {"~/Library/Caches/com.spotify.client", "~/Library/Application Support/Spotify/PersistentCache"}},
  };
  return specs;
}

const std::vector<CacheSpec>& cloudClients() {
  static const std::vector<CacheSpec> specs = {
      {"",
       "Google Drive – file cache",
       "⚠️ Local cache of streamed Google Drive files. Quit \"Google Drive\" before cleaning: changes made offline "
       "and not yet uploaded live here. Otherwise files are re-downloaded on demand.",
       {"~/Library/Application Support/Google/DriveFS/*/content_cache"}},
      {"",
       "Google Drive – thumbnails",
       "Thumbnail cache of Google Drive. Regenerated when needed.",
       {"~/Library/Application Support/Google/DriveFS/*/thumbnails_cache"}},
      {"",
       "Google Drive – logs & crash reports",
       "Logs & crash dumps of Google Drive for desktop.",
       {"~/Library/Application Support/Google/DriveFS/Logs", "~/Library/Application Support/Google/DriveFS/Crashpad",
        "~/Library/Application Support/Google/DriveFS/*/Logs"}},
      {"",
       "Dropbox cache",
       "Dropbox's cache of recently changed & deleted files. Dropbox purges it by itself after three days; deleting it "
       "now is safe, but files removed within the last 3 days can no longer be restored from the local cache.",
       {"~/.dropbox/cache", "~/Dropbox/.dropbox.cache", "~/Dropbox */.dropbox.cache",
        "~/Library/CloudStorage/Dropbox/.dropbox.cache", "~/Library/CloudStorage/Dropbox-*/.dropbox.cache"}},
      {"",
       "Dropbox logs & caches",
       "Dropbox logs, crash reports & app caches.",
       {"~/.dropbox/logs", "~/Library/Logs/Dropbox", "~/Library/Caches/com.getdropbox.dropbox",
        "~/Library/Caches/com.dropbox.DropboxMacUpdate"}},
      {"",
       "OneDrive caches & logs",
       "Microsoft OneDrive caches, updater downloads & logs.",
       {"~/Library/Caches/com.microsoft.OneDrive", "~/Library/Caches/com.microsoft.OneDriveUpdater",
        "~/Library/Caches/com.microsoft.OneDrive-mac", "~/Library/Logs/OneDrive"}},
      {"",
       "Box caches & logs",
       "Box Drive caches & logs.",
       {"~/Library/Caches/com.box.desktop", "~/Library/Application Support/Box/Box/logs", "~/Library/Logs/Box"}},
      {"",
       "MEGA caches & logs",
       "MEGAsync caches & logs.",
       {"~/Library/Caches/mega.mac", "~/Library/Application Support/Mega Limited/MEGAsync/logs"}},
      {"",
       "pCloud caches",
       "pCloud Drive caches & logs.",
       {"~/Library/Caches/com.pcloud.pcloud.macos", "~/Library/Application Support/pCloud Drive/Cache"}},
      {"",
       "Yandex.Disk caches & logs",
       "Yandex.Disk caches & logs.",
       {"~/Library/Caches/ru.yandex.desktop.yandex-disk", "~/Library/Logs/Yandex.Disk"}},
      {"",
       "Nextcloud/ownCloud caches",
       "Caches & logs of the Nextcloud/ownCloud desktop clients.",
       {"~/Library/Caches/com.nextcloud.desktopclient", "~/Library/Caches/com.owncloud.desktopclient"}},
      {"",
       "Proton Drive caches",
       "Proton Drive caches & logs.",
       {"~/Library/Caches/ch.protonmail.drive", "~/Library/Group Containers/*.ch.protonmail.drive/Logs"}},
  };
  return specs;
}

const std::vector<CacheSpec>& specs(CatalogueList list) {
  switch (list) {
    case CatalogueList::packageManagers:
      return packageManagers();
    case CatalogueList::devTools:
      return devTools();
    case CatalogueList::ides:
      return ides();
    case CatalogueList::aiTools:
      return aiTools();
    case CatalogueList::browsers:
      return browsers();
    case CatalogueList::apps:
      return apps();
    case CatalogueList::cloudClients:
      return cloudClients();
  }
  return packageManagers();
}

}  // namespace tw::DevCaches
