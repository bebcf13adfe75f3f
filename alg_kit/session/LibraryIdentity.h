#pragma once

#include <alg_factory/api/AlgBase.h>

#include <string>

namespace session {

/// Which library stands behind an algorithm object. Empty where the platform does not tell.
struct LibraryIdentity {
  std::string file;  ///< the file's name, without its folder: a library, or a program with a copy
  std::string buildId;  ///< hexadecimal; what the linker made of the file's content
  std::string version;  ///< "1.0.0"; of libraries that can be asked
};

/// @param alg  what a factory gave, not an object around it: its code is looked for
LibraryIdentity identityOf(const algorithm::AlgBase& alg);

}  // namespace session
