#include "gallery/page.h"

#include <algorithm>
#include <cstdio>

namespace vexa::gallery {
namespace {

constexpr const char* kHead = R"(<!doctype html>
<html lang="en">
<head>
<meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>vexa gallery</title>
<style>
:root { color-scheme: light dark; --ink: #1d2430; --soft: #5d6878; --page: #f6f7f9; --card: #fff; --line: #dfe3e9;
        --good: #1c7a43; --bad: #b3261e; --accent: #2b5fb4; }
@media (prefers-color-scheme: dark) {
  :root { --ink: #e6e9ef; --soft: #98a2b3; --page: #12151b; --card: #1b2029; --line: #2c3340; --good: #5fce8d;
          --bad: #ff8a80; --accent: #86b2ff; }
}
* { box-sizing: border-box; }
body { margin: 0 auto; max-width: 1300px; padding: 2.5rem 1.5rem 4rem; background: var(--page); color: var(--ink);
       font: 15px/1.5 system-ui, -apple-system, "Segoe UI", Roboto, "Noto Sans", sans-serif; }
h1 { font-size: 1.9rem; margin: 0 0 .3rem; letter-spacing: -.01em; }
h2 { font-size: 1.25rem; margin: 2.8rem 0 .8rem; }
h3 { font-size: 1rem; margin: 1.8rem 0 .7rem; }
p { margin: 0 0 1rem; max-width: 70ch; color: var(--soft); }
.facts { display: flex; flex-wrap: wrap; gap: .8rem; margin: 1.4rem 0 0; }
.fact { background: var(--card); border: 1px solid var(--line); border-radius: 10px; padding: .7rem 1.1rem; }
.fact b { display: block; font-size: 1.45rem; line-height: 1.2; font-variant-numeric: tabular-nums; }
.fact span { color: var(--soft); font-size: .85rem; }
.cards { display: grid; grid-template-columns: repeat(auto-fill, minmax(212px, 1fr)); gap: 1rem; }
figure { margin: 0; background: var(--card); border: 1px solid var(--line); border-radius: 10px; overflow: hidden; }
figure div { height: 190px; display: flex; align-items: center; justify-content: center; padding: .6rem; }
figure .clear { background: repeating-conic-gradient(#8883 0 25%, transparent 0 50%) 0 0 / 18px 18px; }
figure img { max-width: 100%; max-height: 100%; min-width: 64px; }
.shots { display: grid; grid-template-columns: repeat(auto-fill, 236px); gap: 1rem; }
.shots img { display: block; max-width: none; max-height: none; image-rendering: pixelated; }
figure .zoom { padding: 0; image-rendering: pixelated; background-repeat: no-repeat; }
figcaption { padding: .6rem .8rem .75rem; font-size: .85rem; border-top: 1px solid var(--line); }
figcaption b { display: block; overflow-wrap: anywhere; }
figcaption span { color: var(--soft); display: block; }
.scroll { overflow-x: auto; border: 1px solid var(--line); border-radius: 10px; background: var(--card); }
table { border-collapse: collapse; width: 100%; font-size: .82rem; font-variant-numeric: tabular-nums; }
th, td { padding: .3rem .4rem; text-align: left; white-space: nowrap; }
th { white-space: normal; vertical-align: bottom; }
th.n { min-width: 5.2rem; }
th { position: sticky; top: 0; background: var(--card); color: var(--soft); font-weight: 600; font-size: .8rem;
     border-bottom: 1px solid var(--line); }
td.n, th.n { text-align: right; }
tbody { border-bottom: 1px solid var(--line); }
tbody:last-child { border-bottom: 0; }
td.name { font-weight: 600; vertical-align: top; }
td.soft { color: var(--soft); vertical-align: top; }
.good { color: var(--good); font-weight: 600; }
.bad { color: var(--bad); font-weight: 600; }
</style>
</head>
<body>
)";

std::string Escaped(const std::string& text) {
  std::string escaped;
  for (const char c : text) {
    switch (c) {
      case '&':
        escaped += "&amp;";
        break;
      case '<':
        escaped += "&lt;";
        break;
      case '>':
        escaped += "&gt;";
        break;
      case '"':
        escaped += "&quot;";
        break;
      default:
        escaped += c;
    }
  }
  return escaped;
}

std::string Fixed(double value, int digits) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", digits, value);
  return text;
}

// 10,287,648
std::string Grouped(uint64_t value) {
  std::string text = std::to_string(value);
  for (size_t at = text.size(); at > 3;) text.insert(at -= 3, ",");
  return text;
}

std::string Verdict(bool identical, const std::string& error) {
  if (!error.empty()) return "<span class=bad>" + Escaped(error) + "</span>";
  return identical ? "<span class=good>yes</span>" : "<span class=bad>no</span>";
}

std::string Cell(const std::string& content, const char* kind = "") {
  return "<td" + (*kind ? " class=" + std::string(kind) : "") + ">" + content + "</td>";
}

std::string Fact(const std::string& number, const std::string& words) {
  return "<div class=fact><b>" + number + "</b><span>" + words + "</span></div>\n";
}

std::string Card(const Sample& sample) {
  std::string facts =
      std::to_string(sample.width) + " &times; " + std::to_string(sample.height) + ", " + Escaped(sample.depth);
  std::string more = Escaped(sample.format);
  if (sample.pages > 1) more += ", " + std::to_string(sample.pages) + " frames";
  if (sample.perspective != 1) more += ", stored in perspective " + std::to_string(sample.perspective);
  if (!sample.pictureNote.empty()) more += ", " + sample.pictureNote;
  const bool seeThrough = sample.format == "GIF" || sample.depth.find("alpha") != std::string::npos;
  return std::string("<figure><div") + (seeThrough ? " class=clear" : "") + "><img loading=lazy src=\"" +
         Escaped(sample.picture) + "\" alt=\"" + Escaped(sample.name) + "\"></div><figcaption><b>" +
         Escaped(sample.name) + "</b><span>" + facts + "</span><span>" + more + "</span></figcaption></figure>\n";
}

std::string Rows(const Sample& sample) {
  std::string html = "<tbody>\n";
  const std::string span = " rowspan=" + std::to_string(sample.runs.size()) + ">";
  for (size_t i = 0; i < sample.runs.size(); ++i) {
    const Run& run = sample.runs[i];
    html += "<tr>";
    if (i == 0) {
      html.append("<td class=name")
          .append(span)
          .append(Escaped(sample.name))
          .append("</td><td class=soft")
          .append(span);
      html.append(Escaped(sample.depth)).append("</td><td class=soft").append(span);
      html.append(std::to_string(sample.perspective)).append("</td>");
    }
    html += Cell(run.requested) + Cell(Escaped(run.got) + (run.note.empty() ? "" : " (" + Escaped(run.note) + ")"));
    html += Cell(Grouped(run.bytesHeld), "n") + Cell(Fixed(run.readMilliseconds, 1), "n") +
            Cell(Fixed(run.writeMilliseconds, 1), "n") + Cell(Verdict(run.identical, run.error)) + "</tr>\n";
  }
  return html + "</tbody>\n";
}

std::string BigSection(const BigReport& big) {
  const std::string side = std::to_string(big.side);
  std::string html =
      "<h2>Larger than memory</h2>\n<p>A generated 24-bit picture of " + side + " &times; " + side + " pixels (" +
      Grouped(big.fileBytes) + " bytes), converted by <code>vexa convert --memory-limit " + Escaped(big.limit) +
      "</code>. Every pixel of the result was compared with the generator. The peak is the most memory "
      "that the process had resident, as the system counted it.</p>\n<div class=scroll><table><thead><tr>"
      "<th>Storage</th><th class=n>Seconds</th><th class=n>Peak memory, MB</th><th class=n>Of the "
      "picture</th><th>Identical</th></tr></thead><tbody>\n";
  for (const BigRun& run : big.runs) {
    const double peak = static_cast<double>(run.peakBytes);
    html += "<tr>" + Cell(run.storage) + Cell(Fixed(run.seconds, 1), "n") +
            Cell(run.peakBytes ? Fixed(peak / 1e6, 1) : "not told", "n") +
            Cell(run.peakBytes ? Fixed(100 * peak / static_cast<double>(big.fileBytes), 2) + " %" : "", "n") +
            Cell(Verdict(run.identical, "")) + "</tr>\n";
  }
  return html + "</tbody></table></div>\n";
}

// A picture in its own size, and a detail of it three times as large.
std::string Shot(const DitheringReport& report, const std::string& picture, const std::string& name,
                 const std::string& words) {
  constexpr int32_t kTimes = 3, kLeft = 5, kTop = 19;
  const auto pixels = [](int32_t count) { return std::to_string(count) + "px"; };
  const std::string size = pixels(report.width) + " " + pixels(report.height);
  return "<figure><img loading=lazy width=" + std::to_string(report.width) +
         " height=" + std::to_string(report.height) + " src=\"" + Escaped(picture) + "\" alt=\"" + Escaped(name) +
         "\"><div class=zoom style=\"height:" + pixels(report.height) + ";background-image:url('" + Escaped(picture) +
         "');background-size:" + pixels(kTimes * report.width) + " " + pixels(kTimes * report.height) +
         ";background-position:" + pixels(-kTimes * kLeft) + " " + pixels(-kTimes * kTop) + "\"></div><figcaption><b>" +
         Escaped(name) + "</b><span>" + words + "</span></figcaption></figure>\n";
}

std::string ErrorTable(const DitheringReport& report) {
  std::string html = "<div class=scroll><table><thead><tr><th>Method</th>";
  std::vector<double> least;
  for (const DitheredDepth& depth : report.depths) {
    html += "<th class=n>" + Escaped(depth.name) + "</th>";
    const auto& best = *std::min_element(depth.pictures.begin(), depth.pictures.end(),
                                         [](const auto& a, const auto& b) { return a.error < b.error; });
    least.push_back(best.error);
  }
  html += "</tr></thead><tbody>\n";
  for (size_t method = 0; method < report.depths.front().pictures.size(); ++method) {
    html += "<tr>" + Cell(Escaped(report.depths.front().pictures[method].method));
    for (size_t depth = 0; depth < report.depths.size(); ++depth) {
      const double error = report.depths[depth].pictures[method].error;
      html += Cell(Fixed(error, 2), error > least[depth] ? "n" : "\"n good\"");
    }
    html += "</tr>\n";
  }
  return html + "</tbody></table></div>\n";
}

std::string DitheringSection(const DitheringReport& report) {
  std::string html =
      "<h2>Fewer colours</h2>\n<p>A part of " + Escaped(report.sample) +
      " in all methods of dithering, pixel by pixel, with a detail three times as large. The error is the mean "
      "difference of a sample, 0 to 255, from the original's (its gray, for black and white), both blurred by a "
      "5 &times; 5 binomial filter: what is left when the eye no longer sees single pixels.</p>\n" +
      ErrorTable(report);
  for (const DitheredDepth& depth : report.depths) {
    if (depth.pictures.front().picture.empty()) continue;
    html += "<h3>" + Escaped(depth.name) + "</h3>\n<div class=shots>\n" +
            Shot(report, report.original, "original", "24 bits");
    for (const DitheredPicture& picture : depth.pictures)
      html += Shot(report, picture.picture, picture.method, "error " + Fixed(picture.error, 2));
    html += "</div>\n";
  }
  return html;
}

double ShareOfPacked(const DocumentReport& document, const DocumentRun& run) {
  return static_cast<double>(run.bytesHeld) / static_cast<double>(document.runs.front().bytesHeld);
}

std::string DocumentSection(const DocumentReport& document) {
  std::string html =
      "<h2>A page of text at 600 dots per inch</h2>\n<p>An A4 page of " + std::to_string(document.width) + " &times; " +
      std::to_string(document.height) + " pixels, 1 bit each: the text of " + Escaped(document.sample) +
      ", enlarged twice with smooth edges, and repeated. All its rows were put into fresh storage one by one, and got "
      "from there and compared. Times are the best of several rounds.</p>\n<div class=scroll><table><thead><tr>"
      "<th>Storage</th><th class=n>Bytes held</th><th class=n>Of packed rows</th><th class=n>Put all rows, ms</th>"
      "<th class=n>Get all rows, ms</th><th>Identical</th></tr></thead><tbody>\n";
  for (const DocumentRun& run : document.runs)
    html += "<tr>" + Cell(run.storage) + Cell(Grouped(run.bytesHeld), "n") +
            Cell(Fixed(100 * ShareOfPacked(document, run), 1) + " %", "n") + Cell(Fixed(run.putMilliseconds, 2), "n") +
            Cell(Fixed(run.getMilliseconds, 2), "n") + Cell(Verdict(run.identical, "")) + "</tr>\n";
  return html + "</tbody></table></div>\n";
}

}  // namespace

std::string MakePage(const std::vector<Sample>& samples, const std::optional<DitheringReport>& dithering,
                     const std::optional<DocumentReport>& document, const std::optional<BigReport>& big) {
  size_t runs = 0, identical = 0;
  std::string cards, rows;
  for (const Sample& sample : samples) {
    cards += Card(sample);
    rows += Rows(sample);
    for (const Run& run : sample.runs) ++runs, identical += run.identical;
  }
  std::string html = kHead;
  html +=
      "<h1>vexa gallery</h1>\n<p>Every sample image was read into each kind of storage that takes its depth, written "
      "to a memory stream, read back, and compared pixel by pixel with the first reading.</p>\n<div class=facts>\n";
  html += Fact(std::to_string(samples.size()), "images") + Fact(std::to_string(runs), "ways through storage") +
          Fact(std::to_string(identical), "identical");
  if (document) {
    const double share = ShareOfPacked(*document, document->runs.back());
    html += Fact("1 : " + Fixed(1 / share, 0), "page of text, " + document->runs.back().storage);
  }
  if (big) html += Fact(Fixed(static_cast<double>(big->fileBytes) / 1e9, 1) + " GB", "under " + Escaped(big->limit));
  html += "</div>\n<h2>Pictures</h2>\n<div class=cards>\n" + cards + "</div>\n";
  if (dithering) html += DitheringSection(*dithering);
  if (document) html += DocumentSection(*document);
  if (big) html += BigSection(*big);
  html +=
      "<h2>Storage</h2>\n<p>What the engine really gave, by the record's flags. Times are those of this run: reading "
      "the file into the storage, and writing it out and reading it again.</p>\n<div class=scroll><table><thead>"
      "<tr><th>Image</th><th>Depth</th><th>Perspective</th><th>Asked for</th><th>Got</th><th class=n>Bytes held</th>"
      "<th class=n>Read, ms</th><th class=n>Verify, ms</th><th>Identical</th></tr></thead>\n" +
      rows + "</table></div>\n</body>\n</html>\n";
  return html;
}

}  // namespace vexa::gallery
