#include <alg_factory/api/AlgFactory.h>

#include <alg_factory/api/StereoSubsystem.h>

namespace algorithm {

AlgBase* AlgFactory::CreateALG(int type) {
  if (!isProductType(type)) return nullptr;
  return new StereoSubsystem;
}

AlgFactory& AlgFactory::operator=(const AlgFactory&) {
  return *this;
}

}  // namespace algorithm
