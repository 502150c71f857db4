#pragma once

#include <cstdint>

class CIExtensionModule;

// The functions that the module exports by these names. A host looks them up:
//   auto create = reinterpret_cast<decltype(&EM_Create)>(dlsym(library, "EM_Create"));
//
// Results are exactly 0 or 1, but for that of EM_SetupAction(). EM_Create() and EM_Delete() are
// called from one thread.
extern "C" {

// Stores the one instance through `module` (which may be null); the first call creates it. `unused`
// comes from the host and is ignored. Returns 1 when there is an instance. A second call
// deliberately counts as a success although it traces an error: it hands out the same instance.
// Throws std::bad_alloc.
[[gnu::visibility("default")]] uint32_t EM_Create(CIExtensionModule** module, void* unused);

// Destroys the instance. Returns 1 when this call did. Never throws; after an exception of the
// destructor the instance counts as still there.
[[gnu::visibility("default")]] uint32_t EM_Delete();

// Returns the module's name, a constant. Needs no instance.
[[gnu::visibility("default")]] const char* EM_GetModuleName();

// Runs an installer's action: 1 backup, 2 restore, 3 convert, 4 cleanup. Returns non-zero when a
// cleanup succeeded, else 0. Needs no instance.
[[gnu::visibility("default")]] uint32_t EM_SetupAction(uint32_t action);
}
