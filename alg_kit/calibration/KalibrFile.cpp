#include <alg_kit/calibration/CalibrationWriter.h>
#include <alg_kit/calibration/KalibrFile.h>
#include <alg_kit/text/TextFile.h>

#include <yaml-cpp/yaml.h>

#include <Eigen/Dense>
#include <cmath>
#include <vector>

namespace calibration {
namespace {

constexpr double kMillimetresPerMetre = 1000;

struct CameraEntry {
  Eigen::Vector4d intrinsics;
  Eigen::Vector4d distortion;
  int width, height;
  std::string distortionModel;
};

class ChainReader {
 public:
  explicit ChainReader(const std::string& path, DistortionModels* models = nullptr)
      : path_(path), models_(models) {}

  rig::StereoRig read() {
    const std::string text = text::readTextFile(path_, "a Kalibr camera chain", 512 * 1024);
    try {
      return rigFrom(YAML::Load(text));
    } catch (const YAML::Exception& error) {
      // YAML counts lines from 0 and gives -1 where it has none.
      throw text::FileError(path_, error.mark.line + 1,
                            "expected YAML, found an error: " + error.msg);
    }
  }

 private:
  rig::StereoRig rigFrom(const YAML::Node& root) {
    if (!root.IsMap()) fail(root, "expected a map with cam0 and cam1, found none");
    const YAML::Node left = member(root, "cam0", "the top level");
    const YAML::Node right = member(root, "cam1", "the top level");
    const CameraEntry leftEntry = camera(left, "cam0");
    const CameraEntry rightEntry = camera(right, "cam1");
    if (models_ != nullptr) *models_ = {leftEntry.distortionModel, rightEntry.distortionModel};
    if (leftEntry.width != rightEntry.width || leftEntry.height != rightEntry.height)
      fail(right, "expected the resolution of cam0, found another");
    const Eigen::Matrix4d leftToRightMetres = transform(left, right);
    Eigen::Vector3d p_LinR = leftToRightMetres.topRightCorner<3, 1>() * kMillimetresPerMetre;
    // Straight from the text where it stands there: one rounding less.
    if (const YAML::Node stated = right["T_cn_cnm1"])
      for (int row = 0; row < 3; ++row) readShifted(stated[row][3].Scalar(), 3, p_LinR[row]);
    if (p_LinR.norm() < 1e-6) fail(right, "expected cameras apart, found both in one place");
    return {rig::makeCalibration(leftEntry.intrinsics, leftEntry.distortion, rightEntry.intrinsics,
                                 rightEntry.distortion, leftToRightMetres.topLeftCorner<3, 3>(),
                                 p_LinR),
            leftEntry.width, leftEntry.height};
  }

  CameraEntry camera(const YAML::Node& node, const std::string& name) {
    if (!node.IsMap()) fail(node, "expected a map under " + name + ", found none");
    expectText(node, name, "camera_model", "pinhole");
    if (models_ == nullptr) expectText(node, name, "distortion_model", "equidistant");
    const YAML::Node model = member(node, "distortion_model", name);
    if (!model.IsScalar()) fail(model, "expected a name as distortion_model in " + name);
    const auto intrinsics = numbers(member(node, "intrinsics", name), 4, name + " intrinsics");
    const auto distortion =
        numbers(member(node, "distortion_coeffs", name), 4, name + " distortion_coeffs");
    const YAML::Node resolutionNode = member(node, "resolution", name);
    const auto resolution = numbers(resolutionNode, 2, name + " resolution");
    if (intrinsics[0] <= 0 || intrinsics[1] <= 0)
      fail(node["intrinsics"], "expected positive focal lengths in " + name + ", found others");
    for (const double size : resolution)
      if (size < 1 || size > 65535 || size != std::floor(size))
        fail(resolutionNode, "expected whole numbers of pixels in " + name + " resolution");
    return {Eigen::Vector4d(intrinsics.data()), Eigen::Vector4d(distortion.data()),
            static_cast<int>(resolution[0]), static_cast<int>(resolution[1]), model.Scalar()};
  }

  Eigen::Matrix4d transform(const YAML::Node& left, const YAML::Node& right) {
    if (right["T_cn_cnm1"]) return rigidTransform(right["T_cn_cnm1"], "cam1 T_cn_cnm1");
    if (!left["T_cam_imu"] || !right["T_cam_imu"])
      fail(right, "expected T_cn_cnm1 in cam1 or T_cam_imu in both cameras, found neither");
    return rigidTransform(right["T_cam_imu"], "cam1 T_cam_imu") *
           rigidTransform(left["T_cam_imu"], "cam0 T_cam_imu").inverse();
  }

  Eigen::Matrix4d rigidTransform(const YAML::Node& node, const std::string& name) {
    if (!node.IsSequence() || node.size() != 4)
      fail(node, "expected 4 rows in " + name + ", found " + countOf(node));
    Eigen::Matrix4d matrix;
    for (int row = 0; row < 4; ++row) {
      const auto values = numbers(node[row], 4, "row " + std::to_string(row + 1) + " of " + name);
      matrix.row(row) = Eigen::RowVector4d(values.data());
    }
    const Eigen::Matrix3d rotation = matrix.topLeftCorner<3, 3>();
    const double deviation =
        (rotation * rotation.transpose() - Eigen::Matrix3d::Identity()).cwiseAbs().maxCoeff();
    if (deviation > 1e-3 || rotation.determinant() < 0)
      fail(node, "expected a rotation in " + name + ", found a matrix that is none");
    if (matrix.row(3) != Eigen::RowVector4d(0, 0, 0, 1))
      fail(node, "expected 0 0 0 1 as the last row of " + name + ", found other numbers");
    return matrix;
  }

  std::vector<double> numbers(const YAML::Node& node, std::size_t count, const std::string& name) {
    if (!node.IsSequence() || node.size() != count)
      fail(node, "expected " + std::to_string(count) + " numbers in " + name + ", found " +
                     countOf(node));
    std::vector<double> values;
    for (const YAML::Node& entry : node) {
      double value = 0;
      if (!entry.IsScalar() || !YAML::convert<double>::decode(entry, value) ||
          !std::isfinite(value))
        fail(entry, "expected a finite number in " + name + ", found " + textOf(entry));
      values.push_back(value);
    }
    return values;
  }

  void expectText(const YAML::Node& node, const std::string& name, const char* key,
                  const char* expected) {
    const YAML::Node entry = member(node, key, name);
    if (!entry.IsScalar() || entry.Scalar() != expected)
      fail(entry, "expected " + std::string(key) + " " + expected + " in " + name + ", found " +
                      textOf(entry));
  }

  YAML::Node member(const YAML::Node& node, const char* key, const std::string& parent) {
    const YAML::Node entry = node[key];
    if (!entry) fail(node, "expected " + std::string(key) + " in " + parent + ", found none");
    return entry;
  }

  static std::string countOf(const YAML::Node& node) {
    return node.IsSequence() ? std::to_string(node.size()) : textOf(node);
  }

  static std::string textOf(const YAML::Node& node) {
    if (node.IsScalar()) return text::quoted(node.Scalar());
    return node.IsSequence() ? "a list" : node.IsMap() ? "a map" : "nothing";
  }

  [[noreturn]] void fail(const YAML::Node& node, const std::string& problem) {
    throw text::FileError(path_, node.Mark().line + 1, problem);
  }

  std::string path_;
  DistortionModels* models_;  ///< null: only the equidistant model will do
};

}  // namespace

rig::StereoRig readKalibrCameraChain(const std::string& path) {
  return ChainReader(path).read();
}

rig::StereoRig readKalibrCameraChain(const std::string& path, DistortionModels& models) {
  return ChainReader(path, &models).read();
}

}  // namespace calibration
