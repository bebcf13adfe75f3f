#pragma once

#include <cstdint>
#include <vector>

#include <alg_factory/api/Constants.h>

namespace algorithm {

/// What the stages do differently for a product type. Its objects and their marker points, which
/// hosts know too, stand in kProductObjects.
struct Product {
  int areaDivisor;          ///< weight units per pixel of blob area
  double maxDepth;          ///< largest depth of a point
  bool keepsNearReference;  ///< points far from the reference id are removed
  bool guardsJumps;         ///< objects 0 and 1 reject jumps, object 2 has two marker points
  float typeParam1;         ///< carried, not read; set only where jumps are guarded
  float typeParam2;         ///< largest factor of the two-point object's diameter ratio; likewise
};

/// Index = product type.
inline constexpr Product kProducts[kProductTypes] = {
    {110, 3500.0, true, false, 0.0f, 0.0f},
    {110, 3500.0, true, true, 1.5f, 1.2f},
    {110, 4500.0, false, false, 0.0f, 0.0f},
};

/// @return null for an unknown product type.
constexpr const Product* findProduct(std::int32_t type) {
  return isProductType(type) ? &kProducts[type] : nullptr;
}

/// The marker points of each object of a known product type.
inline std::vector<std::int32_t> markersByObject(std::int32_t type) {
  const ProductObjects& objects = kProductObjects[type];
  return {objects.markers, objects.markers + objects.count};
}

}  // namespace algorithm
