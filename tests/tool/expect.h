// What the tests of the commands expect of a run and of its files.
#ifndef VEXA_TESTS_EXPECT_H
#define VEXA_TESTS_EXPECT_H

#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tool/tool.h"

namespace tool {

using Json = nlohmann::json;

// Success, without a word.
void ExpectQuiet(const std::vector<std::string>& line);

// A failure that is told in one line.
void ExpectOneLine(const Outcome& outcome, int exitCode, const std::string& part);

// What `vexa info` says of one file.
Json InfoOf(const std::string& path, const std::vector<std::string>& more = {});

void ExpectSameRows(Decoded& a, Decoded& b);

// The extension of a format that holds the sample exactly and keeps its depth.
std::string ExactExtension(const std::string& sample);

}  // namespace tool

#endif
