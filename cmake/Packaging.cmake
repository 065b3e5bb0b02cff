# Installing Tidewell on a Linux desktop, and the Debian package built from it with
# `cpack -G DEB` (scripts/package). Everything lands below /usr:
#   lib/tidewell/Tidewell.app/...            the bundle, in the build's own layout
#   lib/tidewell/tidewell-privileged-remove  the narrow remover behind the polkit action
#   bin/tidewell                             link to the bundle's launcher
#   share/applications, icons, metainfo, man, polkit-1/actions, doc/tidewell
# Included from the top level only for builds without test hooks: a package must never carry
# a program that honours the test-only variables.

set(TIDEWELL_INSTALL_DIR "lib/tidewell")
set(TIDEWELL_INSTALL_CONTENTS "${TIDEWELL_INSTALL_DIR}/Tidewell.app/Contents")
set(TIDEWELL_PACKAGING_DIR "${PROJECT_SOURCE_DIR}/packaging")
set(TIDEWELL_PACKAGE_MAINTAINER "The Tidewell developers <developers@tidewell.dev>")

# Hardened like every binary Debian builds itself (lintian checks for each of these): every
# target below src/, including those of subfolders added later.
function(tidewell_targets_below directory result)
  get_property(targets DIRECTORY "${directory}" PROPERTY BUILDSYSTEM_TARGETS)
  get_property(subdirectories DIRECTORY "${directory}" PROPERTY SUBDIRECTORIES)
  foreach(subdirectory ${subdirectories})
    tidewell_targets_below("${subdirectory}" below)
    list(APPEND targets ${below})
  endforeach()
  set(${result} ${targets} PARENT_SCOPE)
endfunction()
tidewell_targets_below("${PROJECT_SOURCE_DIR}/src" tidewell_targets)
foreach(target ${tidewell_targets})
  get_target_property(type ${target} TYPE)
  if(type MATCHES "^(EXECUTABLE|STATIC_LIBRARY|SHARED_LIBRARY|MODULE_LIBRARY|OBJECT_LIBRARY)$")
    target_compile_options(${target} PRIVATE -fstack-protector-strong -fstack-clash-protection
                                             $<$<NOT:$<CONFIG:Debug>>:-D_FORTIFY_SOURCE=2>)
    set_target_properties(${target} PROPERTIES POSITION_INDEPENDENT_CODE ON)
  endif()
  if(type STREQUAL "EXECUTABLE")
    target_link_options(${target} PRIVATE -pie -Wl,-z,relro -Wl,-z,now -Wl,--as-needed)
  endif()
endforeach()

# The bundle. The whole Resources folder is installed as built, so resources added to the
# bundle later come along; the launcher keeps its executable bit.
install(TARGETS tidewell RUNTIME DESTINATION "${TIDEWELL_INSTALL_CONTENTS}/MacOS")
install(FILES "${TIDEWELL_BUNDLE_CONTENTS}/Info.plist" DESTINATION "${TIDEWELL_INSTALL_CONTENTS}")
install(DIRECTORY "${TIDEWELL_BUNDLE_CONTENTS}/Resources/" DESTINATION "${TIDEWELL_INSTALL_CONTENTS}/Resources"
        USE_SOURCE_PERMISSIONS)
install(TARGETS tidewell-privileged-remove RUNTIME DESTINATION "${TIDEWELL_INSTALL_DIR}")

# /usr/bin/tidewell -> ../lib/tidewell/Tidewell.app/Contents/Resources/tidewell.sh (relative,
# as Debian wants links inside /usr). The launcher follows the link back to its bundle.
set(tidewell_link "${CMAKE_CURRENT_BINARY_DIR}/packaging/tidewell")
file(MAKE_DIRECTORY "${CMAKE_CURRENT_BINARY_DIR}/packaging")
file(CREATE_LINK "../${TIDEWELL_INSTALL_CONTENTS}/Resources/tidewell.sh" "${tidewell_link}" SYMBOLIC)
install(FILES "${tidewell_link}" DESTINATION bin)

# Desktop integration, named after the bundle identifier.
install(FILES "${TIDEWELL_PACKAGING_DIR}/${TIDEWELL_BUNDLE_IDENTIFIER}.desktop" DESTINATION share/applications)
install(FILES "${TIDEWELL_PACKAGING_DIR}/${TIDEWELL_BUNDLE_IDENTIFIER}.svg"
        DESTINATION share/icons/hicolor/scalable/apps)
install(FILES "${TIDEWELL_PACKAGING_DIR}/${TIDEWELL_BUNDLE_IDENTIFIER}.metainfo.xml" DESTINATION share/metainfo)
install(FILES "${TIDEWELL_PACKAGING_DIR}/${TIDEWELL_BUNDLE_IDENTIFIER}.policy" DESTINATION share/polkit-1/actions)

# The manual page and the changelog, compressed the way Debian wants them (-n: no name and no
# time stamp inside, so the package is reproducible).
# The version is written by hand in three packaging files; a release that forgets one stops here.
foreach(check "changelog|^tidewell \\(${PROJECT_VERSION}\\) "
              "tidewell.1|^\\.TH TIDEWELL 1 .*\"Tidewell ${PROJECT_VERSION}\""
              "${TIDEWELL_BUNDLE_IDENTIFIER}.metainfo.xml|<release version=\"${PROJECT_VERSION}\"")
  string(REPLACE "|" ";" check "${check}")
  list(GET check 0 file)
  list(GET check 1 pattern)
  file(STRINGS "${TIDEWELL_PACKAGING_DIR}/${file}" matching REGEX "${pattern}")
  if(NOT matching)
    message(FATAL_ERROR "packaging/${file} does not name version ${PROJECT_VERSION}")
  endif()
endforeach()
set(tidewell_compressed "")
foreach(pair "tidewell.1|tidewell.1.gz" "changelog|changelog.gz")
  string(REPLACE "|" ";" pair "${pair}")
  list(GET pair 0 source)
  list(GET pair 1 compressed)
  add_custom_command(OUTPUT "${CMAKE_CURRENT_BINARY_DIR}/packaging/${compressed}"
    COMMAND gzip -9n -c "${TIDEWELL_PACKAGING_DIR}/${source}" > "${CMAKE_CURRENT_BINARY_DIR}/packaging/${compressed}"
    DEPENDS "${TIDEWELL_PACKAGING_DIR}/${source}"
    COMMENT "Compressing ${source}")
  list(APPEND tidewell_compressed "${CMAKE_CURRENT_BINARY_DIR}/packaging/${compressed}")
endforeach()
add_custom_target(tidewell_package_documents ALL DEPENDS ${tidewell_compressed})
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/packaging/tidewell.1.gz" DESTINATION share/man/man1)
install(FILES "${CMAKE_CURRENT_BINARY_DIR}/packaging/changelog.gz" "${TIDEWELL_PACKAGING_DIR}/copyright"
        DESTINATION share/doc/tidewell)

# The Debian package.
set(CPACK_GENERATOR "DEB")
set(CPACK_PACKAGE_NAME "tidewell")
set(CPACK_PACKAGE_VENDOR "The Tidewell developers")
set(CPACK_PACKAGE_VERSION "${PROJECT_VERSION}")
set(CPACK_PACKAGE_CONTACT "${TIDEWELL_PACKAGE_MAINTAINER}")
set(CPACK_PACKAGING_INSTALL_PREFIX "/usr")
set(CPACK_STRIP_FILES ON)
set(CPACK_INSTALL_DEFAULT_DIRECTORY_PERMISSIONS
    OWNER_READ OWNER_WRITE OWNER_EXECUTE GROUP_READ GROUP_EXECUTE WORLD_READ WORLD_EXECUTE)
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "find and delete the caches and build folders of developer tools")
# The long description, wrapped for dpkg (one line per list item; "." makes an empty line).
string(JOIN "\n" CPACK_PACKAGE_DESCRIPTION
  "Tidewell finds the regenerable files that pile up on a developer's disk and"
  "deletes the ones you tick: Xcode's developer folder, a catalogue of tool and"
  "application caches (package managers, toolchains, build tools, editors, AI"
  "model tools, browsers, messengers, cloud-sync clients), the build folders of"
  "software projects and a few system items. Every item is shown with its size"
  "before anything is deleted; deletion never follows a symbolic link and never"
  "crosses into another volume."
  "."
  "The package holds the windowed application, the tidewell command-line tool"
  "and a narrow helper that removes the system items that need administrator"
  "rights, behind Tidewell's own polkit action.")
set(CPACK_DEBIAN_FILE_NAME "DEB-DEFAULT")
set(CPACK_DEBIAN_PACKAGE_SECTION "utils")
set(CPACK_DEBIAN_PACKAGE_PRIORITY "optional")
set(CPACK_DEBIAN_PACKAGE_HOMEPAGE "https://tidewell.dev/")
set(CPACK_DEBIAN_PACKAGE_MAINTAINER "${TIDEWELL_PACKAGE_MAINTAINER}")
set(CPACK_DEBIAN_PACKAGE_CONTROL_STRICT_PERMISSION ON)
# Libraries the binaries link come from dpkg-shlibdeps (Qt's appear once the window links it).
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
# What the program needs at run time that no binary links, so shlibdeps cannot find it:
set(TIDEWELL_RUNTIME_DEPENDS
    "xdg-utils"     # xdg-open and xdg-email: reveal folders, open web pages, compose the issue report
    "libqt6svg6"    # Qt's SVG image and icon-engine plugins, which draw the window's SVG icons
    "libcanberra0"  # the freedesktop sound theme's event sounds, played when cleaning finishes
)
# Optional: without them Tidewell works but cannot do everything.
set(TIDEWELL_RUNTIME_RECOMMENDS
    "pkexec"               # administrator rights for system items (downloaded updates, installers)
    "polkitd"              # the authority pkexec asks, with Tidewell's own action
    "notification-daemon"  # shows the reminders to scan again (any freedesktop notification server)
    "qt6-wayland"          # a native window on Wayland desktops (without it Qt goes through XWayland)
)
list(JOIN TIDEWELL_RUNTIME_DEPENDS ", " CPACK_DEBIAN_PACKAGE_DEPENDS)
list(JOIN TIDEWELL_RUNTIME_RECOMMENDS ", " CPACK_DEBIAN_PACKAGE_RECOMMENDS)
set(CPACK_PACKAGE_DIRECTORY "${CMAKE_BINARY_DIR}/package")
include(CPack)
