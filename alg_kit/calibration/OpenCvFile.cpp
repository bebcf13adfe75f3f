#include <alg_kit/calibration/CalibrationRecord.h>
#include <alg_kit/calibration/OpenCvFile.h>
#include <alg_kit/text/TextFile.h>
#include <yaml-cpp/yaml.h>

#include <algorithm>
#include <cmath>
#include <stdexcept>

namespace calibration {
namespace {

struct Document {
  std::string path;
  YAML::Node root;
};

/// A matrix with its place, for messages.
struct Matrix {
  std::string name;
  std::string path;
  int line = 0;
  int rows = 0, cols = 0;
  std::vector<double> data;
};

[[noreturn]] void fail(const std::string& path, const YAML::Node& node,
                       const std::string& problem) {
  throw text::FileError(path, node.Mark().line + 1, problem);
}

Document parse(const NamedText& file) {
  // "%YAML:1.0" is no directive that YAML knows; the lines keep their numbers.
  std::string text = file.content;
  if (text.compare(0, 5, "%YAML") == 0) text.replace(0, 5, "#YAML");
  try {
    Document document{file.path, YAML::Load(text)};
    if (!document.root.IsMap())
      throw text::FileError(file.path, 0, "expected OpenCV matrices by name, found none");
    return document;
  } catch (const YAML::Exception& error) {
    throw text::FileError(file.path, error.mark.line + 1,
                          "expected YAML, found an error: " + error.msg);
  }
}

class OpenCvReader {
 public:
  explicit OpenCvReader(std::vector<Document> documents) : documents_(std::move(documents)) {}

  LoadedCalibration read() {
    LoadedCalibration loaded;
    auto& c = loaded.calibration;
    loaded.format = "OpenCV FileStorage";
    camera({"K1", "M1", "cameraMatrix1"}, c.leftIntrinsics);
    camera({"K2", "M2", "cameraMatrix2"}, c.rightIntrinsics);
    loaded.left = lens({"D1", "distCoeffs1"}, c.leftDistortion);
    loaded.right = lens({"D2", "distCoeffs2"}, c.rightDistortion);
    copy(required({"R"}), 9, c.rotation);
    copy(required({"T"}), 3, c.translation);
    if (const auto f = find({"F"}); f.second) {
      copy(matrix(f, "F"), 9, c.fundamental);
      loaded.fundamentalInFile = true;
    }
    loaded.width = pixels({"image_width", "width"});
    loaded.height = pixels({"image_height", "height"});
    if (loaded.width == 0 || loaded.height == 0) loaded.width = loaded.height = 0;
    readUnit(loaded);
    const std::string problem = problemOf(c);
    if (!problem.empty()) throw text::FileError(documents_.back().path, 0, problem);
    return loaded;
  }

  /// Ours state it; OpenCV's own do not.
  void readUnit(LoadedCalibration& loaded) const {
    const auto [document, node] = find({"translation_unit"});
    if (document == nullptr) return;
    try {
      loaded.appliedFactor = millimetresPer(node.IsScalar() ? node.Scalar() : "");
    } catch (const std::invalid_argument& error) {
      fail(document->path, node, error.what());
    }
    for (double& t : loaded.calibration.translation) t *= loaded.appliedFactor;
    loaded.unit = "mm";
    loaded.unitSource = "stated in it";
  }

 private:
  using Found = std::pair<const Document*, YAML::Node>;
  using Names = std::vector<std::string>;

  /// The first of `names` that a document has; the second member is undefined where there is none.
  Found find(const Names& names) const {
    for (const Document& document : documents_)
      for (const std::string& name : names)
        if (const YAML::Node node = document.root[name]) return {&document, node};
    return {nullptr, YAML::Node(YAML::NodeType::Undefined)};
  }

  Matrix required(const Names& names) const {
    const Found found = find(names);
    if (found.first == nullptr) {
      std::string choice = names[0];
      for (std::size_t i = 1; i < names.size(); ++i) choice += " or " + names[i];
      throw text::FileError(
          documents_[0].path, 0,
          "expected the matrix " + choice + ", found none" +
              (documents_.size() == 1 ? " (it may be in a second file: give both)" : ""));
    }
    return matrix(found, names[0]);
  }

  static Matrix matrix(const Found& found, const std::string& name) {
    const auto& [document, node] = found;
    const std::string& path = document->path;
    if (!node.IsMap() || !node["rows"] || !node["cols"] || !node["data"])
      fail(path, node, "expected an OpenCV matrix (rows, cols, data) as " + name + ", found none");
    Matrix result{name, path, node.Mark().line + 1, 0, 0, {}};
    const YAML::Node data = node["data"];
    if (!YAML::convert<int>::decode(node["rows"], result.rows) ||
        !YAML::convert<int>::decode(node["cols"], result.cols) || !data.IsSequence() ||
        result.rows < 1 || result.cols < 1 || result.rows > 100 || result.cols > 100 ||
        data.size() != static_cast<std::size_t>(result.rows * result.cols))
      fail(path, node, "expected rows x cols numbers in " + name + ", found another count");
    for (const YAML::Node& entry : data) {
      double value = 0;
      if (!entry.IsScalar() || !YAML::convert<double>::decode(entry, value) ||
          !std::isfinite(value))
        fail(path, entry,
             "expected a finite number in " + name + ", found " +
                 (entry.IsScalar() ? text::quoted(entry.Scalar()) : std::string("a list")));
      result.data.push_back(value);
    }
    return result;
  }

  template <std::size_t N>
  static void copy(const Matrix& matrix, std::size_t count, double (&target)[N]) {
    const bool vector = matrix.rows == 1 || matrix.cols == 1;
    const bool square = matrix.rows == 3 && matrix.cols == 3;
    if (matrix.data.size() != count || !(count == 9 ? square : vector))
      throw text::FileError(matrix.path, matrix.line,
                            "expected " + std::string(count == 9 ? "3 x 3" : "3 x 1") +
                                " numbers in " + matrix.name + ", found " +
                                std::to_string(matrix.rows) + " x " + std::to_string(matrix.cols));
    std::copy(matrix.data.begin(), matrix.data.end(), target);
  }

  void camera(const Names& names, double (&intrinsics)[9]) const {
    copy(required(names), 9, intrinsics);
  }

  Lens lens(const Names& names, double (&distortion)[8]) const {
    const Matrix coefficients = required(names);
    const std::size_t count = coefficients.data.size();
    if (coefficients.rows != 1 && coefficients.cols != 1)
      throw text::FileError(coefficients.path, coefficients.line,
                            "expected one row or column of coefficients in " + names[0] +
                                ", found " + std::to_string(coefficients.rows) + " x " +
                                std::to_string(coefficients.cols));
    if (count < 4)
      throw text::FileError(
          coefficients.path, coefficients.line,
          "expected 4 or more coefficients in " + names[0] + ", found " + std::to_string(count));
    std::copy_n(coefficients.data.begin(), std::min<std::size_t>(count, 8), distortion);
    if (count == 4) return {LensModel::kEquidistant, false, "4 coefficients"};
    return {LensModel::kRadialTangential, true, std::to_string(count) + " coefficients"};
  }

  int pixels(const Names& names) const {
    const auto [document, node] = find(names);
    if (document == nullptr) return 0;
    int value = 0;
    if (!YAML::convert<int>::decode(node, value) || value < 1 || value > 65535)
      fail(document->path, node, "expected a whole number of pixels as " + names[0]);
    return value;
  }

  std::vector<Document> documents_;
};

}  // namespace

bool isOpenCvText(const std::string& content) {
  return content.compare(0, 5, "%YAML") == 0 || content.find("opencv-matrix") != std::string::npos;
}

LoadedCalibration readOpenCv(const std::vector<NamedText>& files) {
  std::vector<Document> documents;
  for (const NamedText& file : files) documents.push_back(parse(file));
  return OpenCvReader(std::move(documents)).read();
}

}  // namespace calibration
