#pragma once

#include <iosfwd>
#include <sstream>
#include <string>
#include <vector>

namespace demo {

/// A point of a picture; x to the right, y down, in pixels.
struct Point {
  double x = 0;
  double y = 0;
};

/// Writes the few SVG elements that a plot needs.
class SvgDocument {
 public:
  SvgDocument(double width, double height);

  void rectangle(Point corner, double width, double height, const std::string& attributes);
  void line(Point from, Point to, const std::string& attributes);
  /// Points that move the line by less than a third of a pixel are left out.
  void polyline(const std::vector<Point>& points, const std::string& attributes);
  void text(Point at, const std::string& content, const std::string& attributes);
  void circle(Point centre, double radius, const std::string& attributes);

  /// Everything drawn until endClip is cut to the rectangle.
  void beginClip(Point corner, double width, double height);
  void endClip();

  void write(std::ostream& out) const;

 private:
  double width_, height_;
  int clips_ = 0;
  std::ostringstream body_;
};

}  // namespace demo
