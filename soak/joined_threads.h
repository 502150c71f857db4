#pragma once

#include <functional>
#include <thread>
#include <utility>
#include <vector>

// Threads that are joined at the end of the object.
class CJoinedThreads {
 public:
  CJoinedThreads() = default;
  ~CJoinedThreads() { Join(); }
  CJoinedThreads(const CJoinedThreads&) = delete;
  CJoinedThreads& operator=(const CJoinedThreads&) = delete;

  void Add(std::function<void()> run) { m_oThreads.emplace_back(std::move(run)); }

  void Join() {
    for (std::thread& thread : m_oThreads) {
      thread.join();
    }
    m_oThreads.clear();
  }

 private:
  std::vector<std::thread> m_oThreads;
};
