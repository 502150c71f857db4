#include "platform/registry/registry_expand.h"

#include <cstdlib>

std::string ExpandEnvironment(std::string_view text) {
  std::string expanded;
  for (;;) {
    const size_t opening = text.find('%');
    const size_t closing =
        opening == std::string_view::npos ? opening : text.find('%', opening + 1);
    if (closing == std::string_view::npos) {
      return expanded.append(text);
    }
    expanded.append(text.substr(0, opening));
    const std::string name(text.substr(opening + 1, closing - opening - 1));
    const char* value = name.empty() ? "%" : std::getenv(name.c_str());
    if (value != nullptr) {
      expanded.append(value);
    }
    text.remove_prefix(closing + 1);
  }
}
