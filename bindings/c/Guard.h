// What stands between C and everything that may throw.
#pragma once

#include <bindings/c/alg_factory_c.h>

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <exception>
#include <new>
#include <stdexcept>
#include <string>
#include <utility>

namespace c_interface {

/// A call that fails with a status of its own. `what()` is one line.
class Failure : public std::runtime_error {
 public:
  Failure(alg_status status, const std::string& text) : std::runtime_error(text), status_(status) {}
  alg_status status() const { return status_; }

 private:
  alg_status status_;
};

/// Keeps the text for `alg_error_text`, cut where it is too long. Needs no memory.
/// @return `status`
alg_status failed(alg_status status, const char* text) noexcept;

/// Runs the inside of a function; every exception ends here, as a status and a text.
template <typename Action>
alg_status guarded(Action action) noexcept {
  try {
    return action();
  } catch (const Failure& failure) {
    return failed(failure.status(), failure.what());
  } catch (const std::bad_alloc&) {
    return failed(ALG_NO_MEMORY, alg_status_text(ALG_NO_MEMORY));
  } catch (const std::exception& error) {
    return failed(ALG_INTERNAL, error.what());
  } catch (...) {
    return failed(ALG_INTERNAL, alg_status_text(ALG_INTERNAL));
  }
}

/// @throws Failure if the pointer is null
inline void requireGiven(const void* pointer, const char* name) {
  if (pointer == nullptr)
    throw Failure(ALG_NULL_ARGUMENT, std::string(name) + ": expected a pointer, found null");
}

/// @throws Failure if it is another size
inline void requireSize(std::size_t size, std::size_t expected, const char* name) {
  if (size != expected)
    throw Failure(ALG_BAD_SIZE, std::string(name) + ": expected " + std::to_string(expected) +
                                    " bytes, found " + std::to_string(size));
}

/// What a record had in the first version of the header: no caller's is smaller. When a record
/// grows, its line stays.
template <typename Record>
constexpr std::size_t kFirstSize = 0;
template <>
inline constexpr std::size_t kFirstSize<alg_block> = 536;
template <>
inline constexpr std::size_t kFirstSize<alg_pose> = 44;
template <>
inline constexpr std::size_t kFirstSize<alg_heading> = 48;
template <>
inline constexpr std::size_t kFirstSize<alg_record_options> = 8;
template <>
inline constexpr std::size_t kFirstSize<alg_record_status> = 24;
template <>
inline constexpr std::size_t kFirstSize<alg_recording_info> = 32;
template <>
inline constexpr std::size_t kFirstSize<alg_call_info> = 64;
template <>
inline constexpr std::size_t kFirstSize<alg_replay_options> = 40;
template <>
inline constexpr std::size_t kFirstSize<alg_replay_result> = 32;
template <>
inline constexpr std::size_t kFirstSize<alg_calibration_options> = 24;

/// @throws Failure if the pointer is null or its record smaller than any version of it
template <typename Record>
void requireRecord(const Record* record, const char* name) {
  static_assert(kFirstSize<Record> != 0 && kFirstSize<Record> <= sizeof(Record));
  requireGiven(record, name);
  if (record->size < kFirstSize<Record>)
    throw Failure(ALG_BAD_SIZE, std::string(name) +
                                    ": expected size to be sizeof of the record, at least " +
                                    std::to_string(kFirstSize<Record>) + ", found " +
                                    std::to_string(record->size));
}

/// Fills a caller's record, of which `requireRecord` holds, as far as the caller knows it.
template <typename Record>
void give(Record filled, Record* record) {
  filled.size = static_cast<std::uint32_t>(std::min<std::size_t>(record->size, sizeof(Record)));
  std::memcpy(record, &filled, filled.size);
}

/// A caller's options; what the caller does not know, or does not give, is zero.
template <typename Record>
Record taken(const Record* options, const char* name) {
  Record record{};
  if (options == nullptr) return record;
  requireRecord(options, name);
  std::memcpy(&record, options, std::min<std::size_t>(options->size, sizeof(Record)));
  return record;
}

}  // namespace c_interface
