// Status codes: their texts, the components that own them, and the callbacks that report progress.
#include "support/testing.h"

namespace {

// Outside the bands of such codes nothing has an owner; inside them never both values do.
TEST(Status, CodesOfOtherComponentsHaveAnOwner) {
  int32_t category = 99, library = 99, owned = 0;
  for (int32_t code = -2500; code <= 100; ++code) {
    EXPECT_EQ(V_GetLibIdFromErrorCode(code, &category, &library), 1);
    const bool inBand = (code >= -1597 && code <= -1588) || (code >= -825 && code <= -807) || code == -541 ||
                        (code >= -359 && code <= -309);
    EXPECT_TRUE(inBand || (category == 0 && library == -1)) << code;
    EXPECT_TRUE(category == 0 || library == -1) << code;
    owned += category != 0 || library != -1;
  }
  EXPECT_EQ(owned, 24);
  for (const auto& [code, category0, library0] :
       {std::tuple(-1597, 0, 106), {-818, 7, -1}, {-357, 0, 0}, {-309, 0, 34}}) {
    EXPECT_EQ(V_GetLibIdFromErrorCode(code, &category, &library), 1);
    EXPECT_TRUE(category == category0 && library == library0) << code;
  }
  EXPECT_EQ(V_GetLibIdFromErrorCode(-541, nullptr, &library), -814);
  EXPECT_EQ(V_GetLibIdFromErrorCode(-541, &category, nullptr), -814);
}

int32_t V_CALL First(int32_t, void*) { return 1; }
int32_t V_CALL Second(int32_t, void*) { return -100; }

// The two pairs of functions behave alike and never touch each other's pair.
struct Pair {
  const char* name;
  decltype(&V_SetStatusCallBack) set;
  decltype(&V_GetStatusCallBack) get;
};
const Pair kPairs[] = {{"status", V_SetStatusCallBack, V_GetStatusCallBack},
                       {"copy status", V_SetCopyStatusCallBack, V_GetCopyStatusCallBack}};

TEST(StatusCallBack, IsExchangedAndReadBack) {
  for (const Pair& pair : kPairs) {
    const Pair& other = kPairs[&pair == &kPairs[0] ? 1 : 0];
    SCOPED_TRACE(pair.name);
    int one = 0, two = 0, three = 0;
    void* data = &three;
    STATUSCALLBACK old = Second;
    const auto isOld = [&](STATUSCALLBACK callback, void* userData) { return old == callback && data == userData; };
    EXPECT_EQ(other.set(Second, &three, nullptr, nullptr), 1);
    EXPECT_EQ(pair.set(First, &one, &old, &data), 1);
    EXPECT_TRUE(isOld(nullptr, nullptr));
    EXPECT_EQ(pair.set(Second, &two, &old, &data), 1);
    EXPECT_TRUE(isOld(First, &one));
    EXPECT_EQ(pair.get(nullptr), &Second);
    // The old pair may come back into the very variables that hold the new one.
    EXPECT_EQ(pair.set(old, data, &old, &data), 1);
    EXPECT_TRUE(isOld(Second, &two));
    old = other.get(&data);
    EXPECT_TRUE(isOld(Second, &three));
    for (const Pair& each : kPairs) EXPECT_EQ(each.set(nullptr, nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(pair.get(&data), nullptr);
  }
}

}  // namespace
