#include "host/status_text.h"

#include "frame/status.h"

std::string StatusText(uint32_t status) {
  switch (status) {
    case STATUS_DONE:
      return "done";
    case STATUS_UNHANDLED:
      return "the module does not handle this request";
    case STATUS_NOT_AVAILABLE:
      return "Talvor is not available, or there is no archive";
    case STATUS_FOREIGN_RUNS:
      return "another Talvor is running; try again when it has ended";
    case STATUS_FAILED:
      return "failed, or the switch is shutting down";
    case STATUS_EXCEPTION:
      return "an exception in the module";
    case STATUS_OTHER_CABINET:
      return "not for this server cabinet";
    case STATUS_PENDING:
      return "queued, the final answer follows";
    default:
      return "a status that em_host does not know";
  }
}
