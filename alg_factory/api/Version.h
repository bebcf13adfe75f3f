// Public: installed for hosts.
//
// The version of these headers, and that of the library which the process has loaded.
#pragma once

#include <alg_factory/api/Export.h>

/// Of the headers that a host was compiled with. The major number changes when such a host can no
/// longer run with the library, the minor number when something was added, the last when neither.
#define ALG_FACTORY_VERSION "1.0.0"
#define ALG_FACTORY_VERSION_MAJOR 1
#define ALG_FACTORY_VERSION_MINOR 0
#define ALG_FACTORY_VERSION_PATCH 0

/// Of the library, as "major.minor.patch"; a text that lives as long as the library. May be called
/// at any time from any thread. Hosts that load the library at run time find it under this name.
extern "C" ALG_FACTORY_EXPORT const char* alg_factory_version() noexcept;
