// vexa info: what a file holds, and where the engine keeps its pixels.
#include <cstdio>
#include <nlohmann/json.hpp>

#include "codecs/codec.h"
#include "codecs/error.h"
#include "vexa/commands.h"
#include "vexa/progress_bar.h"

namespace vexa {
namespace {

using Json = nlohmann::ordered_json;

const char* OrderName(const Bitmap& bitmap) {
  if (bitmap.Bits() <= 8) return bitmap.IsGray() || bitmap.IsInvertedGray() ? "gray" : "palette";
  switch (bitmap.Order()) {
    case V_OrderRgb:
      return "rgb";
    case V_OrderBgr:
      return "bgr";
    case V_OrderGray:
      return "gray";
    default:
      return "other";
  }
}

const char* PerspectiveName(int32_t perspective) {
  static constexpr const char* kNames[] = {"top left", "top right", "bottom right", "bottom left",
                                           "left top", "right top", "right bottom", "left bottom"};
  return perspective >= 1 && perspective <= 8 ? kNames[perspective - 1] : "unknown";
}

bool IsFrame(const BITMAPHANDLE& record) {
  return record.Left || record.Top || record.Delay || record.DisposalMethod || (record.Flags & V_FlagTransparency);
}

Json DescribeStorage(Bitmap& bitmap) {
  const StorageFacts facts = FactsOfStorage(bitmap);
  Json storage = {{"kind", facts.kind}, {"bytes", facts.bytes}, {"packed_bytes", facts.packedBytes}};
  if (facts.tiles > 0) {
    storage["tile_bytes"] = facts.tileBytes;
    storage["tiles"] = facts.tiles;
    storage["tiles_in_memory"] = facts.tilesInMemory;
  }
  return storage;
}

// Everything about one page; the text form is made from it.
Json DescribePage(Bitmap& bitmap) {
  const BITMAPHANDLE& record = bitmap.Record();
  Json page = {{"width", bitmap.Width()},
               {"height", bitmap.Height()},
               {"bits_per_pixel", bitmap.Bits()},
               {"kind", DepthInWords(bitmap)},
               {"order", OrderName(bitmap)},
               {"palette_colors", int32_t{record.nColors}},
               {"low_bit", int32_t{record.LowBit}},
               {"high_bit", int32_t{record.HighBit}},
               {"signed", (record.Flags & V_FlagSigned) != 0},
               {"perspective", bitmap.Perspective()},
               {"perspective_name", PerspectiveName(bitmap.Perspective())}};
  if (bitmap.ResolutionStated())
    page["resolution"] = {{"x", int32_t{record.XResolution}}, {"y", int32_t{record.YResolution}}};
  else
    page["resolution"] = nullptr;
  page["interlaced"] = (record.Flags & V_FlagInterlaced) != 0;
  if (IsFrame(record)) {
    Json frame = {{"left", int32_t{record.Left}},
                  {"top", int32_t{record.Top}},
                  {"delay_ms", int32_t{record.Delay}},
                  {"disposal", int32_t{record.DisposalMethod}},
                  {"background", static_cast<uint32_t>(record.Background)}};
    if (record.Flags & V_FlagTransparency)
      frame["transparent_index"] = record.Transparency & 0xFFFF;
    else
      frame["transparent_index"] = nullptr;
    page["frame"] = std::move(frame);
  }
  page["storage"] = DescribeStorage(bitmap);
  return page;
}

std::string PageLines(const Json& page) {
  const auto number = [](const Json& value) { return std::to_string(value.get<int64_t>()); };
  std::string text = "  image        " + number(page["width"]) + " x " + number(page["height"]) + ", " +
                     page["kind"].get<std::string>() + ", order " + page["order"].get<std::string>();
  if (page["high_bit"].get<int32_t>() >= 0)
    text += ", bits " + number(page["low_bit"]) + " to " + number(page["high_bit"]);
  text += "\n";
  if (page["palette_colors"].get<int32_t>() > 0)
    text += "  palette      " + number(page["palette_colors"]) + " colours\n";
  text += "  perspective  " + number(page["perspective"]) + " (" + page["perspective_name"].get<std::string>() + ")\n";
  text += "  resolution   ";
  text += page["resolution"].is_null()
              ? "not stated\n"
              : number(page["resolution"]["x"]) + " x " + number(page["resolution"]["y"]) + " dots per inch\n";
  if (page.contains("frame")) {
    const Json& frame = page["frame"];
    text += "  frame        at " + number(frame["left"]) + ", " + number(frame["top"]) + ", " +
            number(frame["delay_ms"]) + " ms, disposal " + number(frame["disposal"]) +
            (frame["transparent_index"].is_null() ? "" : ", transparent index " + number(frame["transparent_index"])) +
            "\n";
  }
  const Json& storage = page["storage"];
  text += "  storage      " + storage["kind"].get<std::string>() + ", " + number(storage["bytes"]) + " bytes held";
  if (storage["bytes"] != storage["packed_bytes"]) text += " for " + number(storage["packed_bytes"]);
  if (storage.contains("tiles"))
    text += " in " + number(storage["tiles"]) + " tiles of " + number(storage["tile_bytes"]) + ", " +
            number(storage["tiles_in_memory"]) + " of them in memory";
  return text + "\n";
}

Json DescribeFile(const std::string& path, const StorageChoice& storage) {
  File file(path, File::Mode::kRead);
  const Format& format = FormatOfContent(file);
  const std::unique_ptr<Reader> reader = format.open(file);
  const int32_t pages = reader->Pages();
  Json result = {{"file", path}, {"format", format.name}, {"pages", pages}, {"images", Json::array()}};
  Progress progress(pages);
  for (int32_t page = 0; page < pages; ++page) {
    Bitmap bitmap;
    reader->Describe(page, bitmap);
    AllocateStorage(bitmap, storage);
    reader->Read(page, bitmap, progress);  // what is described can also be read
    progress.BeginPart(0, 1);
    result["images"].push_back(DescribePage(bitmap));
  }
  return result;
}

std::string FileLines(const Json& file) {
  const Json& images = file["images"];
  std::string text = file["file"].get<std::string>() + ": " + file["format"].get<std::string>() + ", " +
                     std::to_string(images.size()) + (images.size() == 1 ? " page\n" : " pages\n");
  for (size_t i = 0; i < images.size(); ++i) {
    if (images.size() > 1) text += "page " + std::to_string(i + 1) + "\n";
    text += PageLines(images[i]);
  }
  return text;
}

}  // namespace

int Info(const InfoOptions& options) {
  ApplyMemoryLimit(options.storage);
  Json all = Json::array();
  bool failed = false;
  for (const std::string& path : options.files) {
    try {
      Json file;
      {
        const ProgressBar bar;
        file = About(path, [&] { return DescribeFile(path, options.storage); });
      }
      if (options.json)
        all.push_back(std::move(file));
      else
        std::fputs(FileLines(file).c_str(), stdout);
    } catch (const Error& error) {
      PrintError(error.File(), error.what());
      failed = true;
    }
  }
  if (options.json) std::puts(all.dump(2, ' ', false, Json::error_handler_t::replace).c_str());
  if (std::fflush(stdout) != 0) throw Error("the output could not be written");
  return failed ? 1 : 0;
}

}  // namespace vexa
