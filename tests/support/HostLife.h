// A host's whole life, read from a byte string: any bytes are a life, so that fuzzers and random
// tests can make them up and shrink them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include <alg_factory/api/AlgFactory.h>

namespace testing_support {

/// One call across the interface.
struct LifeCall {
  enum class Kind { kInit, kInputStream, kSetFilterMode, kHandleEvent };
  Kind kind = Kind::kInit;
  int selector = 0;                   ///< product type, stream type, filter mode or event type
  int parameter = 0;                  ///< of SetFilterMode
  bool null = false;                  ///< null config, buffer or input
  bool nullOutput = false;            ///< of HandleEvent
  std::vector<std::uint8_t> payload;  ///< config, buffer or input; begins at `offset`
  int offset = 0;
  int length = 0;  ///< of InputStream; payload size unless it is a wrong one
};

using Life = std::vector<LifeCall>;

/// What came back from one call.
struct LifeAnswer {
  bool result = false;
  std::vector<std::uint8_t> output;            ///< of HandleEvent, which it was filled with 0xCD
  std::vector<algorithm::ResultBlock> blocks;  ///< delivered during the call
  std::vector<std::string> logs;               ///< "4 alg: ...", during the call
};

/// Reads a life. It holds to what a host must do (sinks first, whole records for stream types 1 and
/// 3 to 5) and to nothing else: product types, calibrations, packets, lengths and modes may be any.
Life lifeFrom(const std::uint8_t* data, std::size_t size);

/// Makes the calls. The sinks are set first and are the same object in every run of the process.
std::vector<LifeAnswer> live(algorithm::AlgBase& alg, const Life& life);

/// Everything that came back, as bytes.
std::vector<std::uint8_t> bytesOf(const std::vector<LifeAnswer>& answers);

/// Looks for a broken promise of the interface; empty if there is none. `life` began with a fresh
/// pipeline.
std::string brokenPromise(const Life& life, const std::vector<LifeAnswer>& answers);

}  // namespace testing_support
