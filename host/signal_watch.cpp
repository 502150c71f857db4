#include "host/signal_watch.h"

#include <sys/signalfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "host/host_error.h"

namespace {

sigset_t EndingSignals() {
  sigset_t set;
  sigemptyset(&set);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    sigaddset(&set, signal);
  }
  return set;
}

sigset_t Block(const sigset_t& signals) {
  sigset_t original;
  pthread_sigmask(SIG_BLOCK, &signals, &original);
  return original;
}

void IgnorePipe(int /*signal*/) {}

}  // namespace

CSignalWatch::CSignalWatch()
    : m_oWatched(EndingSignals()),
      m_oOriginalMask(Block(m_oWatched)),
      m_oDescriptor(signalfd(-1, &m_oWatched, SFD_CLOEXEC | SFD_NONBLOCK)) {
  if (!m_oDescriptor.IsOpen()) {
    throw CHostError(EX_OSERR, std::string("The system gives no signal descriptor (") +
                                   strerror(errno) + "): raise the limit of open files.");
  }
  // A handler, unlike SIG_IGN, is not inherited by the programs that are run.
  struct sigaction action = {};
  action.sa_handler = IgnorePipe;
  action.sa_flags = SA_RESTART;
  sigaction(SIGPIPE, &action, &m_oOriginalPipeAction);
}

CSignalWatch::~CSignalWatch() {
  sigaction(SIGPIPE, &m_oOriginalPipeAction, nullptr);
  pthread_sigmask(SIG_SETMASK, &m_oOriginalMask, nullptr);
}

int CSignalWatch::Take() {
  signalfd_siginfo info = {};
  if (m_nSignal == 0 && read(m_oDescriptor.Get(), &info, sizeof(info)) == sizeof(info)) {
    m_nSignal = static_cast<int>(info.ssi_signo);
    pthread_sigmask(SIG_UNBLOCK, &m_oWatched, nullptr);
  }
  return m_nSignal;
}
