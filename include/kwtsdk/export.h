#pragma once

// Symbols are hidden by default; this marks the ones a host may link against.
#define KWTSDK_EXPORT __attribute__((visibility("default")))
