// What happens in a test, line by line and in its order: log lines, queries of the platform, what a
// service receives, and notes of the test's own; with it come the headers that most tests need.
#pragma once

#include <gmock/gmock.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <regex>
#include <sstream>
#include <string>
#include <utility>
#include <vector>

void Note(const std::string& line);

// The lines since the last call, each with a line feed.
std::string TakeTrace();

// Compares texts whole; the message shows the lines that differ with those around them.
testing::AssertionResult Same(const std::string& expected, const std::string& happened);

// Compares with what happened since.
#define EXPECT_TRACE(expected) EXPECT_TRUE(Same(expected, TakeTrace()))

std::string Format(const char* format, ...) __attribute__((format(printf, 1, 2)));

// The text of a file after the line "== title", as far as the next such line or the end.
std::string Section(const std::string& file, const std::string& title);

// The lines of a text; one without a line feed says so.
std::vector<std::string> Split(const std::string& text);
