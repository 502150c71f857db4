#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <thread>

// Ends a collector that outlives the module's stop: a thread that, once `grace` is over, looks for
// a running collector until it has found and terminated one or the watch ends. It works beside the
// thread that joins the worker, because that join has no limit.
class CCollectorWatch {
 public:
  // `isRunning` and `terminate` are called on the watch's thread, or, when the system gives no
  // thread, by the constructor itself, which then waits for the grace. They must not throw.
  CCollectorWatch(std::chrono::milliseconds grace, std::function<bool()> isRunning,
                  std::function<void()> terminate);
  // Ends the watch and waits for its thread.
  ~CCollectorWatch();
  CCollectorWatch(const CCollectorWatch&) = delete;
  CCollectorWatch& operator=(const CCollectorWatch&) = delete;

  // Ends the watch. True when it has terminated a collector.
  bool End();

 private:
  bool StartThread();
  bool WaitForEnd(std::chrono::milliseconds time);
  void Run();

  const std::chrono::milliseconds m_oGrace;
  const std::function<bool()> m_oIsRunning;
  const std::function<void()> m_oTerminate;

  std::mutex m_oLock;
  std::condition_variable m_oChanged;
  bool m_bEnded = false;       // guarded by the lock
  bool m_bTerminated = false;  // read when the thread has been joined
  std::thread m_oThread;
};
