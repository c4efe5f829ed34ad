#pragma once

#include <stop_token>
#include <string>

namespace kwtsdk::tool {

/// What stands for standard input or output in the place of a file's name.
inline constexpr const char* kStandardStream = "-";

/// Throws a UsageError where sound would go to a terminal.
void requirePipedOutput();

/// Standard output as another descriptor, which is the caller's; what is printed from then on goes to
/// standard error. Throws a Failure.
int takeStandardOutput();

/// Everything from standard input into a file. False when a stop was asked for. Throws a Failure.
bool saveStandardInput(const std::string& file, const std::stop_token& stop);

/// A file to a descriptor. Throws a Failure.
void printFile(const std::string& file, int descriptor);

}  // namespace kwtsdk::tool
