// Handles that cannot be followed by mistake.
#pragma once

#include <bindings/c/Guard.h>

#include <cstdint>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <utility>

namespace c_interface {

/// Objects behind handles of the type `Handle`. A handle is a number that was never used before, in
/// the shape of a pointer: one that is closed or foreign is looked for and not found. An object
/// that is closed beside a call lives until the call returns. Any thread.
template <typename Object, typename Handle>
class Handles {
 public:
  static Handle* open(std::shared_ptr<Object> object) {
    Table& table = instance();
    const std::lock_guard<std::mutex> guard(table.lock);
    const std::uintptr_t number = table.last + kStep;
    table.objects.emplace(number, std::move(object));
    table.last = number;
    return reinterpret_cast<Handle*>(number);
  }

  /// @throws Failure
  static std::shared_ptr<Object> at(Handle* handle, const char* name) {
    requireGiven(handle, name);
    Table& table = instance();
    const std::lock_guard<std::mutex> guard(table.lock);
    const auto found = table.objects.find(reinterpret_cast<std::uintptr_t>(handle));
    if (found == table.objects.end()) refuse(name);
    return found->second;
  }

  /// @throws Failure
  static void close(Handle* handle, const char* name) {
    requireGiven(handle, name);
    Table& table = instance();
    std::shared_ptr<Object> last;  // ends after the lock: its end may take its time
    const std::lock_guard<std::mutex> guard(table.lock);
    const auto found = table.objects.find(reinterpret_cast<std::uintptr_t>(handle));
    if (found == table.objects.end()) refuse(name);
    last = std::move(found->second);
    table.objects.erase(found);
  }

 private:
  static constexpr std::uintptr_t kStep = 16;  // aligned, as a debugger expects of a pointer

  struct Table {
    std::mutex lock;
    std::map<std::uintptr_t, std::shared_ptr<Object>> objects;
    std::uintptr_t last = 0;
  };

  /// Never destroyed: static destructors may still call.
  static Table& instance() {
    static Table* const table = new Table;
    return *table;
  }

  [[noreturn]] static void refuse(const char* name) {
    throw Failure(ALG_BAD_HANDLE,
                  std::string(name) + ": expected an open one, found a closed or foreign handle");
  }
};

}  // namespace c_interface
