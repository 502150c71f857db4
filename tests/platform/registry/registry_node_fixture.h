#pragma once

#include <gtest/gtest.h>

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/registry/registry_node.h"

// What the tests of a key share.
class RegistryNodeFixture : public testing::Test {
 protected:
  using Stored = CRegistryNode::Stored;
  using Entries = std::vector<CRegistryEntry>;

  static CRegistryEntry Text(std::string_view name, std::string_view text = "text") {
    return CRegistryEntry::MakeString(name, REG_SZ, text);
  }

  static Stored Put(CRegistryNode& node, CRegistryEntry entry) {
    Entries replaced;
    return node.Store(std::move(entry), replaced);
  }

  // The text of the value, "(none)" when it cannot be read.
  static std::string Read(CRegistryNode& node, std::string_view name) {
    RegistryValue value;
    return node.ReadValue(name, value) ? value.bytes.c_str() : "(none)";
  }

  static std::vector<std::string> Names(CRegistryNode& node) {
    std::vector<std::string> names;
    node.ForEach([&](const CRegistryEntry& entry) { names.emplace_back(entry.GetName()); });
    return names;
  }
};
