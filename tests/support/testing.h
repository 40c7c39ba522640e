// What nearly every test of the engine uses.
#ifndef VEXAKRN_TESTS_SUPPORT_TESTING_H
#define VEXAKRN_TESTS_SUPPORT_TESTING_H

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cstring>
#include <functional>
#include <memory>
#include <set>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "support/bitmap.h"
#include "support/guarded.h"
#include "support/pixelmodel.h"
#include "support/random.h"
#include "support/settings.h"
#include "support/storage.h"
#include "support/tempdir.h"
#include "vexakrn.h"

#endif
