// A host's whole life, read from the bytes call by call: any product type, calibration, stream,
// packet, filter mode and event. What it was promised must hold.
#include <cstdint>
#include <cstdio>
#include <cstdlib>

#include <alg_kit/trace/FreshAlg.h>
#include <tests/support/HostLife.h>

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  const testing_support::Life life = testing_support::lifeFrom(data, size);
  trace::FreshAlg alg;
  const std::string problem = testing_support::brokenPromise(testing_support::live(alg, life));
  if (!problem.empty()) {
    std::fprintf(stderr, "HostLifeFuzz: %s\n", problem.c_str());
    std::abort();
  }
  return 0;
}
