#pragma once

#include <string>
#include <string_view>

// Replaces every %NAME% by the value of the environment variable NAME (nothing when it is unset)
// and every doubled percent sign by one. A percent sign without a closing one stays. Throws
// std::bad_alloc.
std::string ExpandEnvironment(std::string_view text);
