// How the window stays responsive during a scan: the longest stall of the GUI thread's event
// loop while the main window scans a home whose derived data holds a large generated tree, and
// the window's scan time against the command line's (the same scan, synchronous on one thread,
// as `tidewell info` runs it). Runs alternate so that both see the same warm cache.
//   window_stall <home> [runs]     (home/Library/Developer must exist; prints medians)
#include <QApplication>
#include <QElapsedTimer>
#include <QTimer>
#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <vector>

#include "app/Preferences.h"
#include "platform/Host.h"
#include "scan/DevFiles.h"
#include "ui/Alerts.h"
#include "ui/BackgroundWork.h"
#include "ui/CompletionSound.h"
#include "ui/MainWindow.h"

namespace {

class SilentSound : public tw::CompletionSound {
 public:
  void play() override {}
};

struct WindowRun {
  double scanMs;
  double longestStallMs;
};

WindowRun windowScan(tw::Alerts& alerts) {
  SilentSound sound;
  tw::MainWindow window(alerts, sound);
  window.show();
  // The window's first layout and paint are start-up, not scanning.
  QElapsedTimer settle;
  settle.start();
  while (settle.elapsed() < 200) QApplication::processEvents(QEventLoop::AllEvents, 50);
  QElapsedTimer clock;
  qint64 lastTick = 0;
  qint64 longest = 0;
  qint64 longestAt = 0;
  // A precise 1 ms timer: any gap beyond that is time the loop spent elsewhere.
  QTimer probe;
  probe.setTimerType(Qt::PreciseTimer);
  probe.setInterval(1);
  QObject::connect(&probe, &QTimer::timeout, [&] {
    const qint64 now = clock.nsecsElapsed();
    if (now - lastTick > longest) {
      longest = now - lastTick;
      longestAt = now;
    }
    lastTick = now;
  });
  double scanMs = 0;
  QObject::connect(&window, &tw::MainWindow::scanCompleted, [&] {
    scanMs = static_cast<double>(clock.nsecsElapsed()) / 1e6;
    QTimer::singleShot(0, [] { QApplication::exit(0); });
  });
  clock.start();
  probe.start();
  window.checkDeveloperFolder();  // creates the driver and starts the scan on a worker
  QApplication::exec();
  if (std::getenv("WINDOW_STALL_VERBOSE")) {
    std::fprintf(stderr, "longest stall %.1f ms ending at %.1f ms of %.1f ms\n", longest / 1e6, longestAt / 1e6,
                 scanMs);
  }
  return {scanMs, static_cast<double>(longest) / 1e6};
}

double commandLineScan() {
  QElapsedTimer clock;
  clock.start();
  auto created = tw::DevFiles::create(tw::Host::current().developerFolder(), std::nullopt, std::nullopt);
  if (!created) std::exit(2);
  const auto& all = tw::DevFiles::allLocations();
  (*created)->scan(std::vector<tw::DevFiles::Location>(all.begin(), all.end()));
  return static_cast<double>(clock.nsecsElapsed()) / 1e6;
}

double median(std::vector<double> values) {
  std::sort(values.begin(), values.end());
  return values[values.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: window_stall <home> [runs]\n");
    return 1;
  }
  tw::Host host = tw::Host::fromProcess();
  host.home = std::filesystem::absolute(argv[1]);
  host.configDirectory = host.home / ".config";
  tw::Host::install(host);
  const int runs = argc > 2 ? std::atoi(argv[2]) : 5;

  qputenv("QT_QPA_PLATFORM", "offscreen");
  QApplication application(argc, argv);
  auto alerts = tw::makeDialogAlerts();

  std::vector<double> windowMs, stallMs, commandLineMs;
  windowScan(*alerts);  // warm-up: caches, fonts, icons
  commandLineScan();
  for (int run = 0; run < runs; ++run) {
    const WindowRun result = windowScan(*alerts);
    windowMs.push_back(result.scanMs);
    stallMs.push_back(result.longestStallMs);
    commandLineMs.push_back(commandLineScan());
  }
  tw::BackgroundWork::shared().stopAndJoinAll();
  const double window = median(windowMs), commandLine = median(commandLineMs);
  std::printf("window scan        median %8.1f ms\n", window);
  std::printf("command-line scan  median %8.1f ms\n", commandLine);
  std::printf("window / command line = %.3f (bar <= 1.10)\n", window / commandLine);
  std::printf("longest event-loop stall: median %.1f ms, worst %.1f ms (bar < 50 ms)\n", median(stallMs),
              *std::max_element(stallMs.begin(), stallMs.end()));
  return 0;
}
