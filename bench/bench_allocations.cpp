// Counts what the library and its peers allocate per packet once warm. A program of its own, since
// counting costs time.
#include <bench/Contestant.h>
#include <tests/support/AllocationCounter.h>

#include <cstdio>
#include <exception>

namespace {

using bench::Workload;

constexpr int kWarmUps = 2;

double allocationsPerPacket(bench::Contestant& contestant, const Workload& load) {
  contestant.prepare(load, 0);
  for (int i = 0; i < kWarmUps; ++i) contestant.play(load);
  const long before = testing_support::allocations();
  contestant.play(load);
  return static_cast<double>(testing_support::allocations() - before) /
         static_cast<double>(load.payloads.size());
}

}  // namespace

int main() {
#if !ALG_COUNTS_ALLOCATIONS
  std::fprintf(stderr, "bench_allocations: malloc cannot be replaced in this build\n");
  return 1;
#endif
  try {
    const Workload loads[] = {bench::spreadBlobs(12), bench::spreadBlobs(sim::kMaxPacketRecords)};
    std::printf("allocations a packet, once warm (product type 2, filters on)\n%-27s", "");
    for (const Workload& load : loads) std::printf(" %22s", load.name.c_str());
    std::printf("\n");
    for (const auto& contestant : bench::makeContestants()) {
      std::printf("%-27s", contestant->name().c_str());
      for (const Workload& load : loads) {
        std::printf(" %22.1f", allocationsPerPacket(*contestant, load));
      }
      std::printf("\n");
    }
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "bench_allocations: %s\n", error.what());
    return 1;
  }
}
