#include "platform/critical_section.h"

#include <gtest/gtest.h>

#include <thread>

TEST(CriticalSectionTest, IsReentrant) {
  CCriticalSection section;
  section.Acquire();
  section.Acquire();
  section.Release();
  section.Release();
  std::thread([&] {
    section.Acquire();
    section.Release();
  }).join();
}
