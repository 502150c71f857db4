#pragma once

// The names that the module shares with its host, the collector and the registry.

// The module, for the host and for trace lines.
inline constexpr char MODULE_NAME[] = "EM_TALVOR";

// The collector's program and process, and the value that points to its root key.
inline constexpr char COLLECTOR_NAME[] = "Talvor";

// The key below the collector's root key, and its values: where the collector is installed, and
// where it leaves its archive.
inline constexpr char SETUP_KEY[] = "Setup";
inline constexpr char FILE_ROOT_VALUE[] = "FileRoot";
inline constexpr char DATA_ROOT_VALUE[] = "DataRoot";

// The file that the collector leaves in its data directory.
inline constexpr char ARCHIVE_FILE[] = "Talvor_Data.zip";

// The collector's own log and data tree, wherever the registry says that the archive is.
inline constexpr char COLLECTOR_DIRECTORY[] = "/var/log/Talvor";
