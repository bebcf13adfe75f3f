// Measures the library and its peers side by side: batches take turns, so that what else the
// machine does meets all of them alike, and medians are taken over many rounds. Ratios are what
// counts. First the peers prove that they do the same job: on packets without noise every position
// must agree with the library's. Time is processor time, on one core.
//   bench_compare [ROUNDS]
#include <bench/Contestant.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <ctime>
#include <exception>

namespace {

using bench::Contestant;
using bench::Workload;
using Contestants = std::vector<std::unique_ptr<Contestant>>;

constexpr int kDefaultRounds = 301;
constexpr int kWarmUps = 5;
constexpr double kTolerance = 0.5;  // mm

double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

/// Nanoseconds a packet, over one play of the workload.
double timeOf(Contestant& contestant, const Workload& load) {
  const std::clock_t start = std::clock();
  contestant.play(load);
  const std::clock_t end = std::clock();
  return static_cast<double>(end - start) / CLOCKS_PER_SEC * 1e9 /
         static_cast<double>(load.payloads.size());
}

/// Largest distance between two positions; infinite when one contestant sees what the other does
/// not.
double worstDifference(Contestant& a, Contestant& b, const Workload& load) {
  double worst = 0;
  const auto compare = [&](const double(&p)[3], const double(&q)[3]) {
    worst = std::max(worst, std::hypot(p[0] - q[0], p[1] - q[1], p[2] - q[2]));
  };
  for (const sim::Bytes& payload : load.payloads) {
    a.input(payload);
    b.input(payload);
    for (std::size_t k = 0; k < 6; ++k) {
      const algorithm::TrackedPoint& p = a.sink.block.records[k];
      const algorithm::TrackedPoint& q = b.sink.block.records[k];
      if (p.id != q.id || p.id != static_cast<int>(k)) return HUGE_VAL;
      compare({p.x, p.y, p.z}, {q.x, q.y, q.z});
      double filteredA[3], filteredB[3];
      if (!a.filteredPosition(p.id, filteredA) || !b.filteredPosition(p.id, filteredB)) {
        return HUGE_VAL;
      }
      compare(filteredA, filteredB);
    }
  }
  return worst;
}

bool peersAgree(const Contestants& contestants, int records) {
  const Workload load = bench::spreadBlobs(records, 0.0);
  bool agree = true;
  for (std::size_t i = 1; i < contestants.size(); ++i) {
    contestants[0]->prepare(load, 0);
    contestants[i]->prepare(load, 0);
    // The library's singleton has a past; one play brings both to the same state.
    contestants[0]->play(load);
    contestants[i]->play(load);
    const double worst = worstDifference(*contestants[0], *contestants[i], load);
    std::printf("%-27s %d blobs: positions within %.2g mm of the library's\n",
                contestants[i]->name().c_str(), records, worst);
    agree = agree && worst <= kTolerance;
  }
  return agree;
}

void compare(const Contestants& contestants, const Workload& load, int rounds) {
  for (const auto& contestant : contestants) {
    contestant->prepare(load, 0);
    for (int i = 0; i < kWarmUps; ++i) contestant->play(load);
  }
  std::vector<std::vector<double>> times(contestants.size()), ratios(contestants.size());
  for (int round = 0; round < rounds; ++round) {
    for (std::size_t i = 0; i < contestants.size(); ++i) {
      times[i].push_back(timeOf(*contestants[i], load));
      ratios[i].push_back(times[i].back() / times[0].back());
    }
  }
  std::printf("\n%s, product type 2, plain packets, filters on (mode 0)\n", load.name.c_str());
  std::printf("%-27s %12s %10s\n", "", "us a packet", "ratio");
  for (std::size_t i = 0; i < contestants.size(); ++i) {
    std::printf("%-27s %12.3f %10.1f\n", contestants[i]->name().c_str(), median(times[i]) / 1000,
                median(ratios[i]));
  }
}

/// Slope of the least-squares line through the points.
double slope(const std::vector<double>& x, const std::vector<double>& y) {
  const double n = static_cast<double>(x.size());
  double sx = 0, sy = 0, sxx = 0, sxy = 0;
  for (std::size_t i = 0; i < x.size(); ++i) {
    sx += x[i];
    sy += y[i];
    sxx += x[i] * x[i];
    sxy += x[i] * y[i];
  }
  return (n * sxy - sx * sy) / (n * sxx - sx * sx);
}

void printSlopes(const char* what, const std::vector<double>& x, const std::vector<double>& y) {
  const auto middle = static_cast<std::ptrdiff_t>(x.size() / 2);
  const std::vector<double> lowX(x.begin(), x.begin() + middle + 1),
      highX(x.begin() + middle, x.end());
  const std::vector<double> lowY(y.begin(), y.begin() + middle + 1),
      highY(y.begin() + middle, y.end());
  std::printf("%-14s slope %5.1f ns a blob over all, %5.1f up to %.0f blobs, %5.1f from there on\n",
              what, slope(x, y), slope(lowX, lowY), lowX.back(), slope(highX, highY));
}

/// The library alone: what a further blob costs.
void sweepBlobs(Contestant& library, int rounds) {
  std::vector<double> counts;
  std::vector<Workload> loads[2];
  for (int records = 2; records <= static_cast<int>(sim::kMaxPacketRecords); records += 4) {
    counts.push_back(records);
    loads[0].push_back(bench::spreadBlobs(records));
    loads[1].push_back(bench::blobsOfOneId(records));
  }
  std::vector<double> medians[2];
  std::vector<std::vector<std::vector<double>>> times(
      2, std::vector<std::vector<double>>(counts.size()));
  for (int round = 0; round < rounds; ++round) {
    for (std::size_t kind = 0; kind < 2; ++kind) {
      for (std::size_t i = 0; i < counts.size(); ++i) {
        library.prepare(loads[kind][i], 0);
        library.play(loads[kind][i]);
        times[kind][i].push_back(timeOf(library, loads[kind][i]));
      }
    }
  }
  for (std::size_t kind = 0; kind < 2; ++kind) {
    for (const auto& values : times[kind]) medians[kind].push_back(median(values));
  }
  std::printf("\nalg_factory against the number of blobs (both cameras), ns a packet\n");
  std::printf("%6s %14s %14s %14s\n", "blobs", "over six ids", "all of one id", "one id / six");
  for (std::size_t i = 0; i < counts.size(); ++i) {
    std::printf("%6.0f %14.0f %14.0f %14.2f\n", counts[i], medians[0][i], medians[1][i],
                medians[1][i] / medians[0][i]);
  }
  printSlopes("over six ids:", counts, medians[0]);
  printSlopes("one id:", counts, medians[1]);
}

int run(int rounds) {
  const Contestants contestants = bench::makeContestants();
  if (contestants.size() == 1) std::printf("OpenCV was not found: no peers in this build\n");
  for (const int records : {12, static_cast<int>(sim::kMaxPacketRecords)}) {
    if (!peersAgree(contestants, records)) {
      std::fprintf(stderr, "bench_compare: a peer differs by more than %.1f mm: not comparable\n",
                   kTolerance);
      return 1;
    }
  }
  compare(contestants, bench::spreadBlobs(12), rounds);
  compare(contestants, bench::spreadBlobs(sim::kMaxPacketRecords), rounds);
  sweepBlobs(*contestants[0], rounds / 4 + 1);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  const int rounds = argc > 1 ? std::atoi(argv[1]) : kDefaultRounds;
  if (rounds < 1 || argc > 2) {
    std::fprintf(stderr, "usage: bench_compare [ROUNDS]\n");
    return 2;
  }
  try {
    return run(rounds);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "bench_compare: %s\n", error.what());
    return 1;
  }
}
