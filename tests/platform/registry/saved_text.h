#pragma once

#include <string_view>

#include "platform/registry/registry_file.h"

// Saves a registry file of that content.
inline RegistrySave SaveRegistryText(std::string_view text) {
  return SaveRegistryFile([text](const RegistryTextSink& sink) { sink(text); });
}
