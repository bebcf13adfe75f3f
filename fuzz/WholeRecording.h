// Turns a fuzzer's bytes into a whole recording file. The bytes are read as changes to a small good
// session, field by field, so that what comes out gets past the reader, or just not: it is a file
// of the right tables with checksums that fit, as a stranger can make one.
#pragma once

#include <cstdint>
#include <cstring>
#include <filesystem>
#include <limits>
#include <string>
#include <vector>

#include <alg_kit/recording/RecordingWriter.h>
#include <alg_kit/session/Session.h>
#include <fuzz/ScratchFile.h>
#include <sqlite3.h>
#include <tests/support/HandRig.h>

namespace fuzzing {

/// Takes numbers off the front of the bytes; zeros behind their end.
class Numbers {
 public:
  Numbers(const std::uint8_t* data, std::size_t size) : data_(data), size_(size) {}
  bool empty() const { return size_ == 0; }
  std::uint8_t byte() {
    if (size_ == 0) return 0;
    --size_;
    return *data_++;
  }
  /// Mostly what limits are made of.
  std::int64_t number() {
    constexpr std::int64_t kSpecial[] = {0,
                                         1,
                                         -1,
                                         2,
                                         4,
                                         56,
                                         512,
                                         600,
                                         65535,
                                         std::numeric_limits<std::int32_t>::max(),
                                         std::numeric_limits<std::int32_t>::min(),
                                         (std::int64_t{1} << 62) - 1,
                                         std::numeric_limits<std::int64_t>::max(),
                                         std::numeric_limits<std::int64_t>::min()};
    const std::uint8_t choice = byte();
    if (choice < 14) return kSpecial[choice];
    return choice % 2 == 0 ? choice - 14 : std::int64_t{byte()} << choice % 32;
  }

 private:
  const std::uint8_t* data_;
  std::size_t size_;
};

inline session::Call call(session::CallKind kind, std::int64_t index) {
  session::Call result;
  result.index = index;
  result.kind = kind;
  result.pointerGiven = true;
  result.returned = 1;
  result.startNs = 11111111 * index;
  result.durationNs = 1000;
  return result;
}

/// Sinks, Init, then packets of three markers, each with its block, message and query.
inline std::vector<session::Entry> goodSession(int productType, int packets) {
  using session::CallKind;
  std::vector<session::Entry> entries;
  const auto add = [&](CallKind kind) -> session::Entry& {
    session::Entry& entry = entries.emplace_back();
    entry.call = call(kind, static_cast<std::int64_t>(entries.size()) - 1);
    return entry;
  };
  add(CallKind::kSetLogCallback);
  add(CallKind::kSetDataCallback);
  session::Call& init = add(CallKind::kInit).call;
  const auto calibration = testing_support::handCalibration();
  init.type = productType;
  init.payload.resize(sizeof calibration);
  std::memcpy(init.payload.data(), &calibration, sizeof calibration);
  for (int n = 0; n < packets; ++n) {
    session::Entry& packet = add(CallKind::kInputStream);
    packet.call.payload = testing_support::packetOf(
        {{0, 10.0 + n, 5, 900}, {1, -60, 20.0 + n, 1000}, {2, 100, -40, 1100}});
    packet.call.length = static_cast<int>(packet.call.payload.size());
    packet.blocks.emplace_back().step = 0;
    session::Call& query = add(CallKind::kHandleEvent).call;
    query.pointerGiven = false;
    query.outputGiven = true;
    query.output.resize(52);
  }
  return entries;
}

inline void changeEntry(session::Entry& entry, Numbers& numbers) {
  session::Call& c = entry.call;
  switch (numbers.byte() % 18) {
    case 0:
      c.kind = static_cast<session::CallKind>(numbers.byte() % 7);
      break;
    case 1:
      c.type = static_cast<int>(numbers.number());
      break;
    case 2:
      c.mode = static_cast<int>(numbers.number());
      break;
    case 3:
      c.offset = static_cast<int>(numbers.number());
      break;
    case 4:
      c.length = static_cast<int>(numbers.number());
      break;
    case 5:
      c.pointerGiven = !c.pointerGiven;
      break;
    case 6:
      c.outputGiven = !c.outputGiven;
      break;
    case 7:
      c.payload.clear();
      break;
    case 8:
      c.payload.resize(static_cast<std::size_t>(numbers.number() & 1023));
      break;
    case 9:
      for (int i = 0; i < 8 && !c.payload.empty(); ++i)
        c.payload[(numbers.byte() * 256U + numbers.byte()) % c.payload.size()] = numbers.byte();
      break;
    case 10:
      c.returned.reset();
      break;
    case 11:
      c.output.resize(static_cast<std::size_t>(numbers.number() & 63));
      break;
    case 12:
      c.startNs = numbers.number();
      break;
    case 13:
      c.durationNs = numbers.number();
      break;
    case 14:
      c.parent = c.index - 1 - numbers.byte() % 4;
      c.parentStep = numbers.byte() % 3;
      break;
    case 15:
      entry.logs.push_back({static_cast<int>(numbers.byte()), static_cast<int>(numbers.byte()),
                            std::string(numbers.byte() % 40, static_cast<char>(numbers.byte())),
                            numbers.byte() % 2 == 1});
      break;
    case 16:
      entry.blocks.emplace_back().step = 100 + numbers.byte();
      entry.blocks.back().threw = numbers.byte() % 2 == 1;
      break;
    default:
      if (!entry.blocks.empty()) {
        auto* const bytes = reinterpret_cast<std::uint8_t*>(&entry.blocks.back().block);
        for (int i = 0; i < 8; ++i)
          bytes[(numbers.byte() * 256U + numbers.byte()) % sizeof entry.blocks.back().block] =
              numbers.byte();
      }
  }
  // What kind it is now decides what it is given, half of the time.
  if (numbers.byte() % 2 == 0 && session::payloadSize(c, 0) < 4096)
    c.payload.resize(session::payloadSize(c, 0));
}

/// While it lives SQLite keeps what it opens in memory. A recorder makes, synchronizes and removes
/// five files, which would take most of a run's time.
class FilesInMemory {
 public:
  explicit FilesInMemory(const std::string& path) : usual_(sqlite3_vfs_find(nullptr)) {
    sqlite3_vfs_register(sqlite3_vfs_find("memdb"), 1);
    if (sqlite3_open(path.c_str(), &kept_) != SQLITE_OK) std::abort();
  }
  ~FilesInMemory() {
    sqlite3_close(kept_);  // the last connection: the file is gone
    sqlite3_vfs_register(usual_, 1);
  }
  FilesInMemory(const FilesInMemory&) = delete;
  FilesInMemory& operator=(const FilesInMemory&) = delete;

  void copyTo(const ScratchFile& file) const {
    sqlite3_int64 size = 0;
    unsigned char* const bytes = sqlite3_serialize(kept_, "main", &size, 0);
    file.write(bytes, static_cast<std::size_t>(size));
    sqlite3_free(bytes);
  }

 private:
  sqlite3_vfs* usual_;
  sqlite3* kept_ = nullptr;
};

/// Writes the recording; false where the writer itself refuses it.
inline bool writeRecording(const ScratchFile& file, const std::uint8_t* data, std::size_t size) {
  Numbers numbers(data, size);
  std::vector<session::Entry> entries = goodSession(numbers.byte() % 3, 1 + numbers.byte() % 6);
  std::vector<session::TruthRow> truth;
  while (!numbers.empty()) {
    session::Entry& entry = entries[numbers.byte() % entries.size()];
    if (numbers.byte() % 8 == 0) {
      session::TruthRow row{static_cast<std::int64_t>(truth.size()),
                            numbers.number(),
                            numbers.number(),
                            static_cast<int>(numbers.byte() % 7),
                            numbers.byte() % 2,
                            {1.0 * numbers.byte(), 2, 900},
                            true,
                            true};
      truth.push_back(row);
    } else {
      changeEntry(entry, numbers);
    }
  }
  try {
    const FilesInMemory memory(file.path());
    recording::createTables(file.path(), {{"clock", "monotonic"}});
    {
      recording::RecordingWriter writer(file.path());
      writer.begin();
      for (const session::Entry& entry : entries) writer.write(entry);
      for (const session::TruthRow& row : truth) writer.write(row);
      writer.commit(0);
      writer.finish(0);
    }
    memory.copyTo(file);
    return true;
  } catch (const recording::RecordingError&) {
    return false;
  }
}

}  // namespace fuzzing
