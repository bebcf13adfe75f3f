// CRC-32 as zlib and Ethernet have it (reflected polynomial 0xEDB88320).
#pragma once

#include <cstddef>
#include <cstdint>

namespace recording {

/// The state behind the bytes. A checksum begins with the state 0xFFFFFFFF and is the last state's
/// complement.
std::uint32_t crc32After(std::uint32_t state, const std::uint8_t* bytes, std::size_t size);

/// The same by tables alone, on any processor.
std::uint32_t crc32ByTables(std::uint32_t state, const std::uint8_t* bytes, std::size_t size);

}  // namespace recording
