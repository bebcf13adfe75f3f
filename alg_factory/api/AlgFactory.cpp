#include <alg_factory/api/AlgFactory.h>

#include <alg_factory/api/StereoSubsystem.h>

namespace algorithm {

AlgBase* AlgFactory::CreateALG(int type) {
  constexpr unsigned kLastType = 2;
  if (static_cast<unsigned>(type) > kLastType) return nullptr;
  return new StereoSubsystem;
}

AlgFactory& AlgFactory::operator=(const AlgFactory&) {
  return *this;
}

}  // namespace algorithm
