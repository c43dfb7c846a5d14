#include "OccupancyChart.h"

#include <algorithm>
#include <iomanip>
#include <ostream>
#include <sstream>

#include "ByteSize.h"

namespace example {

namespace {

constexpr double kPanelWidth = 420;
constexpr double kPanelHeight = 180;
constexpr double kLeft = 80;
constexpr double kTop = 40;
constexpr double kGap = 70;
constexpr double kSpare = 20;  // of the gap below the last row
constexpr int kGridLines = 4;

double x(std::size_t i, std::size_t count) {
  return count > 1 ? kPanelWidth * static_cast<double>(i) / static_cast<double>(count - 1) : 0;
}

double y(std::uint64_t bytes, std::uint64_t most) {
  return kPanelHeight * (1.0 - static_cast<double>(bytes) / static_cast<double>(most));
}

void writePoints(std::ostream& os, const std::vector<std::uint64_t>& values, std::uint64_t most) {
  for (std::size_t i = 0; i < values.size(); ++i) {
    os << x(i, values.size()) << ',' << y(values[i], most) << ' ';
  }
}

void drawPanel(std::ostream& os, const ReplayResult& result, std::uint64_t most) {
  os << "<text x=\"0\" y=\"-10\" font-size=\"13\" font-weight=\"bold\">" << result.name
     << "</text>\n";
  for (int i = 0; i <= kGridLines; ++i) {
    const std::uint64_t value = most / kGridLines * static_cast<unsigned>(i);
    os << "<line x1=\"0\" x2=\"" << kPanelWidth << "\" y1=\"" << y(value, most) << "\" y2=\""
       << y(value, most) << "\" stroke=\"#e4e4e4\"/><text x=\"-6\" y=\"" << y(value, most) + 4
       << "\" text-anchor=\"end\">" << formatBytes(value) << "</text>\n";
  }
  if (!result.isComplete) {
    os << "<text x=\"10\" y=\"" << kPanelHeight / 2 << "\">given up: took too long</text>\n";
    return;
  }
  os << "<polygon fill=\"#0072b2\" fill-opacity=\"0.55\" points=\"0," << kPanelHeight << ' ';
  writePoints(os, result.live, most);
  os << kPanelWidth << ',' << kPanelHeight << "\"/>\n"
     << "<polyline fill=\"none\" stroke=\"#d55e00\" stroke-width=\"1.5\" points=\"";
  writePoints(os, result.system, most);
  os << "\"/>\n<text x=\"" << kPanelWidth << "\" y=\"" << kPanelHeight + 16
     << "\" text-anchor=\"end\">calls of the program, first to last</text>\n";
}

}  // namespace

void drawOccupancy(std::ostream& os, const std::vector<ReplayResult>& results) {
  std::uint64_t most = 1;
  for (const ReplayResult& result : results) {
    most = std::max(most, result.peakSystem);
    for (const std::uint64_t live : result.live) {
      most = std::max(most, live);
    }
  }
  std::ostringstream svg;
  svg << std::fixed << std::setprecision(1);
  const std::size_t rows = (results.size() + 1) / 2;
  const double width = 2 * (kLeft + kPanelWidth) + 40;
  const double height = kTop + static_cast<double>(rows) * (kPanelHeight + kGap) - kSpare;
  svg << "<svg xmlns=\"http://www.w3.org/2000/svg\" width=\"" << width << "\" height=\"" << height
      << "\" viewBox=\"0 0 " << width << ' ' << height
      << "\" font-family=\"sans-serif\" font-size=\"10\" fill=\"#1a1a1a\">\n"
      << "<rect width=\"100%\" height=\"100%\" fill=\"#ffffff\"/>\n"
      << "<rect x=\"" << kLeft << "\" y=\"8\" width=\"14\" height=\"10\" fill=\"#0072b2\" "
      << "fill-opacity=\"0.55\"/><text x=\"" << kLeft + 20
      << "\" y=\"17\">live, as asked for</text>"
      << "<line x1=\"" << kLeft + 160 << "\" x2=\"" << kLeft + 176 << "\" y1=\"13\" y2=\"13\" "
      << "stroke=\"#d55e00\" stroke-width=\"2\"/><text x=\"" << kLeft + 182
      << "\" y=\"17\">from the system</text>\n";
  for (std::size_t i = 0; i < results.size(); ++i) {
    const std::size_t row = i / 2;
    svg << "<g transform=\"translate("
        << kLeft + static_cast<double>(i % 2) * (kPanelWidth + kLeft + 10) << ' '
        << kTop + 20 + static_cast<double>(row) * (kPanelHeight + kGap) << ")\">\n";
    drawPanel(svg, results[i], most);
    svg << "</g>\n";
  }
  svg << "</svg>\n";
  os << svg.str();
}

}  // namespace example
