// Public: installed for hosts.
#pragma once

#include <cstddef>
#include <cstdint>

#include <alg_factory/steady3d/TrackedPoint.h>

namespace algorithm {

/// What `DataSink::Deliver` receives.
struct ResultBlock {
  static constexpr int kRecords = 10;  ///< records in every block, used or not

  std::uint64_t header = 0;        ///< frame stamp of stream type 2 (microseconds); 0 for type 0
  TrackedPoint records[kRecords];  ///< product types 0 and 2: one per object id; type 1: 0 to 2
};

static_assert(sizeof(ResultBlock) == 528, "the size crosses the interface");
static_assert(offsetof(ResultBlock, records) == 8, "the layout crosses the interface");

}  // namespace algorithm
