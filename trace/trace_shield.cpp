#include "trace/trace_shield.h"

#include <pthread.h>

[[gnu::tls_model("initial-exec")]] constinit thread_local int32_t CTraceShield::s_nDepth = 0;

CTraceShield::CTraceShield() noexcept {
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &m_nCancelState);
  ++s_nDepth;
}

CTraceShield::~CTraceShield() {
  --s_nDepth;
  pthread_setcancelstate(m_nCancelState, nullptr);
}
