#pragma once

// The files that keep the registry, and the one that keeps its savers apart.
constexpr char REGISTRY_DIRECTORY[] = "/etc/qamrel";
constexpr char REGISTRY_FILE[] = "/etc/qamrel/registry";
constexpr char REGISTRY_BACKUP_FILE[] = "/etc/qamrel/registry.old";
constexpr char REGISTRY_TEMPORARY_FILE[] = "/etc/qamrel/registry.new";
constexpr char REGISTRY_LOCK_FILE[] = "/etc/qamrel/registry.lock";
constexpr char REGISTRY_DEFAULT_FILE[] = "/etc/qamrel/registry.default";
