#pragma once

#include <cstdint>

// What an installer of the agent asks for. Needs no module instance.
//
// Only CLEANUP (4) does work: it deletes the archive and the collector's own directory
// "/var/log/Talvor". It returns 1, or 0 when the data directory is unknown or the removal fails;
// BACKUP (1), RESTORE (2), CONVERT (3) and unknown codes return 0.
uint32_t SetupAction(uint32_t action);
