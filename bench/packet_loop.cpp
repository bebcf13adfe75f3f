// Feeds packets and does nothing else: the load for instruction counts and profilers.
//   packet_loop CONTESTANT LOAD PLAYS
//     CONTESTANT  0 = the library, 1 and 2 = the peers (product type 2 only)
//     LOAD        a number of blobs over six ids; "one42" = 42 of one id; "pPsSmM" = the moving
//                 scene of product type P, stream type S, filter mode M (- for off)
//     PLAYS       how often the workload is played; the difference between two counts is what
//                 packets alone cost
// Prints the number of packets fed.
#include <bench/Contestant.h>

#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <stdexcept>

namespace {

struct Selection {
  bench::Workload load;
  int filterMode = 0;
};

Selection select(const char* text) {
  int productType = 0, streamType = 0;
  char mode = 0, rest = 0;
  if (std::sscanf(text, "p%1ds%1dm%c%c", &productType, &streamType, &mode, &rest) == 3) {
    if (productType > 2 || (streamType != 0 && streamType != 2)) {
      throw std::runtime_error(std::string(text) + ": expected product type 0 to 2, stream 0 or 2");
    }
    return {bench::movingScene(productType, static_cast<sim::Framing>(streamType)),
            mode == '-' ? -1 : mode - '0'};
  }
  if (std::strcmp(text, "one42") == 0) return {bench::blobsOfOneId(42), 0};
  const int records = std::atoi(text);
  if (records < 2 || records > 42 || records % 2 != 0) {
    throw std::runtime_error(std::string(text) + ": expected an even number of blobs from 2 to 42");
  }
  return {bench::spreadBlobs(records), 0};
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 4) {
    std::fprintf(stderr, "usage: packet_loop CONTESTANT LOAD PLAYS\n");
    return 2;
  }
  try {
    const auto contestants = bench::makeContestants();
    const auto index = static_cast<std::size_t>(std::atoi(argv[1]));
    if (index >= contestants.size()) {
      throw std::runtime_error("contestant " + std::string(argv[1]) + " is not in this build");
    }
    bench::Contestant& contestant = *contestants[index];
    const Selection selection = select(argv[2]);
    const int plays = std::atoi(argv[3]);
    contestant.prepare(selection.load, selection.filterMode);
    for (int i = 0; i < plays; ++i) contestant.play(selection.load);
    std::printf("%zu\n", selection.load.payloads.size() * static_cast<std::size_t>(plays));
    return 0;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "packet_loop: %s\n", error.what());
    return 1;
  }
}
