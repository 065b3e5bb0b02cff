// How reading the simulator-runtime listing grows with its length: generates listings of
// 37,500 to 300,000 records shaped like the output of "xcrun simctl runtime list -j", reads
// each the way a scan does, and prints the median processor time per size next to the time
// the JSON parser alone needs to build the document of the same text. Linear reading keeps both ratios flat:
// reading/parsing about the same at every size, and 8 times the records taking about 8 times as long.
//   runtime_list [runs]
#include <time.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "scan/SimulatorScanners.h"

namespace {

// One record per runtime image, keyed by an identifier in the tool's form, sizes of a few GB.
std::string generatedListing(size_t records) {
  std::string json = "{\n";
  char buffer[512];
  for (size_t index = 0; index < records; ++index) {
    const unsigned major = 14 + index % 5;
    const unsigned minor = index % 7;
    std::snprintf(buffer, sizeof buffer,
                  "%s  \"%08zX-1D2E-4F60-8A9B-%012zX\" : {\n"
                  "    \"build\" : \"2%uA%zu\",\n    \"deletable\" : %s,\n"
                  "    \"identifier\" : \"%08zX-1D2E-4F60-8A9B-%012zX\",\n    \"kind\" : \"Disk Image\",\n"
                  "    \"path\" : \"/Library/Developer/CoreSimulator/Volumes/iOS_%zu/Runtime.simruntime\",\n"
                  "    \"runtimeIdentifier\" : \"com.apple.CoreSimulator.SimRuntime.iOS-%u-%u\",\n"
                  "    \"sizeBytes\" : %zu,\n    \"state\" : \"Ready\",\n    \"version\" : \"%u.%u\"\n  }",
                  index == 0 ? "" : ",\n", index, index * 7919, major - 14, index, index % 10 ? "true" : "false", index,
                  index * 7919, index, major, minor, 5'000'000'000 + index * 1'048'576, major, minor);
    json += buffer;
  }
  json += "\n}\n";
  return json;
}

// Time on the processor of the calling thread (the read is single-threaded), so that other
// work on a shared machine does not count.
double threadSeconds() {
  timespec now{};
  ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
  return static_cast<double>(now.tv_sec) + static_cast<double>(now.tv_nsec) / 1e9;
}

// The median time of `runs` runs of `work`, each after `reset` (not timed), which frees what
// the run before made: a scan keeps its entries, so freeing them is no part of reading.
template <class Reset, class Work>
double medianSeconds(int runs, Reset reset, Work work) {
  std::vector<double> times;
  for (int run = 0; run < runs; ++run) {
    reset();
    const double start = threadSeconds();
    work();
    times.push_back(threadSeconds() - start);
  }
  reset();
  std::sort(times.begin(), times.end());
  return times[times.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
  const int runs = argc > 1 ? std::max(1, std::atoi(argv[1])) : 3;
  std::printf("%10s %14s %14s %10s %14s\n", "records", "read (cpu s)", "parse (cpu s)", "read/parse", "vs. smallest");
  double smallest = 0;
  for (size_t records : {37'500, 75'000, 150'000, 300'000}) {
    const std::string listing = generatedListing(records);
    std::vector<tw::CleanupEntryPtr> entries;
    size_t listed = 0;
    const double read = medianSeconds(
        runs, [&] { entries.clear(); },
        [&] {
          entries = tw::simulators::runtimesFromList(listing);
          listed = entries.size();
        });
    nlohmann::json document;
    const double parse = medianSeconds(
        runs, [&] { document = nullptr; }, [&] { document = nlohmann::json::parse(listing); });
    if (smallest == 0) smallest = read;
    std::printf("%10zu %14.3f %14.3f %10.2f %14.2f\n", records, read, parse, read / parse, read / smallest);
    if (listed != records - records / 10) {
      std::fprintf(stderr, "runtime_list: %zu of %zu records listed, expected every deletable one\n", listed, records);
      return 1;
    }
  }
  return 0;
}
