// Status codes: their texts, the components that own them, and the callbacks that report progress.
#include "vexakrn.h"

#include <gtest/gtest.h>

#include <string>
#include <thread>

namespace {

TEST(Status, CodesOfOtherComponentsHaveAnOwner) {
  struct Row {
    int32_t code, category, library;
  };
  for (const Row& row :
       {Row{-541, 0, 54},   Row{-359, 0, 2},   Row{-358, 0, 50},   Row{-357, 0, 0},   Row{-356, 0, 1},
        Row{-355, 0, 57},   Row{-349, 0, 9},   Row{-319, 0, 35},   Row{-309, 0, 34},  Row{-353, 22, -1},
        Row{-807, 24, -1},  Row{-818, 7, -1},  Row{-819, 0, 72},   Row{-820, 0, 67},  Row{-821, 0, 68},
        Row{-822, 0, 81},   Row{-823, 0, 84},  Row{-824, 0, 83},   Row{-825, 0, 8},   Row{-1588, 0, 103},
        Row{-1589, 0, 104}, Row{-1595, 0, 44}, Row{-1596, 0, 105}, Row{-1597, 0, 106}}) {
    int32_t category = 99, library = 99;
    EXPECT_EQ(V_GetLibIdFromErrorCode(row.code, &category, &library), 1);
    EXPECT_EQ(category, row.category) << row.code;
    EXPECT_EQ(library, row.library) << row.code;
  }
  // Outside the bands of such codes nothing has an owner; inside them never both values do.
  for (int32_t code = -2500; code <= 100; ++code) {
    int32_t category = 99, library = 99;
    EXPECT_EQ(V_GetLibIdFromErrorCode(code, &category, &library), 1);
    const bool inBand = (code >= -1597 && code <= -1479) || (code >= -825 && code <= -818) || code == -807 ||
                        (code >= -541 && code <= -309);
    const bool owned = category != 0 || library != -1;
    EXPECT_TRUE(inBand || !owned) << code;
    EXPECT_TRUE(category == 0 || library == -1) << code;
  }
  int32_t value = 5;
  EXPECT_EQ(V_GetLibIdFromErrorCode(-541, nullptr, &value), -814);
  EXPECT_EQ(V_GetLibIdFromErrorCode(-541, &value, nullptr), -814);
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
    EXPECT_EQ(other.set(Second, &three, nullptr, nullptr), 1);
    EXPECT_EQ(pair.set(First, &one, &old, &data), 1);
    EXPECT_EQ(old, nullptr);
    EXPECT_EQ(data, nullptr);
    EXPECT_EQ(pair.set(Second, &two, &old, &data), 1);
    EXPECT_EQ(old, &First);
    EXPECT_EQ(data, &one);
    EXPECT_EQ(pair.get(&data), &Second);
    EXPECT_EQ(data, &two);
    EXPECT_EQ(pair.get(nullptr), &Second);
    EXPECT_EQ(pair.set(First, &one, nullptr, nullptr), 1);
    EXPECT_EQ(pair.get(&data), &First);
    EXPECT_EQ(data, &one);
    // The old pair may come back into the very variables that hold the new one.
    old = Second, data = &two;
    EXPECT_EQ(pair.set(old, data, &old, &data), 1);
    EXPECT_EQ(old, &First);
    EXPECT_EQ(data, &one);
    EXPECT_EQ(other.get(&data), &Second);
    EXPECT_EQ(data, &three);
    std::thread([&] {
      void* theirs = &one;
      EXPECT_EQ(pair.get(&theirs), nullptr);
      EXPECT_EQ(theirs, nullptr);
      EXPECT_EQ(pair.set(First, &one, nullptr, nullptr), 1);
    }).join();
    EXPECT_EQ(pair.get(nullptr), &Second);
    EXPECT_EQ(pair.set(nullptr, nullptr, nullptr, nullptr), 1);
    EXPECT_EQ(pair.get(nullptr), nullptr);
    EXPECT_EQ(other.set(nullptr, nullptr, nullptr, nullptr), 1);
  }
}

}  // namespace
