// Units as bytes, for files and for networks; docs/session-bytes.md describes them byte by byte.
#pragma once

#include <alg_kit/session/Session.h>

#include <cstddef>
#include <cstdint>
#include <stdexcept>

namespace session {

/// What begins a file or a stream of units.
constexpr char kByteFormMagic[8] = {'A', 'L', 'G', 'U', 'N', 'I', 'T', '1'};

/// The longest unit that is read or written, its length included.
constexpr std::size_t kMaxUnitBytes = std::size_t{64} << 20;

/// Bytes that are no unit. `what()` is one line: which byte, what was expected, what was found.
class ByteFormError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

/// Appends a unit.
/// @throws ByteFormError if the unit is longer than kMaxUnitBytes; `bytes` is then as before
void appendBytes(const Unit& unit, Bytes& bytes);

/// Reads the unit at the front of `size` bytes; `unit`'s storage is reused.
/// @return the number of bytes that it takes; 0 where they end before it does
/// @throws ByteFormError for what no host and library can have made: unknown kinds, counts beyond
///         the end, a payload or an answer of another size than the library reads or writes
std::size_t readBytes(const std::uint8_t* bytes, std::size_t size, Unit& unit);

}  // namespace session
