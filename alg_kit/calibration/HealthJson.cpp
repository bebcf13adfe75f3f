#include <alg_kit/calibration/HealthJson.h>

namespace calibration {

nlohmann::ordered_json toJson(const std::vector<HealthPoint>& trend) {
  auto json = nlohmann::ordered_json::array();
  for (const HealthPoint& point : trend)
    json.push_back({{"from_s", point.from},
                    {"to_s", point.to},
                    {"pairs", point.pairs},
                    {"residual_px", point.residual},
                    {"residual_refined_px", point.residualRefined},
                    {"rotation_deg", point.rotation},
                    {"rotation_sd_deg", point.rotationDeviation}});
  return json;
}

}  // namespace calibration
