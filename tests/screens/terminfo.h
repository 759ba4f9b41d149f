#pragma once

#include <optional>
#include <string>

// The string of a capability ("kcuu1") in the entry of a terminal type; none if either does not exist.
std::optional<std::string> terminfo_string(const std::string& type, const std::string& capability);
