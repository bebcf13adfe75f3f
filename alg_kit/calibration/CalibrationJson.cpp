#include <alg_kit/calibration/CalibrationJson.h>
#include <alg_kit/calibration/CalibrationRecord.h>
#include <alg_kit/text/TextFile.h>

#include <algorithm>
#include <stdexcept>

namespace calibration {
namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kFormat = "alg_factory stereo calibration";
constexpr int kVersion = 1;
constexpr std::size_t kDeepest = 32;  // a calibration has three

Json matrix(const double (&rows)[9]) {
  Json result = Json::array();
  for (int r = 0; r < 3; ++r) result.push_back({rows[3 * r], rows[3 * r + 1], rows[3 * r + 2]});
  return result;
}

Json camera(const double (&intrinsics)[9], const double (&distortion)[8]) {
  Json coefficients = Json::array();
  const int count =
      std::all_of(distortion + 4, distortion + 8, [](double k) { return k == 0; }) ? 4 : 8;
  for (int i = 0; i < count; ++i) coefficients.push_back(distortion[i]);
  return {{"cameraMatrix", matrix(intrinsics)},
          {"distortionModel", count == 4 ? "equidistant" : "unknown"},
          {"distortion", coefficients}};
}

/// A value for a message. A list may hold anything, any number of times, and is not shown.
std::string shown(const Json& value) {
  if (value.is_structured()) return value.is_array() ? "a list" : "an object";
  if (value.is_string()) return text::quoted(value.get_ref<const std::string&>());
  return value.dump();
}

/// Reads members and says in one line what is missing or wrong.
class JsonReader {
 public:
  explicit JsonReader(const std::string& path) : path_(path) {}

  const Json& member(const Json& object, const std::string& name) const {
    if (!object.is_object() || !object.contains(name))
      fail("expected the member " + name + ", found none");
    return object.at(name);
  }

  double number(const Json& value, const std::string& name) const {
    if (!value.is_number()) fail("expected a number in " + name + ", found " + shown(value));
    return value.get<double>();
  }

  std::string text(const Json& value, const std::string& name) const {
    if (!value.is_string()) fail("expected a text as " + name + ", found " + shown(value));
    return value.get<std::string>();
  }

  int pixels(const Json& value, const std::string& name) const {
    if (!value.is_number_integer() || value.get<std::int64_t>() < 1 ||
        value.get<std::int64_t>() > 65535)
      fail("expected a whole number of pixels as " + name + ", found " + shown(value));
    return value.get<int>();
  }

  void list(const Json& value, const std::string& name, std::size_t count, double* target) const {
    if (!value.is_array() || value.size() != count)
      fail("expected " + std::to_string(count) + " numbers in " + name + ", found " +
           (value.is_array() ? std::to_string(value.size()) : std::string("no list")));
    for (std::size_t i = 0; i < count; ++i) target[i] = number(value[i], name);
  }

  void matrix(const Json& value, const std::string& name, double (&rows)[9]) const {
    if (!value.is_array() || value.size() != 3)
      fail("expected 3 rows in " + name + ", found " +
           (value.is_array() ? std::to_string(value.size()) : std::string("no list")));
    for (std::size_t r = 0; r < 3; ++r) list(value[r], name, 3, rows + 3 * r);
  }

  Lens camera(const Json& object, const std::string& name, double (&intrinsics)[9],
              double (&distortion)[8]) const {
    matrix(member(object, "cameraMatrix"), name + " cameraMatrix", intrinsics);
    const Json& coefficients = member(object, "distortion");
    const bool eight = coefficients.is_array() && coefficients.size() == 8;
    list(coefficients, name + " distortion", eight ? 8 : 4, distortion);
    const std::string model = text(member(object, "distortionModel"), name + " distortionModel");
    if (model == "equidistant" && !eight) return {LensModel::kEquidistant, true, model};
    if (model == "radtan") return {LensModel::kRadialTangential, true, model};
    return {LensModel::kOther, true, model};
  }

  [[noreturn]] void fail(const std::string& problem) const {
    throw text::FileError(path_, 0, problem);
  }

 private:
  std::string path_;
};

}  // namespace

Json toJson(const algorithm::StereoCalibration& calibration, const std::string& unit, int width,
            int height) {
  Json json = {
      {"format", kFormat},
      {"version", kVersion},
      {"conventions",
       "camera frames x right, y down, z forward; p_right = rotation * p_left + translation; "
       "translation is the left camera's centre in the right camera's frame; fundamental maps a "
       "left point to its line in the right image; matrices row by row"},
      {"unit", unit.empty() ? Json(nullptr) : Json(unit)},
  };
  if (width > 0 && height > 0) json["image"] = {{"width", width}, {"height", height}};
  json["left"] = camera(calibration.leftIntrinsics, calibration.leftDistortion);
  json["right"] = camera(calibration.rightIntrinsics, calibration.rightDistortion);
  json["rotation"] = matrix(calibration.rotation);
  json["translation"] = {calibration.translation[0], calibration.translation[1],
                         calibration.translation[2]};
  json["fundamental"] = matrix(calibration.fundamental);
  return json;
}

LoadedCalibration readJson(const std::string& content, const std::string& path) {
  const JsonReader reader(path);
  Json json;
  try {
    if (text::nestingOf(content) > kDeepest)
      reader.fail("expected at most " + std::to_string(kDeepest) +
                  " brackets inside each other, found more");
    json = Json::parse(content);
  } catch (const Json::exception& error) {
    reader.fail(std::string("expected JSON, found an error: ") + error.what());
  }
  if (!json.is_object() || !json.contains("format") || json["format"] != kFormat)
    reader.fail(std::string("expected the JSON of a calibration (format \"") + kFormat +
                "\"), found other JSON");
  if (reader.member(json, "version") != kVersion)
    reader.fail("expected version 1, found " + shown(json["version"]));

  LoadedCalibration loaded;
  auto& c = loaded.calibration;
  loaded.format = "JSON";
  loaded.left =
      reader.camera(reader.member(json, "left"), "left", c.leftIntrinsics, c.leftDistortion);
  loaded.right =
      reader.camera(reader.member(json, "right"), "right", c.rightIntrinsics, c.rightDistortion);
  reader.matrix(reader.member(json, "rotation"), "rotation", c.rotation);
  reader.list(reader.member(json, "translation"), "translation", 3, c.translation);
  if (json.contains("fundamental")) {
    reader.matrix(json["fundamental"], "fundamental", c.fundamental);
    loaded.fundamentalInFile = true;
  }
  if (json.contains("image")) {
    loaded.width = reader.pixels(reader.member(json["image"], "width"), "image width");
    loaded.height = reader.pixels(reader.member(json["image"], "height"), "image height");
  }
  const std::string problem = problemOf(c);
  if (!problem.empty()) reader.fail(problem);

  const Json& unit = reader.member(json, "unit");
  if (!unit.is_null()) {
    try {
      loaded.appliedFactor = millimetresPer(reader.text(unit, "unit"));
    } catch (const std::invalid_argument& error) {
      reader.fail(error.what());
    }
    for (double& t : c.translation) t *= loaded.appliedFactor;
    loaded.unit = "mm";
    loaded.unitSource = "stated in it";
  }
  return loaded;
}

}  // namespace calibration
