// Public: installed for hosts.
//
// Visibility of what crosses the library's boundary. Everything else is hidden.
#pragma once

#if defined(_WIN32)
#if defined(ALG_FACTORY_STATIC)
#define ALG_FACTORY_EXPORT
#elif defined(ALG_FACTORY_BUILDING)
#define ALG_FACTORY_EXPORT __declspec(dllexport)
#else
#define ALG_FACTORY_EXPORT __declspec(dllimport)
#endif
#define ALG_FACTORY_INTERFACE
#else
#define ALG_FACTORY_EXPORT __attribute__((visibility("default")))
/// Interfaces have default visibility so that a host and the library agree on their type identity.
#define ALG_FACTORY_INTERFACE __attribute__((visibility("default")))
#endif
