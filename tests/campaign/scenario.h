#pragma once

#include <array>
#include <functional>
#include <string>

#include "tests/campaign/scene.h"

namespace kwtsdk::campaign {

inline constexpr std::array kProfiles{
    Profile{"OneCalmHost", 1, true, Trouble::none},
    Profile{"TwoHostsCompletionForms", 2, false, Trouble::none},
    Profile{"TwoHosts", 2, true, Trouble::none},
    Profile{"AHostThatClears", 1, true, Trouble::clears},
    Profile{"DelaysAtTheTimeOuts", 1, true, Trouble::delays},
    Profile{"TwoHostsDelays", 2, true, Trouble::delays},
    Profile{"AnyFault", 1, true, Trouble::any},
    Profile{"TwoHostsAnyFault", 2, true, Trouble::any},
};
/// What else a host and a link do, on a thread of its own.
using Disturbance = std::function<void(Scene&, Choices)>;

/// One recorder, one facade, one or two host threads with random operations. What went wrong is a test's
/// failure, shown with the words how to repeat it.
void runScenario(Choices choices, const Profile& profile, const std::string& repeating,
                 const Disturbance& disturb = nullptr);

}  // namespace kwtsdk::campaign
