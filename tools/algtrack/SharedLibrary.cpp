#include <tools/algtrack/SharedLibrary.h>

#include <dlfcn.h>

#include <cstring>
#include <filesystem>
#include <stdexcept>

namespace algtrack {
namespace {

// A static member function is called like a free one.
using CreateAlg = algorithm::AlgBase* (*)(int);
constexpr const char* kFactory = "_ZN9algorithm10AlgFactory9CreateALGEi";

}  // namespace

algorithm::AlgBase* loadAlg(const std::string& file) {
  std::error_code error;
  if (!std::filesystem::is_regular_file(file, error))
    throw std::runtime_error(
        file + ": expected a shared library, found " +
        (std::filesystem::exists(file, error) ? "what is no file" : "no such file"));
  // With a folder in its name no other library of that name is found.
  void* const library = dlopen(std::filesystem::absolute(file).c_str(), RTLD_NOW | RTLD_LOCAL);
  if (library == nullptr)
    throw std::runtime_error(file + ": expected a shared library, found one that cannot be loaded");
  void* const symbol = dlsym(library, kFactory);
  if (symbol == nullptr)
    throw std::runtime_error(file +
                             ": expected the tracking library, found one without its factory");
  CreateAlg create = nullptr;
  std::memcpy(&create, &symbol, sizeof create);
  algorithm::AlgBase* const alg = create(0);
  if (alg == nullptr) throw std::runtime_error(file + ": expected an algorithm object, found null");
  return alg;
}

}  // namespace algtrack
