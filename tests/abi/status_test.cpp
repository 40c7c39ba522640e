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

// The two kinds of callbacks are exchanged alike and never touch each other.
TEST(StatusCallBack, IsExchangedAndReadBack) {
  using Set = decltype(&V_SetStatusCallBack);
  for (const Set set : {&V_SetStatusCallBack, &V_SetCopyStatusCallBack}) {
    int one = 0, two = 0;
    void* data = &two;
    STATUSCALLBACK old = Second;
    EXPECT_EQ(set(First, &one, &old, &data), 1);
    EXPECT_TRUE(old == nullptr && data == nullptr);
    // The old pair may come back into the very variables that hold the new one.
    old = Second, data = &two;
    EXPECT_EQ(set(old, data, &old, &data), 1);
    EXPECT_TRUE(old == First && data == &one);
    EXPECT_EQ(V_GetStatusCallBack(nullptr), set == &V_SetStatusCallBack ? Second : nullptr);
    EXPECT_EQ(V_GetCopyStatusCallBack(nullptr), set == &V_SetStatusCallBack ? nullptr : Second);
    EXPECT_EQ(set(nullptr, nullptr, nullptr, nullptr), 1);
  }
}

}  // namespace
