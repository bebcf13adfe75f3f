#include <alg_factory/api/Version.h>

const char* alg_factory_version() noexcept {
  return ALG_FACTORY_VERSION;
}
