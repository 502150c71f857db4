#pragma once

#include <pthread.h>

#include <atomic>

// A thread of the system on which one thread of a schedule runs after the other, and the baton by
// which it is told to go on. Threads are kept for the next schedule: making one costs as much as
// a whole schedule.
class OsThread {
 public:
  // One that has nothing to do, made when there is none; lives until the process ends.
  static OsThread& Take();

  // The calling thread.
  static OsThread& OfCaller();

  // `work` runs when the thread is first told to go on; it tells the next one itself.
  void SetWork(void (*work)(void* argument), void* argument) {
    m_fnWork = work;
    m_pArgument = argument;
  }

  // Gives the thread back, which may still be on its way out of its work.
  void GiveBack();

  pthread_t GetHandle() const { return m_nHandle; }

  void GoOn();
  // The calling thread waits until it is told to go on.
  void Wait();

 private:
  static void* Run(void* thread);

  pthread_t m_nHandle = 0;
  void (*m_fnWork)(void*) = nullptr;
  void* m_pArgument = nullptr;
  std::atomic<int> m_nBaton = 0;
};
