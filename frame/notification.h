#pragma once

#include <cstdint>

// Codes of ModuleNotification().
constexpr uint32_t SCN_SWITCH_SHUTDOWN = 0x20000;
constexpr uint32_t SCN_SWITCH_REQUEST_ENABLED = 0x20001;
constexpr uint32_t SCN_SYSTEM_SHUTDOWN = 0x30000;
constexpr uint32_t SCN_POWERSTATE_SUSPEND = 0x40000;
constexpr uint32_t SCN_POWERSTATE_STANDBY = 0x40001;
constexpr uint32_t SCN_POWERSTATE_RESUME = 0x40002;
constexpr uint32_t SCN_POWERSTATE_AC_OFFLINE = 0x40003;
constexpr uint32_t SCN_POWERSTATE_AC_ONLINE = 0x40004;
