// Loading and unloading the library at run time, with threads that live longer than it. A copy is used, as the program
// itself holds the library.
#ifdef _WIN32
#include "abi/child.h"

namespace {

// A thread's settings go with the library; if its end still called into the library, the program would crash.
TEST(Unloading, LeavesNothingBehindInLivingThreads) {
  const vexatest::Folder folder;
  const std::filesystem::path copy = folder.Path() / "copy.dll";
  wchar_t library[1000];
  ASSERT_NE(GetModuleFileNameW(GetModuleHandleW(L"vexakrn.dll"), library, 1000), 0u);
  std::filesystem::copy_file(library, copy, std::filesystem::copy_options::overwrite_existing);

  const DWORD before = FlsAlloc(nullptr);
  FlsFree(before);
  for (int round = 0; round < 20; ++round) {
    const HMODULE module = LoadLibraryW(copy.c_str());
    ASSERT_NE(module, nullptr);
    void* found = reinterpret_cast<void*>(GetProcAddress(module, "V_SetDefaultMemoryType"));
    const auto setType = reinterpret_cast<decltype(&V_SetDefaultMemoryType)>(found);
    std::atomic<bool> isSet{false}, mayEnd{false};
    std::thread thread([&] {
      EXPECT_EQ(setType(V_MemoryDisk), 1);
      isSet = true;
      while (!mayEnd) Sleep(1);
    });
    while (!isSet) Sleep(1);
    EXPECT_TRUE(FreeLibrary(module));
    EXPECT_EQ(GetModuleHandleW(copy.c_str()), nullptr) << "the library is still held";
    mayEnd = true;
    thread.join();
  }
  const DWORD after = FlsAlloc(nullptr);
  FlsFree(after);
  EXPECT_EQ(after, before) << "an index of thread values was kept";
}

}  // namespace
#endif
