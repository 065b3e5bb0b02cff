# The application services of the window (preferences window, update check, the launch steps of
# the reminders and the feedback mail) and the freedesktop notification client shared with the
# reminder helper. Included from src/ui/CMakeLists.txt.
add_library(tidewell_desktop_bus STATIC ${CMAKE_CURRENT_LIST_DIR}/DesktopNotifications.cpp)
set_target_properties(tidewell_desktop_bus PROPERTIES AUTOMOC ON)
target_include_directories(tidewell_desktop_bus PUBLIC "${TIDEWELL_UI_ROOT}")
target_link_libraries(tidewell_desktop_bus PUBLIC tidewell_core Qt6::DBus)
tidewell_warnings(tidewell_desktop_bus)

add_library(tidewell_ui_services STATIC
  ${CMAKE_CURRENT_LIST_DIR}/PreferencesWindow.cpp
  ${CMAKE_CURRENT_LIST_DIR}/UpdateController.cpp
  ${CMAKE_CURRENT_LIST_DIR}/ApplicationServices.cpp)
set_target_properties(tidewell_ui_services PROPERTIES AUTOMOC ON)
target_link_libraries(tidewell_ui_services PUBLIC tidewell_desktop_bus tidewell_core Qt6::Widgets Qt6::Network)
tidewell_warnings(tidewell_ui_services)
