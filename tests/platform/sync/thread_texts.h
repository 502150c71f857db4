#pragma once

#include <pthread.h>

#include <cstdint>
#include <cstdio>
#include <string>

// `text` with the low half of a thread's id, as trace lines show it, where "ID" stands.
inline std::string WithId(pthread_t handle, std::string text) {
  char id[16] = "";
  snprintf(id, sizeof id, "%08X", static_cast<uint32_t>(handle));
  for (size_t place = text.find("ID"); place != std::string::npos; place = text.find("ID")) {
    text.replace(place, 2, id);
  }
  return text;
}
