#include <alg_kit/recording/Crc32.h>

#include <array>
#include <cstring>

#if defined(__x86_64__) && defined(__GNUC__)
#define ALG_CRC32_FOLDS 1
#include <immintrin.h>
#endif

namespace recording {
namespace {

constexpr std::size_t kMostAtOnce = 16;

/// table[0] takes one byte on; table[k] takes it k bytes further, so that many go at once.
constexpr std::array<std::array<std::uint32_t, 256>, kMostAtOnce> makeTables() {
  std::array<std::array<std::uint32_t, 256>, kMostAtOnce> tables{};
  for (std::uint32_t i = 0; i < 256; ++i) {
    std::uint32_t c = i;
    for (int bit = 0; bit < 8; ++bit) c = (c & 1) != 0 ? 0xEDB88320U ^ (c >> 1) : c >> 1;
    tables[0][i] = c;
  }
  for (std::size_t k = 1; k < kMostAtOnce; ++k)
    for (std::size_t i = 0; i < 256; ++i)
      tables[k][i] = tables[0][tables[k - 1][i] & 0xFF] ^ (tables[k - 1][i] >> 8);
  return tables;
}

constexpr auto kTables = makeTables();

/// The next `count` bytes at once, backwards: the first four need what came before them.
template <std::size_t count>
std::uint32_t advanced(std::uint32_t state, const std::uint8_t* bytes) {
  std::uint32_t next = count < 4 ? state >> 8 * count % 32 : 0;
  for (std::size_t i = count; i-- > 0;) {
    const std::uint32_t before = i < 4 ? state >> 8 * i : 0;
    next ^= kTables[count - 1 - i][(bytes[i] ^ before) & 0xFF];
  }
  return next;
}

#if defined(ALG_CRC32_FOLDS)

#define ALG_FOLDING __attribute__((target("pclmul,sse4.1")))

constexpr std::size_t kBlock = 16;   // bytes
constexpr std::size_t kStride = 64;  // bytes, four blocks side by side

ALG_FOLDING __m128i blockAt(const std::uint8_t* bytes) {
  return _mm_loadu_si128(reinterpret_cast<const __m128i*>(bytes));
}

/// A remainder taken further, by the powers of x in `powers`, onto the block that lies there.
ALG_FOLDING __m128i folded(__m128i remainder, __m128i powers, __m128i block) {
  const __m128i low = _mm_clmulepi64_si128(remainder, powers, 0x00);
  const __m128i high = _mm_clmulepi64_si128(remainder, powers, 0x11);
  return _mm_xor_si128(_mm_xor_si128(low, high), block);
}

/// The same over whole blocks.
ALG_FOLDING __m128i foldedOver(__m128i sum, const std::uint8_t* bytes, std::size_t size) {
  const __m128i byStride = _mm_set_epi64x(0x1C6E41596, 0x154442BD4);
  const __m128i byBlock = _mm_set_epi64x(0x0CCAA009E, 0x1751997D0);
  if (size >= kStride - kBlock) {
    __m128i second = blockAt(bytes), third = blockAt(bytes + kBlock),
            fourth = blockAt(bytes + 2 * kBlock);
    bytes += kStride - kBlock;
    size -= kStride - kBlock;
    for (; size >= kStride; bytes += kStride, size -= kStride) {
      sum = folded(sum, byStride, blockAt(bytes));
      second = folded(second, byStride, blockAt(bytes + kBlock));
      third = folded(third, byStride, blockAt(bytes + 2 * kBlock));
      fourth = folded(fourth, byStride, blockAt(bytes + 3 * kBlock));
    }
    sum = folded(folded(folded(sum, byBlock, second), byBlock, third), byBlock, fourth);
  }
  for (; size >= kBlock; bytes += kBlock, size -= kBlock)
    sum = folded(sum, byBlock, blockAt(bytes));
  return sum;
}

/// 128 bits to 64, and by Barrett's reduction to 32.
ALG_FOLDING std::uint32_t reduced(__m128i sum) {
  const __m128i byBlock = _mm_set_epi64x(0x0CCAA009E, 0x1751997D0);
  const __m128i low32 = _mm_set_epi32(0, 0, 0, -1);
  sum = _mm_xor_si128(_mm_clmulepi64_si128(sum, byBlock, 0x10), _mm_srli_si128(sum, 8));
  const __m128i by32 = _mm_set_epi64x(0, 0x163CD6124);
  sum = _mm_xor_si128(_mm_clmulepi64_si128(_mm_and_si128(sum, low32), by32, 0x00),
                      _mm_srli_si128(sum, 4));
  const __m128i polynomial = _mm_set_epi64x(0x1F7011641, 0x1DB710641);
  __m128i quotient = _mm_clmulepi64_si128(_mm_and_si128(sum, low32), polynomial, 0x10);
  quotient = _mm_clmulepi64_si128(_mm_and_si128(quotient, low32), polynomial, 0x00);
  return static_cast<std::uint32_t>(_mm_extract_epi32(_mm_xor_si128(sum, quotient), 1));
}

/// At least a block: carry-less products instead of tables. Gopal and others, Fast CRC Computation
/// for Generic Polynomials Using PCLMULQDQ Instruction, Intel 2009, whose constants these are:
/// powers of x modulo the polynomial, reflected.
ALG_FOLDING std::uint32_t crc32ByFolding(std::uint32_t state, const std::uint8_t* bytes,
                                         std::size_t size) {
  // Zeros before the first byte change nothing, once the state is in the first four bytes.
  const std::size_t rest = size % kBlock;
  std::array<std::uint8_t, 2 * kBlock> head{};
  std::uint8_t* const first = head.data() + kBlock - rest;
  std::memcpy(first, bytes, kBlock);
  if (rest > 0) std::memcpy(head.data() + kBlock, bytes + rest, kBlock);
  for (std::size_t i = 0; i < sizeof state; ++i)
    first[i] = static_cast<std::uint8_t>(first[i] ^ state >> 8 * i);
  if (rest == 0) return reduced(foldedOver(blockAt(first), bytes + kBlock, size - kBlock));
  return reduced(foldedOver(foldedOver(blockAt(head.data()), head.data() + kBlock, kBlock),
                            bytes + kBlock + rest, size - kBlock - rest));
}

bool canFold() {
  static const bool can = __builtin_cpu_supports("pclmul") && __builtin_cpu_supports("sse4.1");
  return can;
}

#endif

}  // namespace

std::uint32_t crc32ByTables(std::uint32_t state, const std::uint8_t* bytes, std::size_t size) {
  for (; size >= kMostAtOnce; size -= kMostAtOnce, bytes += kMostAtOnce)
    state = advanced<kMostAtOnce>(state, bytes);
  for (; size > 0; --size, ++bytes) state = advanced<1>(state, bytes);
  return state;
}

std::uint32_t crc32After(std::uint32_t state, const std::uint8_t* bytes, std::size_t size) {
#if defined(ALG_CRC32_FOLDS)
  if (size >= kBlock && canFold()) return crc32ByFolding(state, bytes, size);
#endif
  return crc32ByTables(state, bytes, size);
}

}  // namespace recording
