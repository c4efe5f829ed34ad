#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace kwtsdk::tool {

/// Those of the candidates that somebody who typed the word may have meant, the likeliest first; often none.
std::vector<std::string> nearestTo(std::string_view word, const std::vector<std::string>& candidates);

}  // namespace kwtsdk::tool
