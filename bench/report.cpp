// Turns the families' results into one table on the standard output and one chart: bench_report SVG RESULT.json...
//
// A result compares the engine with a limit or a peer; `ratio` is the engine's time divided by the other's, so smaller
// is better. Exits with 1 when a file cannot be read or a comparison broke off; a missed goal is shown, and is no
// failure.
#include <algorithm>
#include <cmath>
#include <cstdarg>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>
#include <optional>
#include <string>
#include <vector>

namespace {

using Json = nlohmann::json;

enum class Verdict { kNoGoal, kMet, kMissed };

struct Result {
  std::string operation, other, error;
  std::optional<double> count;  // a count has no times and no ratio
  double oursNs = 0, otherNs = 0, ratio = 0, ratioLow = 0, ratioHigh = 0, extraNs = 0;
  std::optional<double> goalRatio, goalExtraNs, goalCount;

  Verdict Judge() const {
    const auto judge = [](double value, double limit) { return value <= limit ? Verdict::kMet : Verdict::kMissed; };
    if (goalCount) return judge(*count, *goalCount);
    if (goalRatio) return judge(ratio, *goalRatio);
    if (goalExtraNs) return judge(extraNs, *goalExtraNs);
    return Verdict::kNoGoal;
  }
  // Where the goal lies on the axis of ratios.
  std::optional<double> GoalOnAxis() const {
    return goalExtraNs ? std::optional((otherNs + *goalExtraNs) / otherNs) : goalRatio;
  }
};

struct Family {
  std::string name;
  std::vector<Result> results;
};

[[gnu::format(printf, 1, 2)]] std::string Format(const char* format, ...) {
  char text[512];
  va_list arguments;
  va_start(arguments, format);
  std::vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  return text;
}

// --- reading ---

Result ReadResult(const Json& entry) {
  Result result;
  const std::string name = entry.at("name");
  result.operation = name.substr(0, name.find(" | "));
  result.error = entry.value("error_message", "");
  if (!result.error.empty()) return result;
  result.other = entry.value("label", "");
  const auto optional = [&](const char* key) {
    return entry.contains(key) ? std::optional<double>(entry[key].get<double>()) : std::nullopt;
  };
  result.count = optional("count");
  result.goalCount = optional("goal_count");
  result.goalRatio = optional("goal_ratio");
  result.goalExtraNs = optional("goal_extra_ns");
  if (result.count) return result;
  result.oursNs = entry.at("ours_ns");
  result.otherNs = entry.at("other_ns");
  result.ratio = entry.at("ratio");
  result.ratioLow = entry.at("ratio_low");
  result.ratioHigh = entry.at("ratio_high");
  result.extraNs = entry.at("extra_ns");
  return result;
}

Family ReadFamily(const char* path, std::string* machine) {
  std::ifstream file(path);
  const Json json = Json::parse(file);
  const Json& context = json.at("context");
  *machine = context.value("processor", "unknown processor") + ", " + context.value("date", "").substr(0, 10);
  Family family{std::filesystem::path(path).stem().string(), {}};
  for (const Json& entry : json.at("benchmarks")) family.results.push_back(ReadResult(entry));
  return family;
}

// --- words for numbers ---

std::string Time(double ns) {
  const char* units[] = {"ns", "us", "ms", "s"};
  size_t unit = 0;
  for (; ns >= 1000 && unit + 1 < std::size(units); ++unit) ns /= 1000;
  return Format("%.*f %s", ns < 10 ? 2 : ns < 100 ? 1 : 0, ns, units[unit]);
}

std::string Figure(double count) { return Format("%.*f", count == std::floor(count) ? 0 : 1, count); }

std::string Ratio(double ratio) { return Format("%.*f", ratio < 10 ? 2 : 1, ratio); }

std::string RatioText(const Result& result) {
  if (result.count) return "";
  return result.goalExtraNs ? Format("%+.1f ns", result.extraNs) : Ratio(result.ratio);
}

std::string GoalText(const Result& result) {
  if (result.goalCount) return Figure(*result.goalCount);
  if (result.goalRatio) return Ratio(*result.goalRatio);
  return result.goalExtraNs ? Format("%+.0f ns", *result.goalExtraNs) : "";
}

const char* VerdictText(Verdict verdict) {
  return verdict == Verdict::kMet ? "yes" : verdict == Verdict::kMissed ? "NO" : "";
}

// --- the table ---

void PrintTable(const std::vector<Family>& families) {
  constexpr const char* kLine = "%-44s %10s   %-44s %10s %8s  %s\n";
  std::printf(kLine, "operation", "time", "limit or peer in the same run", "ratio", "goal", "met?");
  for (const Family& family : families) {
    std::printf("\n%s\n", family.name.c_str());
    for (const Result& r : family.results) {
      if (!r.error.empty()) {
        std::printf("%-44s broke off: %s\n", r.operation.c_str(), r.error.c_str());
        continue;
      }
      const std::string time = r.count ? Figure(*r.count) : Time(r.oursNs);
      const std::string other = r.count ? r.other : Format("%10s  %s", Time(r.otherNs).c_str(), r.other.c_str());
      std::printf(kLine, r.operation.c_str(), time.c_str(), other.c_str(), RatioText(r).c_str(), GoalText(r).c_str(),
                  VerdictText(r.Judge()));
    }
  }
}

// The last line: how many goals there are, and how many were met.
bool PrintSummary(const std::vector<Family>& families) {
  int goals = 0, met = 0, broken = 0;
  for (const Family& family : families)
    for (const Result& result : family.results) {
      broken += !result.error.empty();
      if (!result.error.empty() || result.Judge() == Verdict::kNoGoal) continue;
      ++goals;
      met += result.Judge() == Verdict::kMet;
    }
  std::printf("\n%d of %d goals met", met, goals);
  if (broken > 0) std::printf(", %d comparisons broke off", broken);
  std::printf("\n");
  return broken == 0;
}

// --- the chart ---

constexpr int kLabelWidth = 560, kAxisWidth = 420, kValueWidth = 80, kMargin = 20;
constexpr int kWidth = kMargin + kLabelWidth + kAxisWidth + kValueWidth + kMargin;
constexpr int kRowHeight = 19, kTop = 96;

constexpr const char* kStyle = R"(<style>
text { font: 12px system-ui, "Segoe UI", "DejaVu Sans", sans-serif; fill: #1f2328; }
.title { font-size: 18px; font-weight: 600; } .family { font-size: 14px; font-weight: 600; }
.muted { fill: #59636e; } .number { text-anchor: end; font-variant-numeric: tabular-nums; }
.paper { fill: #ffffff; } .grid { stroke: #d1d9e0; } .one { stroke: #59636e; }
.goal { stroke: #1f2328; stroke-width: 2; } .met { fill: #0969da; stroke: #0969da; }
.missed { fill: #cf222e; stroke: #cf222e; } .nogoal { fill: #ffffff; stroke: #59636e; stroke-width: 1.5; }
.spread { stroke-width: 3; stroke-opacity: 0.4; }
@media (prefers-color-scheme: dark) {
text { fill: #e6edf3; } .muted { fill: #9198a1; } .paper { fill: #0d1117; } .grid { stroke: #30363d; }
.one { stroke: #9198a1; } .goal { stroke: #e6edf3; } .met { fill: #4493f8; stroke: #4493f8; }
.missed { fill: #f85149; stroke: #f85149; } .nogoal { fill: #0d1117; stroke: #9198a1; }
}
</style>
)";

std::string Escape(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    if (c == '&')
      escaped += "&amp;";
    else if (c == '<')
      escaped += "&lt;";
    else
      escaped += c;
  }
  return escaped;
}

class Chart {
 public:
  Chart(const std::vector<Family>& families, std::string machine) : machine_(std::move(machine)) {
    for (const Family& family : families)
      for (const Result& result : family.results)
        if (IsDrawn(result)) Include(result);
    low_ = std::pow(10, std::floor(std::log10(low_) * 3) / 3);
    high_ = std::pow(10, std::ceil(std::log10(high_) * 3) / 3);
    for (const Family& family : families) DrawFamily(family);
  }

  std::string Svg() const {
    const int height = y_ + 34;
    std::string svg = Format(
        "<svg xmlns=\"http://www.w3.org/2000/svg\" viewBox=\"0 0 %d %d\" width=\"%d\" "
        "height=\"%d\">\n",
        kWidth, height, kWidth, height);
    svg += kStyle;
    svg += Format("<rect class=\"paper\" width=\"%d\" height=\"%d\"/>\n", kWidth, height);
    svg += Text(kMargin, 32, "title", "Time against the limit or the peer in the same run");
    svg += Text(kMargin, 52, "muted",
                "Smaller is better. Medians of alternating rounds; the bar spans their middle half. " + machine_);
    return svg + Legend() + Grid() + body_ + "</svg>\n";
  }

 private:
  static bool IsDrawn(const Result& result) { return result.error.empty() && !result.count; }

  void Include(const Result& result) {
    const double goal = result.GoalOnAxis().value_or(result.ratio);
    low_ = std::min({low_, result.ratioLow, goal});
    high_ = std::max({high_, result.ratioHigh, goal});
  }

  double X(double ratio) const {
    return kMargin + kLabelWidth + kAxisWidth * std::log(ratio / low_) / std::log(high_ / low_);
  }

  static std::string Text(double x, double y, const char* style, const std::string& text) {
    return Format("<text x=\"%.1f\" y=\"%.1f\" class=\"%s\">", x, y, style) + Escape(text) + "</text>\n";
  }
  static std::string Line(double x1, double y1, double x2, double y2, const char* style) {
    return Format("<line x1=\"%.1f\" y1=\"%.1f\" x2=\"%.1f\" y2=\"%.1f\" class=\"%s\"/>\n", x1, y1, x2, y2, style);
  }
  // A disc, or a diamond where the goal is missed: the shape tells without the colour.
  static std::string Mark(double x, double y, Verdict verdict) {
    if (verdict == Verdict::kMissed)
      return Format("<path d=\"M%.1f %.1fl6 6l-6 6l-6 -6z\" class=\"missed\"/>\n", x, y - 6);
    return Format("<circle cx=\"%.1f\" cy=\"%.1f\" r=\"4.5\" class=\"%s\"/>\n", x, y,
                  verdict == Verdict::kMet ? "met" : "nogoal");
  }

  std::string Legend() const {
    double x = kMargin + 6;
    std::string legend;
    const auto entry = [&](const std::string& mark, const char* text, double width) {
      legend += mark + Text(x + 12, 76, "muted", text);
      x += width;
    };
    entry(Mark(x, 72, Verdict::kMet), "goal met", 90);
    entry(Mark(x, 72, Verdict::kMissed), "goal missed", 105);
    entry(Mark(x, 72, Verdict::kNoGoal), "no goal", 80);
    entry(Line(x, 65, x, 79, "goal"), "the goal (+25 ns is a mark where 25 ns more than the limit would be)", 0);
    return legend;
  }

  std::string Grid() const {
    std::string grid;
    for (int decade = -4; decade <= 4; ++decade)
      for (const double step : {1.0, 2.0, 5.0}) {
        const double ratio = step * std::pow(10, decade);
        if (ratio < low_ * 0.999 || ratio > high_ * 1.001) continue;
        grid += Line(X(ratio), kTop, X(ratio), y_ + 4, ratio == 1 ? "one" : "grid");
        for (const int y : {kTop - 4, y_ + 18})
          grid += Format("<text x=\"%.1f\" y=\"%d\" class=\"muted\" text-anchor=\"middle\">%g</text>\n", X(ratio), y,
                         ratio);
      }
    return grid;
  }

  void DrawFamily(const Family& family) {
    y_ += 26;
    body_ += Text(kMargin, y_, "family", family.name);
    y_ += 6;
    for (const Result& result : family.results)
      if (IsDrawn(result)) DrawResult(result);
  }

  void DrawResult(const Result& result) {
    y_ += kRowHeight;
    const double middle = y_ - 4;
    const Verdict verdict = result.Judge();
    const char* style = verdict == Verdict::kMet ? "met" : verdict == Verdict::kMissed ? "missed" : "one";
    body_ += Text(kMargin, y_, "label", result.operation);
    body_ += Format("<text x=\"%d\" y=\"%d\" class=\"muted number\">", kMargin + kLabelWidth - 14, y_) +
             Escape(result.other) + "</text>\n";
    if (const auto goal = result.GoalOnAxis()) body_ += Line(X(*goal), middle - 7, X(*goal), middle + 7, "goal");
    body_ += Line(X(result.ratioLow), middle, X(result.ratioHigh), middle, (std::string("spread ") + style).c_str());
    body_ += Mark(X(result.ratio), middle, verdict);
    body_ += Text(kWidth - kMargin, y_, "number", RatioText(result));
  }

  std::string machine_, body_;
  double low_ = 0.5, high_ = 2;
  int y_ = kTop;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) {
    std::fprintf(stderr, "usage: bench_report SVG RESULT.json...\n");
    return 1;
  }
  std::string machine;
  std::vector<Family> families;
  for (int i = 2; i < argc; ++i) {
    try {
      families.push_back(ReadFamily(argv[i], &machine));
    } catch (const std::exception& error) {
      std::fprintf(stderr, "bench_report: %s: %s\n", argv[i], error.what());
      return 1;
    }
  }
  PrintTable(families);
  const bool complete = PrintSummary(families);
  std::ofstream chart(argv[1]);
  chart << Chart(families, machine).Svg();
  if (!chart.flush()) {
    std::fprintf(stderr, "bench_report: %s could not be written\n", argv[1]);
    return 1;
  }
  std::printf("chart: %s\n", argv[1]);
  return complete ? 0 : 1;
}
