#include <examples/demo/SvgDocument.h>

#include <cmath>
#include <iomanip>
#include <locale>
#include <ostream>

namespace demo {
namespace {

constexpr double kSmallestStep = 1.0 / 3;  // px

std::string escaped(const std::string& text) {
  std::string result;
  for (const char c : text) {
    if (c == '<')
      result += "&lt;";
    else if (c == '&')
      result += "&amp;";
    else
      result += c;
  }
  return result;
}

}  // namespace

SvgDocument::SvgDocument(double width, double height) : width_(width), height_(height) {
  body_.imbue(std::locale::classic());
  body_ << std::fixed << std::setprecision(1);
}

void SvgDocument::rectangle(Point corner, double width, double height,
                            const std::string& attributes) {
  body_ << "<rect x='" << corner.x << "' y='" << corner.y << "' width='" << width << "' height='"
        << height << "' " << attributes << "/>\n";
}

void SvgDocument::line(Point from, Point to, const std::string& attributes) {
  body_ << "<line x1='" << from.x << "' y1='" << from.y << "' x2='" << to.x << "' y2='" << to.y
        << "' " << attributes << "/>\n";
}

void SvgDocument::polyline(const std::vector<Point>& points, const std::string& attributes) {
  if (points.empty()) return;
  body_ << "<polyline fill='none' " << attributes << " points='";
  Point last = points.front();
  for (std::size_t i = 0; i < points.size(); ++i) {
    const bool isEnd = i == 0 || i + 1 == points.size();
    if (!isEnd && std::hypot(points[i].x - last.x, points[i].y - last.y) < kSmallestStep) continue;
    last = points[i];
    body_ << last.x << "," << last.y << " ";
  }
  body_ << "'/>\n";
}

void SvgDocument::text(Point at, const std::string& content, const std::string& attributes) {
  body_ << "<text x='" << at.x << "' y='" << at.y << "' " << attributes << ">" << escaped(content)
        << "</text>\n";
}

void SvgDocument::circle(Point centre, double radius, const std::string& attributes) {
  body_ << "<circle cx='" << centre.x << "' cy='" << centre.y << "' r='" << radius << "' "
        << attributes << "/>\n";
}

void SvgDocument::beginClip(Point corner, double width, double height) {
  body_ << "<clipPath id='clip" << clips_ << "'>";
  rectangle(corner, width, height, "");
  body_ << "</clipPath>\n<g clip-path='url(#clip" << clips_ << ")'>\n";
  ++clips_;
}

void SvgDocument::endClip() {
  body_ << "</g>\n";
}

void SvgDocument::write(std::ostream& out) const {
  const auto width = static_cast<int>(width_);
  const auto height = static_cast<int>(height_);
  out << "<?xml version='1.0' encoding='UTF-8'?>\n<svg xmlns='http://www.w3.org/2000/svg' width='"
      << width << "' height='" << height << "' viewBox='0 0 " << width << " " << height
      << "' font-family='Helvetica, Arial, sans-serif' font-size='12'>\n"
      << body_.str() << "</svg>\n";
}

}  // namespace demo
