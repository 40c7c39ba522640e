// Loading the library at run time: no import library, no link step, only the file name. The public headers still give
// the types of the functions. Programs in other languages do the same through their foreign-function interface.
//
//   c++ -std=c++20 -I include main.cpp -ldl -o load && ./load path/to/libvexakrn.so.1
//   x86_64-w64-mingw32-g++ -std=c++20 -static -I include main.cpp -o load.exe && load.exe path\to\vexakrn.dll
#include <vexakrn.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#ifndef _WIN32
#include <dlfcn.h>
#endif

namespace {

void* Open(const char* path) {
#ifdef _WIN32
  return reinterpret_cast<void*>(LoadLibraryA(path));
#else
  return dlopen(path, RTLD_NOW | RTLD_LOCAL);
#endif
}

void* Find(void* library, const char* name) {
#ifdef _WIN32
  return reinterpret_cast<void*>(GetProcAddress(static_cast<HMODULE>(library), name));
#else
  return dlsym(library, name);
#endif
}

// The function of a name, with the type that the header declares for it.
template <typename Function>
Function* Get(void* library, const char* name) {
  void* const address = Find(library, name);
  if (address == nullptr) {
    std::fprintf(stderr, "the library has no %s\n", name);
    std::exit(1);
  }
  return reinterpret_cast<Function*>(address);
}
#define LOAD(library, name) Get<decltype(name)>(library, #name)

}  // namespace

int main(int argc, char** argv) {
#ifdef _WIN32
  const char* const path = argc > 1 ? argv[1] : "vexakrn.dll";
#else
  const char* const path = argc > 1 ? argv[1] : "libvexakrn.so.1";
#endif
  void* const library = Open(path);
  if (library == nullptr) {
    std::fprintf(stderr, "%s cannot be loaded\n", path);
    return 1;
  }
  const auto version = LOAD(library, V_GetVersion);
  const auto create = LOAD(library, V_CreateBitmap);
  const auto putPixel = LOAD(library, V_PutPixelColor);
  const auto getPixel = LOAD(library, V_GetPixelColor);
  const auto free = LOAD(library, V_FreeBitmap);
  const auto text = LOAD(library, V_GetStatusText);

  const uint32_t v = version();
  std::printf("vexakrn %u.%u.%u\n", v >> 16, v >> 8 & 0xFF, v & 0xFF);

  BITMAPHANDLE bitmap;
  int32_t status =
      create(&bitmap, sizeof bitmap, V_MemoryConventional, 64, 48, 24, V_OrderBgr, nullptr, V_ViewTopLeft, nullptr, 0);
  const uint32_t orange = 0x0000A5FF;  // red in the lowest byte, blue in the third
  uint32_t color = 0;
  if (status == 1) status = putPixel(&bitmap, 10, 20, orange);
  if (status == 1) status = getPixel(&bitmap, 10, 20, &color);
  free(&bitmap);
  if (status != 1) {
    std::fprintf(stderr, "%s\n", text(status));
    return 1;
  }
  std::printf("pixel at row 10, column 20: %06X\n", static_cast<unsigned>(color));
  return color == orange ? 0 : 1;
}
