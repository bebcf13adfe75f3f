// A host's whole life, read from a byte string: any bytes are a life, so that fuzzers and random
// tests can make them up and shrink them.
#pragma once

#include <alg_factory/api/AlgBase.h>
#include <alg_kit/session/Session.h>

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace testing_support {

using Life = std::vector<session::Call>;

/// Reads a life. It holds to what a host must do (sinks first, whole records for stream types 1 and
/// 3 to 5) and to nothing else: product types, calibrations, packets, lengths and modes may be any.
Life lifeFrom(const std::uint8_t* data, std::size_t size);

/// Makes the calls, each with a buffer of its own; what came back has no times. The sinks that the
/// library keeps are gone afterwards: whoever goes on sets new ones, as every life does.
/// @throws std::logic_error if a query wrote where it must not
std::vector<session::Entry> live(algorithm::AlgBase& alg, const Life& life);

/// Everything that came back, as bytes.
session::Bytes bytesOf(const std::vector<session::Entry>& lived);

/// Looks for a broken promise of the interface; empty if there is none. The life began with a fresh
/// pipeline.
std::string brokenPromise(const std::vector<session::Entry>& lived);

}  // namespace testing_support
