#pragma once

// Fills the host's identification record of this module, 246 bytes: its size comes from the host in
// the first 32 bits, flag bits that are not the module's keep their values. False, and nothing
// written, when the record is null or its size is smaller.
bool WriteModuleInfo(void* record);
