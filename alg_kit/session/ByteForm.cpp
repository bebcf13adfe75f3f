#include <alg_kit/session/ByteForm.h>

#include <cstring>
#include <string>
#include <type_traits>

namespace session {
namespace {

constexpr std::size_t kLengthSize = 4;
// The least that one of each takes: its fixed fields.
constexpr std::size_t kLogSize = 16;
constexpr std::size_t kBlockSize = 8 + sizeof(algorithm::ResultBlock);

constexpr std::int64_t kNone = -1;

enum EntryFlag : std::uint32_t {
  kPointerGiven = 1,
  kOutputGiven = 2,
  kReturned = 4,
  kMeasured = 8,
};
enum TruthFlag : std::uint32_t { kInLeft = 1, kInRight = 2 };

class Writer {
 public:
  explicit Writer(Bytes& bytes) : bytes_(bytes) {}

  template <typename T>
  void put(T value) {
    static_assert(std::is_arithmetic_v<T>);
    putBytes(&value, sizeof value);
  }
  void putBytes(const void* from, std::size_t size) {
    const auto* const first = static_cast<const std::uint8_t*>(from);
    bytes_.insert(bytes_.end(), first, first + size);
  }
  template <typename Range>
  void putSized(const Range& range) {
    put(static_cast<std::uint32_t>(range.size()));
    if (!range.empty()) putBytes(range.data(), range.size());
  }

 private:
  Bytes& bytes_;
};

class Reader {
 public:
  Reader(const std::uint8_t* bytes, std::size_t size) : bytes_(bytes), size_(size) {}

  template <typename T>
  T take() {
    T value;
    std::memcpy(&value, takeBytes(sizeof value), sizeof value);
    return value;
  }
  const std::uint8_t* takeBytes(std::size_t size) {
    if (size > size_ - place_)
      fail("expected " + std::to_string(size) + " more bytes in the unit",
           std::to_string(size_ - place_));
    const std::uint8_t* const at = bytes_ + place_;
    place_ += size;
    return at;
  }
  /// A number of things of at least `least` bytes each.
  std::size_t takeCount(std::size_t least) {
    const std::size_t count = take<std::uint32_t>();
    if (count > (size_ - place_) / least)
      fail("expected at most " + std::to_string((size_ - place_) / least) + " items",
           std::to_string(count));
    return count;
  }
  bool atEnd() const { return place_ == size_; }

  [[noreturn]] void fail(const std::string& expected, const std::string& found) const {
    throw ByteFormError("byte " + std::to_string(place_) + ": " + expected + ", found " + found);
  }

 private:
  const std::uint8_t* bytes_;
  std::size_t size_;
  std::size_t place_ = 0;
};

void write(const Entry& entry, Writer& to) {
  const Call& call = entry.call;
  std::uint32_t flags = 0;
  if (call.pointerGiven) flags |= kPointerGiven;
  if (call.outputGiven) flags |= kOutputGiven;
  if (call.returned) flags |= kReturned;
  if (call.durationNs) flags |= kMeasured;
  to.put(call.index);
  to.put(call.parent.value_or(kNone));
  to.put(std::int32_t{call.parentStep});
  to.put(static_cast<std::uint32_t>(call.kind));
  to.put(flags);
  to.put(std::int32_t{call.type});
  to.put(std::int32_t{call.mode});
  to.put(std::int32_t{call.offset});
  to.put(std::int32_t{call.length});
  to.put(std::int32_t{call.returned.value_or(0)});
  to.put(call.startNs);
  to.put(call.durationNs.value_or(0));
  to.putSized(call.payload);
  to.putSized(call.output);
  to.put(static_cast<std::uint32_t>(entry.logs.size()));
  for (const LogLine& log : entry.logs) {
    to.put(std::int32_t{log.step});
    to.put(std::int32_t{log.level});
    to.put(std::uint32_t{log.threw});
    to.putSized(log.text);
  }
  to.put(static_cast<std::uint32_t>(entry.blocks.size()));
  for (const DeliveredBlock& delivered : entry.blocks) {
    to.put(std::int32_t{delivered.step});
    to.put(std::uint32_t{delivered.threw});
    to.putBytes(&delivered.block, sizeof delivered.block);
  }
}

void write(const TruthRow& row, Writer& to) {
  to.put(row.frame);
  to.put(row.call.value_or(kNone));
  to.put(row.timeNs);
  to.put(std::int32_t{row.object});
  to.put(std::int32_t{row.marker});
  for (const double coordinate : row.position) to.put(coordinate);
  to.put((row.inLeft ? kInLeft : 0u) | (row.inRight ? kInRight : 0u));
}

void takeSized(Reader& from, Bytes& bytes) {
  const std::size_t size = from.takeCount(1);
  const std::uint8_t* const first = from.takeBytes(size);
  bytes.assign(first, first + size);
}

std::optional<std::int64_t> takeIndex(Reader& from) {
  const auto index = from.take<std::int64_t>();
  return index == kNone ? std::nullopt : std::optional(index);
}

bool takeFlag(Reader& from) {
  const auto value = from.take<std::uint32_t>();
  if (value > 1) from.fail("expected 0 or 1", std::to_string(value));
  return value == 1;
}

void read(Reader& from, Entry& entry) {
  Call& call = entry.call;
  call.index = from.take<std::int64_t>();
  call.parent = takeIndex(from);
  if (call.parent && *call.parent >= call.index)
    from.fail("expected a parent before call " + std::to_string(call.index),
              "call " + std::to_string(*call.parent));
  call.parentStep = from.take<std::int32_t>();
  const auto kind = from.take<std::uint32_t>();
  if (kind >= kCallKinds)
    from.fail("expected a kind of call below " + std::to_string(kCallKinds), std::to_string(kind));
  call.kind = static_cast<CallKind>(kind);
  const auto flags = from.take<std::uint32_t>();
  if (flags > (kPointerGiven | kOutputGiven | kReturned | kMeasured))
    from.fail("expected known flags", std::to_string(flags));
  call.pointerGiven = (flags & kPointerGiven) != 0;
  call.outputGiven = (flags & kOutputGiven) != 0;
  call.type = from.take<std::int32_t>();
  call.mode = from.take<std::int32_t>();
  call.offset = from.take<std::int32_t>();
  call.length = from.take<std::int32_t>();
  const auto returned = from.take<std::int32_t>();
  if ((flags & kReturned) != 0) call.returned = returned;
  call.startNs = from.take<std::int64_t>();
  const auto duration = from.take<std::int64_t>();
  if ((flags & kMeasured) != 0) call.durationNs = duration;
  takeSized(from, call.payload);
  takeSized(from, call.output);
  if (const auto problem = problemInSizes(call))
    from.fail("expected " + problem->expected, problem->found);

  for (std::size_t left = from.takeCount(kLogSize); left > 0; --left) {
    LogLine& log = entry.logs.emplace_back();
    log.step = from.take<std::int32_t>();
    log.level = from.take<std::int32_t>();
    log.threw = takeFlag(from);
    const std::size_t size = from.takeCount(1);
    log.text.assign(reinterpret_cast<const char*>(from.takeBytes(size)), size);
  }
  for (std::size_t left = from.takeCount(kBlockSize); left > 0; --left) {
    DeliveredBlock& delivered = entry.blocks.emplace_back();
    delivered.step = from.take<std::int32_t>();
    delivered.threw = takeFlag(from);
    std::memcpy(&delivered.block, from.takeBytes(sizeof delivered.block), sizeof delivered.block);
  }
}

void read(Reader& from, TruthRow& row) {
  row.frame = from.take<std::int64_t>();
  row.call = takeIndex(from);
  row.timeNs = from.take<std::int64_t>();
  row.object = from.take<std::int32_t>();
  row.marker = from.take<std::int32_t>();
  for (double& coordinate : row.position) coordinate = from.take<double>();
  const auto flags = from.take<std::uint32_t>();
  if (flags > (kInLeft | kInRight)) from.fail("expected known flags", std::to_string(flags));
  row.inLeft = (flags & kInLeft) != 0;
  row.inRight = (flags & kInRight) != 0;
}

}  // namespace

void appendBytes(const Unit& unit, Bytes& bytes) {
  const std::size_t begin = bytes.size();
  Writer to(bytes);
  to.put(std::uint32_t{0});  // the length, once it is known
  to.put(static_cast<std::uint32_t>(unit.used));
  to.put(static_cast<std::uint32_t>(unit.truth.size()));
  for (std::size_t i = 0; i < unit.used; ++i) write(unit.entries[i], to);
  for (const TruthRow& row : unit.truth) write(row, to);
  const std::size_t size = bytes.size() - begin;
  if (size > kMaxUnitBytes) {
    bytes.resize(begin);
    throw ByteFormError("expected a unit of at most " + std::to_string(kMaxUnitBytes) +
                        " bytes, found " + std::to_string(size));
  }
  const auto length = static_cast<std::uint32_t>(size - kLengthSize);
  std::memcpy(&bytes[begin], &length, sizeof length);
}

std::size_t readBytes(const std::uint8_t* bytes, std::size_t size, Unit& unit) {
  unit.clear();
  if (size < kLengthSize) return 0;
  const std::size_t length = Reader(bytes, kLengthSize).take<std::uint32_t>();
  if (length > kMaxUnitBytes - kLengthSize)
    Reader(bytes, kLengthSize)
        .fail("expected a unit of at most " + std::to_string(kMaxUnitBytes) + " bytes",
              std::to_string(length));
  if (length > size - kLengthSize) return 0;

  Reader from(bytes, kLengthSize + length);
  from.takeBytes(kLengthSize);
  const auto entries = from.take<std::uint32_t>();
  const auto rows = from.take<std::uint32_t>();
  for (std::uint32_t i = 0; i < entries; ++i) read(from, unit.append());
  for (std::uint32_t i = 0; i < rows; ++i) read(from, unit.truth.emplace_back());
  if (!from.atEnd()) from.fail("expected the end of the unit", "more bytes");
  return kLengthSize + length;
}

}  // namespace session
