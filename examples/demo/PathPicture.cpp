#include <examples/demo/PathPicture.h>
#include <examples/demo/SvgDocument.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdio>
#include <limits>
#include <ostream>
#include <string>

namespace demo {
namespace {

constexpr double kWidth = 1200;
constexpr double kMargin = 24;
constexpr double kHeader = 64;
constexpr double kAxisSpace = 52;  // left of and below a plot, for its numbers
constexpr double kGap = 18;
constexpr double kErrorHeight = 110;
constexpr double kSmallestViews = 170;
constexpr double kLargestViews = 420;
constexpr double kShownError = 0.999;  // share of the errors that fit the error plot

constexpr std::array<const char*, 6> kColours = {"#0072b2", "#d55e00", "#009e73",
                                                 "#aa3377", "#b58900", "#555555"};
constexpr std::array<const char*, 6> kPaleColours = {"#b5d8ec", "#f7cfae", "#a9e0cd",
                                                     "#e9bfd6", "#f2df9f", "#cfcfcf"};
const std::string kGridStyle = "stroke='#e6e6e6' stroke-width='1'";
const std::string kFrameStyle = "fill='none' stroke='#888' stroke-width='1'";
const std::string kNumberStyle = "fill='#555' font-size='10'";

struct Range {
  double low = std::numeric_limits<double>::infinity();
  double high = -std::numeric_limits<double>::infinity();

  void include(double value) {
    low = std::min(low, value);
    high = std::max(high, value);
  }
  double span() const { return high - low; }
  Range padded(double amount) const { return {low - amount, high + amount}; }
};

// 1, 2 or 5 times a power of ten, so that about `count` steps fill the span.
double tickStep(double span, double count) {
  const double rough = span / count;
  const double power = std::pow(10, std::floor(std::log10(rough)));
  for (const double factor : {1.0, 2.0, 5.0})
    if (factor * power >= rough) return factor * power;
  return 10 * power;
}

std::string numberText(double value, double step) {
  const int decimals = std::max(0, static_cast<int>(-std::floor(std::log10(step) + 1e-9)));
  char text[32];
  std::snprintf(text, sizeof text, "%.*f", decimals, std::abs(value) < step / 1e6 ? 0.0 : value);
  return text;
}

// A frame with axes; maps values to pixels.
class Plot {
 public:
  Plot(SvgDocument& svg, Point corner, double width, double height, Range x, Range y)
      : svg_(svg), corner_(corner), width_(width), height_(height), x_(x), y_(y) {}

  Point at(double x, double y) const {
    return {corner_.x + (x - x_.low) / x_.span() * width_,
            corner_.y + (y_.high - y) / y_.span() * height_};
  }

  void drawAxes(const std::string& title, const std::string& xLabel, const std::string& yLabel,
                double xTicks, double yTicks) {
    svg_.rectangle(corner_, width_, height_, "fill='#fff'");
    const double right = corner_.x + width_;
    const double bottom = corner_.y + height_;
    const double xStep = tickStep(x_.span(), xTicks);
    for (double v = std::ceil(x_.low / xStep) * xStep; v <= x_.high; v += xStep) {
      const double px = at(v, y_.low).x;
      svg_.line({px, corner_.y}, {px, bottom}, kGridStyle);
      svg_.text({px, bottom + 14}, numberText(v, xStep), kNumberStyle + " text-anchor='middle'");
    }
    const double yStep = tickStep(y_.span(), yTicks);
    for (double v = std::ceil(y_.low / yStep) * yStep; v <= y_.high; v += yStep) {
      const double py = at(x_.low, v).y;
      svg_.line({corner_.x, py}, {right, py}, kGridStyle);
      svg_.text({corner_.x - 5, py + 3.5}, numberText(v, yStep),
                kNumberStyle + " text-anchor='end'");
    }
    svg_.rectangle(corner_, width_, height_, kFrameStyle);
    svg_.text({corner_.x + width_ / 2, bottom + 30}, xLabel, "fill='#333' text-anchor='middle'");
    const Point side{corner_.x - 40, corner_.y + height_ / 2};
    svg_.text(side, yLabel,
              "fill='#333' text-anchor='middle' transform='rotate(-90 " + std::to_string(side.x) +
                  " " + std::to_string(side.y) + ")'");
    svg_.text({corner_.x, corner_.y - 7}, title, "fill='#333' font-weight='bold'");
  }

  void beginContent() { svg_.beginClip(corner_, width_, height_); }
  void endContent() { svg_.endClip(); }

 private:
  SvgDocument& svg_;
  Point corner_;
  double width_, height_;
  Range x_, y_;
};

struct View {
  const char* title;
  int across;  // coordinate along the horizontal axis
  int up;      // coordinate along the vertical axis
  bool upsideDown;
};

// From the top the cameras are below the picture: far away (small z) is up.
constexpr std::array<View, 3> kViews = {{{"from the top", 0, 2, true},
                                         {"from the front", 0, 1, false},
                                         {"from the side", 2, 1, false}}};
constexpr std::array<const char*, 3> kAxisNames = {"x, mm", "y, mm", "z, mm"};

std::array<Range, 3> extentOf(const Run& run) {
  std::array<Range, 3> extent;
  for (const auto& frame : run.frames)
    for (const auto& sample : frame)
      for (int i = 0; i < 3; ++i) extent[i].include(sample.truth[i]);
  for (auto& range : extent) range = range.padded(30);
  return extent;
}

// Calls draw(points) for each stretch of frames in which `position` gives a point.
template <typename Position, typename Draw>
void forEachStretch(const Run& run, int object, Position position, Draw draw) {
  std::vector<Point> stretch;
  for (std::size_t n = 0; n < run.frames.size(); ++n) {
    const std::optional<Point> point = position(n, run.frames[n][static_cast<std::size_t>(object)]);
    if (point) stretch.push_back(*point);
    if (!point || n + 1 == run.frames.size()) {
      draw(stretch);
      stretch.clear();
    }
  }
}

void drawPaths(SvgDocument& svg, Plot& plot, const View& view, const Run& run) {
  const auto onPlot = [&](const Eigen::Vector3d& p) {
    return plot.at(p[view.across], view.upsideDown ? -p[view.up] : p[view.up]);
  };
  plot.beginContent();
  for (int object = 0; object < run.objects; ++object)
    forEachStretch(
        run, object,
        [&](std::size_t, const ObjectSample& sample) {
          return std::optional<Point>(onPlot(sample.truth));
        },
        [&](const std::vector<Point>& points) {
          svg.polyline(points, "stroke='" + std::string(kPaleColours[object]) +
                                   "' stroke-width='4' stroke-linejoin='round'");
        });
  for (int object = 0; object < run.objects; ++object) {
    const std::string colour = kColours[object];
    forEachStretch(
        run, object,
        [&](std::size_t, const ObjectSample& sample) {
          return sample.raw ? std::optional<Point>(onPlot(*sample.raw)) : std::nullopt;
        },
        [&](const std::vector<Point>& points) {
          svg.polyline(points, "stroke='" + colour + "' stroke-width='1' stroke-linejoin='round'");
        });
  }
  for (int object = 0; object < run.objects; ++object)
    svg.circle(onPlot(run.frames.front()[static_cast<std::size_t>(object)].truth), 4,
               "fill='" + std::string(kColours[object]) + "' stroke='#fff'");
  plot.endContent();
}

void drawErrors(SvgDocument& svg, Plot& plot, const Run& run, double top) {
  plot.beginContent();
  for (int object = 0; object < run.objects; ++object)
    forEachStretch(
        run, object,
        [&](std::size_t n, const ObjectSample& sample) {
          if (!sample.raw) return std::optional<Point>();
          const double error = (*sample.raw - sample.truth).norm();
          return std::optional<Point>(
              plot.at(static_cast<double>(n) / run.frameRate, std::min(error, top)));
        },
        [&](const std::vector<Point>& points) {
          svg.polyline(points, "stroke='" + std::string(kColours[object]) +
                                   "' stroke-width='0.7' stroke-opacity='0.65'");
        });
  plot.endContent();
}

// The error that all but a few in a thousand stay below: single outliers would flatten the rest.
double errorTop(const Run& run) {
  std::vector<double> errors;
  for (const auto& frame : run.frames)
    for (const auto& sample : frame)
      if (sample.raw) errors.push_back((*sample.raw - sample.truth).norm());
  if (errors.empty()) return 1;
  const auto rank =
      static_cast<std::ptrdiff_t>(kShownError * static_cast<double>(errors.size() - 1));
  std::nth_element(errors.begin(), errors.begin() + rank, errors.end());
  return std::max(1.1 * errors[static_cast<std::size_t>(rank)], 0.1);
}

double largestError(const Run& run) {
  double largest = 0;
  for (const auto& frame : run.frames)
    for (const auto& sample : frame)
      if (sample.raw) largest = std::max(largest, (*sample.raw - sample.truth).norm());
  return largest;
}

void drawLegend(SvgDocument& svg, const Run& run, double y) {
  double x = kWidth - kMargin - 72.0 * run.objects;
  for (int object = 0; object < run.objects; ++object, x += 72) {
    svg.line({x, y - 4}, {x + 18, y - 4},
             "stroke='" + std::string(kPaleColours[object]) + "' stroke-width='5'");
    svg.line({x, y - 4}, {x + 18, y - 4},
             "stroke='" + std::string(kColours[object]) + "' stroke-width='1.2'");
    svg.text({x + 22, y}, "object " + std::to_string(object), "fill='#333' font-size='11'");
  }
}

// Draws one run from `top` downwards; returns where it ends.
double drawRun(SvgDocument& svg, const Run& run, double top) {
  svg.text({kMargin, top + 18}, run.title, "font-size='16' font-weight='bold' fill='#111'");
  drawLegend(svg, run, top + 18);

  // One scale (mm per pixel) for the three views, so that they fill the width together.
  const auto extent = extentOf(run);
  double across = 0;
  double up = 0;
  for (const View& view : kViews) {
    across += extent[view.across].span();
    up = std::max(up, extent[view.up].span());
  }
  const double space = kWidth - 2 * kMargin - 3 * kAxisSpace - 2 * kGap;
  const double height = std::clamp(up * space / across, kSmallestViews, kLargestViews);
  const double scale = std::min(space / across, height / up);  // pixels per mm

  double left = kMargin + kAxisSpace;
  const double viewsTop = top + 52;
  for (const View& view : kViews) {
    const Range x = extent[view.across];
    Range y = extent[view.up];
    if (view.upsideDown) y = {-y.high, -y.low};
    const double width = x.span() * scale;
    Plot plot(svg, {left, viewsTop}, width, y.span() * scale, x, y);
    const std::string upLabel =
        view.upsideDown ? "distance (-z), mm" : std::string(kAxisNames[view.up]);
    plot.drawAxes(view.title, kAxisNames[view.across], upLabel, width / 50, y.span() * scale / 26);
    drawPaths(svg, plot, view, run);
    left += width + kGap + kAxisSpace;
  }

  const double errorsTop = viewsTop + up * scale + 66;
  const double errorLimit = errorTop(run);
  Plot errors(svg, {kMargin + kAxisSpace, errorsTop}, kWidth - 2 * kMargin - kAxisSpace,
              kErrorHeight,
              {0, std::max<double>(1, static_cast<double>(run.frames.size())) / run.frameRate},
              {0, errorLimit});
  char title[120];
  std::snprintf(title, sizeof title,
                "distance of the delivered position to the true one (largest %.1f mm%s)",
                largestError(run), largestError(run) > errorLimit ? ", cut at the top" : "");
  errors.drawAxes(title, "time, s", "mm", 20, 4);
  drawErrors(svg, errors, run, errorLimit);
  return errorsTop + kErrorHeight + 52;
}

}  // namespace

void writePathPicture(std::ostream& out, const std::vector<Run>& runs) {
  // The height follows from what is drawn: once to measure, once to write.
  double height = kHeader;
  for (const bool measuring : {true, false}) {
    SvgDocument svg(kWidth, height);
    svg.rectangle({0, 0}, kWidth, height, "fill='#fafafa'");
    svg.text({kMargin, 32}, "True and tracked paths", "font-size='20' fill='#111'");
    svg.text({kMargin, 50},
             "wide pale line: true path; thin line: delivered path; dot: where it begins. "
             "x right, y up, z towards the viewer, origin in the right camera.",
             "fill='#555'");
    double top = kHeader;
    for (const Run& run : runs) top = drawRun(svg, run, top);
    height = top;
    if (!measuring) svg.write(out);
  }
}

}  // namespace demo
