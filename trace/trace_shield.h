#pragma once

#include <cstdint>

// While a shield lives, nothing that the host's trace sink does unwinds the calling thread: an
// exception of the sink ends inside the trace call, and thread cancellation is held back until the
// shield is gone. It stands where no caller could take an exception: in destructors, in catch
// handlers, around the worker's own lines and in operations that the host calls. Shields nest.
class CTraceShield {
 public:
  CTraceShield() noexcept;
  ~CTraceShield();
  CTraceShield(const CTraceShield&) = delete;
  CTraceShield& operator=(const CTraceShield&) = delete;

  // True while a shield lives on the calling thread.
  static bool IsUp() noexcept { return s_nDepth > 0; }

 private:
  // `constinit` here too: otherwise each use refers to the compiler's initialisation function, by a
  // name that the host may define too. This TLS model allocates nothing at a thread's first use;
  // with another the loader would end the process when memory is exhausted.
  [[gnu::tls_model("initial-exec")]] static constinit thread_local int32_t s_nDepth;

  int m_nCancelState = 0;  // the thread's state before this shield
};
