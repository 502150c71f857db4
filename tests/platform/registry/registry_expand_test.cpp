#include "platform/registry/registry_expand.h"

#include <gtest/gtest.h>

#include <cstdlib>

namespace {

TEST(RegistryExpandTest, ReplacesReferencesAndKeepsTheRest) {
  setenv("HOME", "/root", 1);
  setenv("EMPTY", "", 1);
  setenv("WITH BLANK", "b", 1);
  setenv("NESTED", "%HOME%", 1);
  unsetenv("UNSET");
  const struct {
    const char* text;
    const char* expanded;
  } cases[] = {
      {"", ""},
      {"plain", "plain"},
      {"%HOME%", "/root"},
      {"%HOME%%HOME%", "/root/root"},
      {"a%HOME%b%HOME%c", "a/rootb/rootc"},
      {"x%HOME%y%%z%", "x/rooty%z%"},
      {"%", "%"},
      {"%%", "%"},
      {"%%%", "%%"},
      {"%%%%", "%%"},
      {"100%", "100%"},
      {"a%HOME", "a%HOME"},
      {"a%UNSET%b", "ab"},
      {"a%EMPTY%b", "ab"},
      {"%home%", ""},
      {"%WITH BLANK%", "b"},
      {"%NESTED%", "%HOME%"},
      {"HOME%", "HOME%"},
      {"%%HOME%%", "%HOME%"},
  };
  for (const auto& test : cases) {
    EXPECT_EQ(ExpandEnvironment(test.text), test.expanded) << test.text;
  }
}

}  // namespace
