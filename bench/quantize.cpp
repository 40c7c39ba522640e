// A palette of 256 colours made for a photograph of 13.7 megapixels, and its pixels matched to that, without dithering: the
// time, and the mean squared error of a pixel (the sum of its three components).
//
// The photograph is the largest of the samples, put together with its three mirror images. Whoever makes the better
// palette has the lower error; a faster one that is worse would be no gain, so each peer has a row for both.
#include <cstdio>  // jpeglib.h needs it

#include <jpeglib.h>

#include <algorithm>
#include <cstring>
#include <memory>
#include <vector>

#include "common.h"

#ifdef VEXABENCH_PYTHON
#define PY_SSIZE_T_CLEAN
#include <Python.h>
#endif
#ifdef VEXABENCH_MAGICK
#include <wand/MagickWand.h>
#endif

namespace vexabench {
namespace {

using Pixels = std::vector<uint8_t>;  // 24 bits, blue first, no padding

struct Photograph {
  size_t width = 0, height = 0;
  Pixels pixels;
};

Photograph ReadJpeg(const char* path) {
  const std::unique_ptr<FILE, int (*)(FILE*)> file(std::fopen(path, "rb"), std::fclose);
  Require(file != nullptr, "a sample picture could not be read");
  jpeg_decompress_struct decoder;
  jpeg_error_mgr errors;
  decoder.err = jpeg_std_error(&errors);
  jpeg_create_decompress(&decoder);
  jpeg_stdio_src(&decoder, file.get());
  jpeg_read_header(&decoder, TRUE);
  decoder.out_color_space = JCS_EXT_BGR;
  jpeg_start_decompress(&decoder);
  Photograph photo{decoder.output_width, decoder.output_height,
                   Pixels(3ul * decoder.output_width * decoder.output_height)};
  while (decoder.output_scanline < decoder.output_height) {
    uint8_t* row = photo.pixels.data() + 3 * photo.width * decoder.output_scanline;
    jpeg_read_scanlines(&decoder, &row, 1);
  }
  jpeg_finish_decompress(&decoder);
  jpeg_destroy_decompress(&decoder);
  return photo;
}

Photograph WithMirrorImages(const Photograph& photo) {
  Photograph all{2 * photo.width, 2 * photo.height, Pixels(4 * photo.pixels.size())};
  for (size_t y = 0; y < all.height; ++y)
    for (size_t x = 0; x < all.width; ++x) {
      const size_t fromX = std::min(x, all.width - 1 - x), fromY = std::min(y, all.height - 1 - y);
      std::memcpy(&all.pixels[3 * (y * all.width + x)], &photo.pixels[3 * (fromY * photo.width + fromX)], 3);
    }
  return all;
}

const Photograph& Photo() {
  static const Photograph photo = WithMirrorImages(ReadJpeg(VEXABENCH_SAMPLES "/photo_flower.jpg"));
  return photo;
}

double SquaredError(const Pixels& result) {
  const Pixels& photo = Photo().pixels;
  Require(result.size() == photo.size(), "the result has another size");
  double sum = 0;
  for (size_t i = 0; i < photo.size(); ++i) {
    const int d = photo[i] - result[i];
    sum += d * d;
  }
  return sum / static_cast<double>(photo.size() / 3);
}

// One that makes a palette and matches the pixels, and gives the last result in 24 bits.
struct Quantizer {
  std::function<void()> run;
  std::function<Pixels()> result;
};

Quantizer Engine(uint32_t match) {
  struct State {
    Image photo{V_MemoryConventional, static_cast<int32_t>(Photo().width), static_cast<int32_t>(Photo().height), 24};
    BITMAPHANDLE made{};
    ~State() { V_FreeBitmap(&made); }
  };
  auto state = std::make_shared<State>();
  const Photograph& photo = Photo();
  for (size_t y = 0; y < photo.height; ++y)
    std::memcpy(state->photo.Data() + y * state->photo.Pitch(), &photo.pixels[3 * y * photo.width], 3 * photo.width);
  state->photo.get()->DitherMethod = V_DitheringNone;
  return {[=] {
            V_FreeBitmap(&state->made);
            Require(V_ColorResBitmap(state->photo.get(), &state->made, sizeof state->made, 8,
                                     V_ColorResOptimized | match, nullptr, nullptr, 256) == 1,
                    "the picture was refused");
          },
          [=] {
            Pixels pixels;
            V_AccessBitmap(&state->made);
            for (size_t y = 0; y < photo.height; ++y)
              for (size_t x = 0; x < photo.width; ++x) {
                const RGBQUAD& c =
                    state->made.pPalette[state->made.Addr.Windows.pData[y * state->made.BytesPerLine + x]];
                pixels.insert(pixels.end(), {c.rgbBlue, c.rgbGreen, c.rgbRed});
              }
            V_ReleaseBitmap(&state->made);
            return pixels;
          }};
}

#ifdef VEXABENCH_PYTHON
// Runs a line of Python; `value` is what it knows as `data`.
void Python(const char* line, PyObject* value = nullptr) {
  static const bool started = [] {
    PyConfig config;
    PyConfig_InitPythonConfig(&config);
    PyConfig_SetString(&config, &config.program_name, L"/usr/bin/python3");  // where the system's modules are found
    const PyStatus status = Py_InitializeFromConfig(&config);
    PyConfig_Clear(&config);
    return PyStatus_Exception(status) == 0;
  }();
  Require(started, "Python does not start");
  if (value) PyObject_SetAttrString(PyImport_AddModule("__main__"), "data", value);
  Require(PyRun_SimpleString(line) == 0, "Pillow is not there, or failed");
}

Quantizer Pillow(const char* method) {
  const Photograph& photo = Photo();
  PyObject* bytes = nullptr;
  Python("from PIL import Image");
  bytes = Py_BuildValue("(y#nn)", reinterpret_cast<const char*>(photo.pixels.data()),
                        static_cast<Py_ssize_t>(photo.pixels.size()), static_cast<Py_ssize_t>(photo.width),
                        static_cast<Py_ssize_t>(photo.height));
  Python("photo = Image.frombytes('RGB', data[1:], data[0], 'raw', 'BGR'); del data", bytes);
  Py_XDECREF(bytes);
  const std::string line = std::string("made = photo.quantize(256, method=Image.Quantize.") + method + ")";
  return {[=] { Python(line.c_str()); },
          [] {
            Python("data = made.convert('RGB').tobytes('raw', 'BGR')");
            PyObject* data = PyObject_GetAttrString(PyImport_AddModule("__main__"), "data");
            const auto* first = reinterpret_cast<const uint8_t*>(PyBytes_AsString(data));
            Pixels pixels(first, first + PyBytes_Size(data));
            Py_DECREF(data);
            return pixels;
          }};
}
#endif

#ifdef VEXABENCH_MAGICK
Quantizer ImageMagick() {
  using Wand = std::shared_ptr<MagickWand>;
  MagickWandGenesis();
  MagickSetResourceLimit(ThreadResource, 1);
  const Photograph& photo = Photo();
  const Wand original(NewMagickWand(), DestroyMagickWand);
  Require(MagickConstituteImage(original.get(), photo.width, photo.height, "BGR", CharPixel, photo.pixels.data()) ==
              MagickTrue,
          "ImageMagick failed");
  auto made = std::make_shared<Wand>();
  return {[=] {
            *made = Wand(CloneMagickWand(original.get()), DestroyMagickWand);
            Require(MagickQuantizeImage(made->get(), 256, sRGBColorspace, 0, MagickFalse, MagickFalse) == MagickTrue,
                    "ImageMagick failed");
          },
          [=] {
            Pixels pixels(photo.pixels.size());
            MagickExportImagePixels(made->get(), 0, 0, photo.width, photo.height, "BGR", CharPixel, pixels.data());
            return pixels;
          }};
}
#endif

[[maybe_unused]] void RegisterPeer(const char* peer, Goal goal, const std::function<Quantizer()>& make) {
  const std::string name = "256 colours for a photograph";
  Compare(
      name + ", matched by a table", peer, goal,
      [=] {
        return Contest{Engine(V_ColorResFastMatch).run, make().run};
      },
      3);
  Compare(
      name + ", matched exactly", peer, goal,
      [=] {
        return Contest{Engine(V_ColorResSlowMatch).run, make().run};
      },
      3);
  Contend(name + ", matched exactly: squared error", peer, [=] {
    const auto error = [](const Quantizer& quantizer) {
      quantizer.run();
      return SquaredError(quantizer.result());
    };
    return std::pair(error(Engine(V_ColorResSlowMatch)), error(make()));
  });
}

}  // namespace

void RegisterFamily() {
#ifdef VEXABENCH_PYTHON
  RegisterPeer("Pillow, median cut", TimesAtMost(1), [] { return Pillow("MEDIANCUT"); });
  RegisterPeer("Pillow, octree", kNoGoal, [] { return Pillow("FASTOCTREE"); });
#endif
#ifdef VEXABENCH_MAGICK
  RegisterPeer("ImageMagick", TimesAtMost(1), ImageMagick);
#endif
}

}  // namespace vexabench
