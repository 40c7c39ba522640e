// The replaceable file functions: the exchange, the table, the system's own files behind it, and a host's functions.
#include "support/testing.h"

namespace {

using vexatest::Folder;
using vexatest::ReadAll;

// Two of a host's functions, which note what they were asked and with what data.
struct Host {
  std::string asked;
  static int64_t Note(void* data, const char* what, int64_t result) {
    static_cast<Host*>(data)->asked += what;
    return result;
  }
  static int64_t V_CALL Read(intptr_t, void*, uint64_t bytes, void* data) {
    return Note(data, " read", static_cast<int64_t>(bytes));
  }
  static int32_t V_CALL Close(intptr_t, void* data) { return static_cast<int32_t>(Note(data, " close", 0)); }
};

// Every test starts and ends without redirection.
class Redirect : public ::testing::Test {
 protected:
  void SetUp() override { V_RedirectIO(nullptr, nullptr, nullptr, nullptr, nullptr, nullptr); }
  void TearDown() override { SetUp(); }
};

TEST_F(Redirect, AllFunctionsOfAHostAreSetAtOnce) {
  Host host;
  const REDIRECTFUNCTIONS want = {sizeof want, REDIRECTOPEN(1), &host, REDIRECTREAD(2),  &host, REDIRECTWRITE(3),
                                  &host,       REDIRECTSEEK(4), &host, REDIRECTCLOSE(5), &host};
  REDIRECTFUNCTIONS got;
  V_RedirectIO(want.open, want.read, want.write, want.seek, want.close, &host);
  ASSERT_EQ(V_GetRedirectFunctions(&got), 1);
  EXPECT_EQ(memcmp(&got, &want, sizeof want), 0);
}

TEST_F(Redirect, TheExchangeReportsReplacesAndRestores) {
  const auto none = reinterpret_cast<REDIRECTREAD>(~uintptr_t{0});
  Host host, other;
  // Probing: 0 changes nothing, and an empty slot reports all ones.
  REDIRECTREAD read = nullptr;
  EXPECT_EQ(V_FilterIO(nullptr, &read, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr), 1);
  EXPECT_EQ(read, none);
  EXPECT_EQ(V_UsesRedirectIO(), 0);

  // One slot of five and its data; data is swapped whatever it is.
  read = Host::Read;
  void* data = &host;
  V_FilterIO(nullptr, &read, nullptr, nullptr, nullptr, nullptr, &data, nullptr, nullptr, nullptr);
  EXPECT_EQ(read, none);
  EXPECT_EQ(data, nullptr);
  EXPECT_EQ(V_UsesRedirectIO(), 1);
  EXPECT_EQ(V_RedirectedOpen("no such file", V_OpenRead), -1) << "the system's own open";
  EXPECT_EQ(V_RedirectedRead(5, &data, 3), 3);

  // The record forms see and set the same table, slot by slot.
  REDIRECTFUNCTIONS table;
  ASSERT_EQ(V_GetRedirectFunctions(&table), 1);
  EXPECT_TRUE(table.uStructSize == 84 && !table.open && table.read == Host::Read && table.readData == &host);
  table.read = nullptr;
  table.close = Host::Close;
  table.closeData = &other;
  ASSERT_EQ(V_UpdateRedirectFunctions(&table, 16), 1);
  EXPECT_EQ(V_RedirectedRead(5, &data, 3), 3);
  EXPECT_EQ(V_RedirectedClose(5), 0);
  EXPECT_EQ(host.asked + other.asked, " read read close");

  read = none;  // back to the system's own; the previous one comes back
  V_FilterIO(nullptr, &read, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr, nullptr);
  EXPECT_EQ(read, Host::Read);
  std::thread([] { EXPECT_EQ(V_UsesRedirectIO(), 0) << "the table is each thread's own"; }).join();
  REDIRECTFUNCTIONS bad{};
  EXPECT_EQ(V_SetRedirectFunctions(&bad), -789);
  EXPECT_EQ(V_SetRedirectFunctions(nullptr), -814);
  EXPECT_EQ(V_GetRedirectFunctions2(&bad, 83), -789);
  EXPECT_EQ(V_UsesRedirectIO(), 1) << "what is refused changes nothing";
  ASSERT_EQ(V_GetRedirectFunctions(&table), 1);
  EXPECT_TRUE(table.close == Host::Close);
}

// --- the system's own files ---

class SystemFiles : public Redirect {
 protected:
  intptr_t Open(const std::string& path, uint32_t mode) { return V_RedirectedOpen(path.c_str(), mode); }
  Folder folder_;
};

TEST_F(SystemFiles, ModesOpenCreateCutAndRefuse) {
  const std::string path = folder_ / "file";
  const struct {
    uint32_t mode;
    bool opens;
    int64_t reads, writes;  // of 4 bytes each, in this order
    const char* after;
  } kSteps[] = {{V_OpenRead, false, 0, 0, ""},
                {V_OpenCreate | V_OpenExclusive, true, -1, 4, "abcd"},  // creating implies writing
                {V_OpenCreate | V_OpenExclusive, false, 0, 0, "abcd"},
                {V_OpenRead, true, 4, -1, "abcd"},
                {V_OpenRead | V_OpenWrite, true, 4, 4, "abcdabcd"},
                {V_OpenWrite, true, -1, 4, "abcdabcd"},  // keeps what is there
                {V_OpenRead | V_OpenWrite | V_OpenCreate, true, 0, 4, "abcd"}};
  for (const auto& step : kSteps) {
    SCOPED_TRACE(testing::Message() << "step " << &step - kSteps);
    const intptr_t file = Open(path, step.mode);
    ASSERT_EQ(file != -1, step.opens);
    EXPECT_EQ(V_GetLastRedirectError() > 0, !step.opens);
    if (step.opens) {
      char buffer[4];
      EXPECT_EQ(V_RedirectedRead(file, buffer, 4), step.reads);
      EXPECT_EQ(V_RedirectedWrite(file, "abcd", 4), step.writes);
      EXPECT_EQ(V_GetLastRedirectError() > 0, step.writes < 0);
      EXPECT_EQ(V_RedirectedClose(file), 0);
    }
    EXPECT_EQ(ReadAll(path), step.after);
  }
}

TEST_F(SystemFiles, DirectoriesMissingPathsAndDeadHandlesFail) {
  for (const uint32_t mode : {1u, 2u, 3u, 4u, 6u, 7u, 12u, 15u}) {
    for (const std::string& path : {folder_.Name(), folder_ / "missing/file", std::string()}) {
      EXPECT_EQ(Open(path, mode), -1) << path << ", " << mode;
      EXPECT_GT(V_GetLastRedirectError(), 0) << mode;
    }
    EXPECT_EQ(V_RedirectedOpen(nullptr, mode), -1) << mode;
  }
  EXPECT_TRUE(folder_.Names().empty());
  char byte = 0;
  EXPECT_EQ(V_RedirectedRead(-1, &byte, 1), -1);
  EXPECT_EQ(V_RedirectedWrite(-1, &byte, 1), -1);
  EXPECT_EQ(V_RedirectedSeek(-1, 0, 0), -1);
  EXPECT_EQ(V_RedirectedClose(-1), -1);
  EXPECT_GT(V_GetLastRedirectError(), 0);
#ifndef _WIN32  // a number that only ends like a handle is none; the other system's own functions take it for one
  const intptr_t file = Open(folder_ / "file", V_OpenWrite | V_OpenCreate);
  const intptr_t wrong = file | (intptr_t{1} << 32);
  EXPECT_EQ(V_RedirectedWrite(wrong, &byte, 1), -1);
  EXPECT_EQ(V_RedirectedClose(wrong), -1);
  EXPECT_EQ(V_RedirectedClose(file), 0);
#endif
}

}  // namespace
