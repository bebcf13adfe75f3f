// The shared library, loaded from its file at run time and unloaded again; nothing links it.
#pragma once

#include <alg_factory/api/AlgBase.h>

#include <cstring>
#include <stdexcept>
#include <string>

#if defined(_WIN32)
#define WIN32_LEAN_AND_MEAN
#include <windows.h>
#else
#include <dlfcn.h>
#endif

namespace testing_support {

class LoadedLibrary {
 public:
  LoadedLibrary() {
#if defined(_WIN32)
    handle_ = LoadLibraryA(ALG_LIBRARY_FILE);
#else
    handle_ = dlopen(ALG_LIBRARY_FILE, RTLD_NOW | RTLD_LOCAL);
#endif
    if (handle_ == nullptr) throw std::runtime_error(ALG_LIBRARY_FILE " cannot be loaded");
  }
  ~LoadedLibrary() {
    unload();
  }
  LoadedLibrary(const LoadedLibrary&) = delete;
  LoadedLibrary& operator=(const LoadedLibrary&) = delete;

  algorithm::AlgBase* create(int type) const {
    using CreateAlg = algorithm::AlgBase* (*)(int);
    return function<CreateAlg>("_ZN9algorithm10AlgFactory9CreateALGEi")(type);
  }

  /// A function that the library exports under `name`.
  template <typename Function>
  Function function(const char* name) const {
#if defined(_WIN32)
    const auto symbol = GetProcAddress(handle_, name);
#else
    void* const symbol = dlsym(handle_, name);
#endif
    if (symbol == nullptr) throw std::runtime_error(std::string("no symbol ") + name);
    Function result;
    static_assert(sizeof result == sizeof symbol, "functions are found as plain pointers");
    std::memcpy(&result, &symbol, sizeof result);
    return result;
  }

  void unload() {
    if (handle_ == nullptr) return;
#if defined(_WIN32)
    FreeLibrary(handle_);
#else
    dlclose(handle_);
#endif
    handle_ = nullptr;
  }

  /// Somebody in this process has the library loaded.
  static bool isLoaded() {
#if defined(_WIN32)
    return GetModuleHandleA(ALG_LIBRARY_FILE) != nullptr;
#else
    void* const handle = dlopen(ALG_LIBRARY_FILE, RTLD_NOW | RTLD_NOLOAD);
    if (handle != nullptr) dlclose(handle);
    return handle != nullptr;
#endif
  }

 private:
#if defined(_WIN32)
  HMODULE handle_ = nullptr;
#else
  void* handle_ = nullptr;
#endif
};

}  // namespace testing_support
