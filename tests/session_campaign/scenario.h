#pragma once

#include <functional>
#include <string>

#include "tests/session_campaign/scene.h"

namespace kwtsdk::session_campaign {

/// What no recorder and no radio does, from threads of its own; it makes the scene hostile.
using Disturbance = std::function<void(Scene&, Choices)>;

/// One recorder, one session, two host threads with random operations. What went wrong is a test's failure,
/// shown with the words how to repeat it.
void runScenario(Choices choices, const std::string& repeating, const Disturbance& disturb = nullptr);

}  // namespace kwtsdk::session_campaign
