// How quickly a scan stops when it is asked to: scans a home whose derived data holds a big
// generated tree, asks the scan to stop after a growing delay, and reports the time from the
// request until scan() returns, plus any notification that arrived after the request.
//   cancel_latency <home> [trials]
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <memory>
#include <stop_token>
#include <thread>
#include <vector>

#include "platform/Host.h"
#include "scan/DevFiles.h"

namespace {

using Clock = std::chrono::steady_clock;

struct LateNotifications : tw::DevFilesScanDelegate {
  std::atomic<bool> stopRequested{false};
  std::atomic<int> late{0};
  void note() {
    if (stopRequested.load()) late.fetch_add(1);
  }
  void scanStarted(tw::DevFiles&) override { note(); }
  void locationScanned(tw::DevFiles&, tw::DevFiles::Location) override { note(); }
  void scanFinished(tw::DevFiles&) override { note(); }
};

double milliseconds(Clock::duration duration) { return std::chrono::duration<double, std::milli>(duration).count(); }

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    std::fprintf(stderr, "usage: cancel_latency <home> [trials]\n");
    return 2;
  }
  tw::Host host = tw::Host::fromProcess();
  host.home = argv[1];
  tw::ScopedHost scopedHost(host);
  const int trials = argc > 2 ? std::atoi(argv[2]) : 20;
  const std::vector<tw::DevFiles::Location> all(tw::DevFiles::allLocations().begin(),
                                                tw::DevFiles::allLocations().end());

  // One whole scan first: its length bounds the delays, and it warms the cache.
  double fullScan = 0;
  {
    auto devFiles = tw::DevFiles::create(host.developerFolder(), std::nullopt, std::nullopt).value_or(nullptr);
    if (!devFiles) return 1;
    const auto start = Clock::now();
    devFiles->scan(all);
    fullScan = milliseconds(Clock::now() - start);
  }

  std::vector<double> latencies;
  int late = 0;
  for (int trial = 0; trial < trials; ++trial) {
    auto devFiles = tw::DevFiles::create(host.developerFolder(), std::nullopt, std::nullopt).value_or(nullptr);
    auto delegate = std::make_shared<LateNotifications>();
    devFiles->setScanDelegate(delegate);
    std::stop_source stop;
    Clock::time_point finished;
    std::thread worker([&] {
      devFiles->scan(all, stop.get_token());
      finished = Clock::now();
    });
    // Spread the requests over the whole scan.
    const auto delay = std::chrono::duration<double, std::milli>(fullScan * (trial + 0.5) / trials);
    std::this_thread::sleep_for(delay);
    delegate->stopRequested.store(true);
    const auto requested = Clock::now();
    stop.request_stop();
    worker.join();
    latencies.push_back(std::max(0.0, milliseconds(finished - requested)));
    late += delegate->late.load();
  }
  std::sort(latencies.begin(), latencies.end());
  std::printf("full scan %.1f ms; stop latency over %d trials: median %.2f ms, max %.2f ms (bar < 100 ms); "
              "notifications after the request: %d\n",
              fullScan, trials, latencies[latencies.size() / 2], latencies.back(), late);
  return latencies.back() < 100 && late == 0 ? 0 : 1;
}
