#pragma once

#include <optional>
#include <string>

#include "host/child_watch.h"

// Why the creation of an archive was answered with status 6, as sentences that say what to do.
// `collector` is how the collector ended, when it was started; `isStopping` that the module was
// being stopped.
std::string ExplainFailedCreation(const std::optional<ChildEnd>& collector, bool isStopping);
