#pragma once

#include <cstdint>

#include "frame/extension_module_interface.h"
#include "frame/sip_json.h"
#include "soak/draw.h"
#include "soak/hostile_book.h"

// Sends a request that is drawn to the module, from a good query to a record that is none, and
// enters what became of it in the book.
void SendHostileRequest(CIExtensionModule& module, CHostileBook& book, CDraw& draw);

// The status of the record's current command, or WITHOUT_STATUS.
uint32_t ReadStatus(const SipJson& record);
