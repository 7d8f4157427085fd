#include <algorithm>
#include <cmath>
#include <cstdio>
#include <string>
#include <vector>

#include "bench/load/report.h"

// Across, the percentile, on a scale on which each nine takes the same room; up, milliseconds, on a
// logarithmic one.

namespace {

constexpr double left = 80, right = 700, top = 50, bottom = 400;
constexpr double nines = 5;  // up to 99.999 %
const char* const colours[] = {"#1b6ca8", "#d1495b", "#3a7d44", "#b5651d", "#6a4c93", "#444444"};

class Canvas {
public:
  Canvas(double lowest, double highest) : lowest_(lowest), highest_(highest) {}

  double x(double n) const { return left + (right - left) * n / nines; }
  double y(double milliseconds) const {
    const double part = (std::log10(milliseconds) - lowest_) / (highest_ - lowest_);
    return bottom - (bottom - top) * std::min(1.0, std::max(0.0, part));
  }
  void line(double x1, double y1, double x2, double y2) {
    add("<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" stroke=\"#ddd\"/>\n", x1, y1, x2,
        y2);
  }
  void label(double x, double y, const char* anchor, const std::string& text) {
    add("<text x=\"%.1f\" y=\"%.1f\" text-anchor=\"%s\">%s</text>\n", x, y, anchor, text.c_str());
  }
  void curve(const std::string& points, const char* colour) {
    text += "<polyline fill=\"none\" stroke-width=\"2\" stroke=\"" + std::string(colour) +
            "\" points=\"" + points + "\"/>\n";
  }
  template <typename... Values>
  void add(const char* format, Values... values) {
    char piece[400];
    std::snprintf(piece, sizeof piece, format, values...);
    text += piece;
  }

  std::string text;

private:
  const double lowest_;  // powers of ten
  const double highest_;
};

std::string number(double value) {
  char text[32];
  std::snprintf(text, sizeof text, "%g", value);
  return text;
}

double milliseconds(const Histogram& latencies, double n) {
  return std::max<double>(latencies.quantile(1 - std::pow(10, -n)), 1) / 1e6;
}

void draw_grid(Canvas& canvas, int lowest, int highest) {
  for (int n = 0; n <= nines; ++n) {
    canvas.line(canvas.x(n), top, canvas.x(n), bottom);
    canvas.label(canvas.x(n), bottom + 18, "middle", number(100 - std::pow(10, 2 - n)) + " %");
  }
  for (int power = lowest; power <= highest; ++power) {
    const double value = std::pow(10, power);
    canvas.line(left, canvas.y(value), right, canvas.y(value));
    canvas.label(left - 8, canvas.y(value) + 4, "end", number(value));
  }
  canvas.label((left + right) / 2, bottom + 40, "middle", "part of the calls");
  canvas.add(
      "<text transform=\"translate(24 %.0f) rotate(-90)\" text-anchor=\"middle\">"
      "latency at most, ms</text>\n",
      (top + bottom) / 2);
}

/// As far to the right as there were calls to tell.
void draw_curve(Canvas& canvas, const Histogram& latencies, const char* colour) {
  const double end = std::min(nines, std::log10(std::max<double>(latencies.count(), 2)));
  std::string points;
  for (double n = 0; n <= end; n += 0.02) {
    points += number(canvas.x(n)) + "," + number(canvas.y(milliseconds(latencies, n))) + " ";
  }
  canvas.curve(points, colour);
}

}  // namespace

bool plot(const std::string& file, const std::vector<Result>& results) {
  double least = 1e9;
  double most = 1e-6;
  for (const Result& result : results) {
    least = std::min(least, milliseconds(result.all.latencies, 0));
    most = std::max(most, result.all.latencies.max() / 1e6);
  }
  const int lowest = static_cast<int>(std::floor(std::log10(std::min(least, most))));
  const int highest = std::max(lowest + 1, static_cast<int>(std::ceil(std::log10(most))));
  Canvas canvas(lowest, highest);
  draw_grid(canvas, lowest, highest);
  double legend = top + 10;
  for (std::size_t i = 0; i < results.size(); ++i, legend += 18) {
    const char* const colour = colours[i % std::size(colours)];
    draw_curve(canvas, results[i].all.latencies, colour);
    canvas.add("<rect x=\"%.0f\" y=\"%.0f\" width=\"14\" height=\"4\" fill=\"%s\"/>\n", left + 12,
               legend - 6, colour);
    canvas.label(left + 32, legend, "start",
                 number(std::round(results[i].asked)) + " calls a second");
  }
  std::FILE* const out = std::fopen(file.c_str(), "w");
  if (out == nullptr) return false;
  std::fprintf(out,
               "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"740\" height=\"460\" "
               "font-family=\"sans-serif\" font-size=\"12\" fill=\"#222\">\n"
               "<rect width=\"740\" height=\"460\" fill=\"#fff\"/>\n"
               "<text x=\"390\" y=\"28\" text-anchor=\"middle\" font-size=\"15\">"
               "Latency by percentile, from the time that each call was due</text>\n%s</svg>\n",
               canvas.text.c_str());
  return std::fclose(out) == 0;
}
