#include "trace/debug_client.h"

#include <dlfcn.h>

#include <cerrno>

#include "base/forced_unwind.h"
#include "trace/sink_symbol.h"
#include "trace/trace_system_log.h"

constinit CDebugClient g_oDebugClient;

namespace {

constexpr char SINK_SYMBOL[] = "Debug";

class ErrnoKeeper {
 public:
  ErrnoKeeper() = default;
  ~ErrnoKeeper() { errno = m_nErrno; }
  ErrnoKeeper(const ErrnoKeeper&) = delete;
  ErrnoKeeper& operator=(const ErrnoKeeper&) = delete;

 private:
  const int m_nErrno = errno;
};

// Runs `write`; while a shield is up, its exceptions are swallowed.
template <typename Write>
HANDLES_FORCED_UNWIND void Guarded(const Write& write) {
  const ErrnoKeeper keeper;
  if (!CTraceShield::IsUp()) {
    write();
    return;
  }
  try {
    write();
  } catch (const abi::__forced_unwind&) {
    throw;
  } catch (...) {
  }
}

// Runs after the last static destructor of the library or program.
[[gnu::destructor(101)]] void ReleaseDebugClient() { g_oDebugClient.Release(); }

}  // namespace

// The three operations repeat the handling of the arguments: va_end must stand in the function of
// va_start, and must also run when the sink throws.

void CDebugClient::Trace(uint32_t level, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  try {
    Guarded([&] { WriteLeveled(level, format, arguments); });
  } catch (...) {
    va_end(arguments);
    throw;
  }
  va_end(arguments);
}

void CDebugClient::Print(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  try {
    Guarded([&] { WritePlain(format, arguments); });
  } catch (...) {
    va_end(arguments);
    throw;
  }
  va_end(arguments);
}

void CDebugClient::PrintFor(uintptr_t /*ignored*/, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  try {
    Guarded([&] { WritePlain(format, arguments); });
  } catch (...) {
    va_end(arguments);
    throw;
  }
  va_end(arguments);
}

bool CDebugClient::Accepts(uint32_t level) {
  const ErrnoKeeper keeper;
  UpdateWhenDue();
  return GetDebugLevel() >= level;
}

void CDebugClient::WriteLeveled(uint32_t level, const char* format, va_list arguments) {
  if (!Accepts(level)) {
    return;
  }
  if (level == 0) {
    // Before the sink, which may throw.
    va_list copy;
    va_copy(copy, arguments);
    WriteTraceToSystemLog(format, copy);
    va_end(copy);
  }
  if (ITraceSink* sink = FindSink()) {
    sink->Output(format, arguments, GetModuleName());
  }
}

void CDebugClient::WritePlain(const char* format, va_list arguments) {
  if (ITraceSink* sink = FindSink()) {
    sink->PlainOutput(format, arguments, GetModuleName());
  }
}

ITraceSink* CDebugClient::FindSink() {
  if (ITraceSink* sink = m_pSink.load(std::memory_order_acquire)) {
    return sink;
  }
  for (void* scope : {RTLD_DEFAULT, RTLD_NEXT}) {
    ITraceSink* sink = SinkAtSymbol(dlsym(scope, SINK_SYMBOL));
    if (sink != nullptr && sink->IsValid()) {
      m_pSink.store(sink, std::memory_order_release);
      return sink;
    }
  }
  return nullptr;
}
