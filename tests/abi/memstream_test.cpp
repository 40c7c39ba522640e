// Memory streams: the names they use, what starts and stops them, and whose functions are in force. What goes in and out of
// their blocks is held against a model by the fuzz target, whose inputs the suite replays.
#include "support/testing.h"

namespace {

// A started stream on a heap block, stopped at the end of the scope.
struct Stream {
  explicit Stream(uint32_t flags = V_StreamGrow | V_StreamWrite | V_StreamHeap, const std::string& data = "") {
    void* block = data.empty() ? nullptr : V_ReallocBuffer(nullptr, data.size());
    if (block) std::memcpy(block, data.data(), data.size());
    EXPECT_EQ(V_StartRedirectToBuffer(&state, &file, flags, block, data.size(), 0), 1);
    EXPECT_NE(file, -1);
  }
  ~Stream() {
    if (state) Stop();
  }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  std::string Stop() {
    void* block = nullptr;
    uint64_t length = 0;
    EXPECT_EQ(V_StopRedirectToBuffer(std::exchange(state, nullptr), &block, &length, nullptr), 1);
    const std::string data(static_cast<const char*>(block), length);
    V_FreeBuffer(block);
    return data;
  }

  void* state = nullptr;
  intptr_t file = -1;
};

class MemStream : public ::testing::Test {
 protected:
  void SetUp() override { V_RedirectIO(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr); }
  void TearDown() override {
    EXPECT_EQ(V_UsesRedirectIO(), 0) << "a stopped stream left its functions";
    SetUp();
  }
};

TEST_F(MemStream, AStartThatIsRefusedStartsNothing) {
  intptr_t file = 0;
  void* state = nullptr;
  EXPECT_EQ(V_StartRedirectToBuffer(nullptr, &file, 25, nullptr, 0, 0), -13);
  EXPECT_EQ(V_StartRedirectToBuffer(&state, &file, 25, nullptr, 1, 0), -13) << "data without a block";
  EXPECT_EQ(V_StartRedirectToBuffer(&state, &file, 9, nullptr, 1, 10), -13);
  EXPECT_EQ(state, nullptr);
  EXPECT_EQ(V_UsesRedirectIO(), 0);
  // Room that is promised without a block is not written to.
  ASSERT_EQ(V_StartRedirectToBuffer(&state, &file, V_StreamHeap | V_StreamWrite, nullptr, 0, 64), 1);
  EXPECT_EQ(V_RedirectedWrite(file, "abcd", 4), 0);
  EXPECT_EQ(V_StopRedirectToBuffer(state, nullptr, nullptr, nullptr), 1);
}

// Three streams stopped in every order: each gives its own data, and at the end nothing is redirected any more.
TEST_F(MemStream, StopsOutOfOrderLeaveNoDeadFunctions) {
  std::string order = "012";
  do {
    std::unique_ptr<Stream> streams[3];
    for (auto& stream : streams) stream = std::make_unique<Stream>();
    for (size_t stopped = 0; stopped < 3; ++stopped) {
      // What is in force may be any live stream's functions, or the system's: then the handle is unknown there.
      for (const char digit : order.substr(stopped))
        EXPECT_EQ(V_RedirectedWrite(streams[digit - '0']->file, &digit, 1), V_UsesRedirectIO() ? 1 : -1);
      const char digit = order[stopped];
      EXPECT_EQ(streams[digit - '0']->Stop().find_first_not_of(digit), std::string::npos);
    }
    EXPECT_EQ(V_UsesRedirectIO(), 0) << "order " << order;
    SetUp();
  } while (std::next_permutation(order.begin(), order.end()));
}

TEST_F(MemStream, TablesThatOutliveTheirStreamOpenNothing) {
  Stream outer;
  REDIRECTFUNCTIONS kept;
  ASSERT_EQ(V_GetRedirectFunctions(&kept), 1);
  REDIRECTFUNCTIONS host = kept;
  host.open = [](const char*, uint32_t, void*) -> intptr_t { return 77; };
  host.openData = nullptr;
  ASSERT_EQ(V_UpdateRedirectFunctions(&host, 1), 1);  // a host's own open above the outer stream, below the inner one
  Stream inner;
  outer.Stop();
  const intptr_t file = V_RedirectedOpen("x", V_OpenRead);
  EXPECT_EQ(file, inner.file);
  inner.Stop();
  EXPECT_EQ(V_RedirectedOpen("x", V_OpenRead), 77);
  char byte = 0;
  EXPECT_EQ(V_RedirectedRead(file, &byte, 1), -1);
  ASSERT_EQ(V_SetRedirectFunctions(&kept), 1);
  EXPECT_EQ(V_RedirectedOpen("x", V_OpenRead), -1);
  SetUp();
}

TEST(RedirectName, HasItsFormAndIsRecognised) {
  char name[64], next[50];
  EXPECT_EQ(V_MakeRedirectName(name, 49), -290);
  EXPECT_EQ(V_MakeRedirectName(nullptr, 64), -814);
  ASSERT_EQ(V_MakeRedirectName(name, 50), 1);
  ASSERT_EQ(V_MakeRedirectName(next, 50), 1);
  const auto number = [](const std::string& text) {
    return std::stoull(text.substr(15, 8) + text.substr(24), nullptr, 16);
  };
  const std::string text = name;
  EXPECT_EQ(text.substr(0, 15) + text[23], "VEXARedirect://-");
  EXPECT_EQ(text.substr(15).find_first_not_of("0123456789ABCDEF-"), std::string::npos) << text;
  EXPECT_TRUE(text.size() == 32 && number(text) + 1 == number(next)) << text;
  for (const char* any : {text.c_str(), "VEXARedirect://"}) EXPECT_EQ(V_IsRedirectName(any), 1) << any;
  for (const char* other : {"VEXARedirect:/", "vexaredirect://00000000-00000001", "/VEXARedirect://", ""})
    EXPECT_EQ(V_IsRedirectName(other), 0) << other;
  EXPECT_EQ(V_IsRedirectName(nullptr), 0);
}

}  // namespace
