#pragma once

#include <cstdint>

// Values of "OC", the operation code of a command.
constexpr uint32_t OC_QUERY_TALVOR = 0x3400;       // is the collector available? "DA": 1 or 0
constexpr uint32_t OC_CREATE_ARCHIVE = 0x3401;     // run the collector
constexpr uint32_t OC_TRANSFER_ARCHIVE = 0x3402;   // hand the archive to HTI; "DA": its BMC name
constexpr uint32_t OC_HTI_FILE_TRANSFER = 0xF052;  // an opcode of HTI, which transfers a file
