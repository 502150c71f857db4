#pragma once

// The soak's trace sink, which it exports as "Debug", formats every line and notes those with which
// the serializer refuses a task.

// Whether that has happened on the calling thread since the last call.
bool TakeRefusal();
