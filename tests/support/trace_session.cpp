#include "tests/support/trace_session.h"

#include <algorithm>
#include <chrono>
#include <condition_variable>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <mutex>
#include <stdexcept>
#include <string_view>
#include <thread>

#include "tests/support/default_sink.h"
#include "trace/debug_client.h"

namespace {

constexpr std::chrono::seconds LIMIT(10);

std::string Format(const char* format, va_list arguments) __attribute__((format(printf, 1, 0)));

std::string Format(const char* format, va_list arguments) {
  va_list copy;
  va_copy(copy, arguments);
  const int length = vsnprintf(nullptr, 0, format, copy);
  va_end(copy);
  std::string text(static_cast<size_t>(std::max(length, 0)) + 1, '\0');
  vsnprintf(text.data(), text.size(), format, arguments);
  text.pop_back();
  return text;
}

}  // namespace

class CollectingSink final : public DefaultSink {
 public:
  [[gnu::format(printf, 2, 0)]] void Output(const char* format, va_list arguments,
                                            const char* moduleName) override {
    std::function<void(const std::string&)> actionForEach;
    std::function<void()> action;
    {
      const std::lock_guard guard(m_oLock);
      actionForEach = m_fnForEach;
      if (const auto entry = m_oActions.find(std::string_view(format)); entry != m_oActions.end()) {
        action = entry->second;
      }
    }
    if (actionForEach) {
      actionForEach(format);
    }
    if (action) {
      action();
    }
    TraceLine line = {format, Format(format, arguments), moduleName, std::this_thread::get_id()};
    const std::lock_guard guard(m_oLock);
    m_oLines.push_back(std::move(line));
    m_oChanged.notify_all();
  }

  std::vector<TraceLine> Lines() {
    const std::lock_guard guard(m_oLock);
    return m_oLines;
  }

  void Clear() {
    const std::lock_guard guard(m_oLock);
    m_oLines.clear();
  }

  void SetAction(const std::string& format, std::function<void()> action) {
    const std::lock_guard guard(m_oLock);
    m_oActions[format] = std::move(action);
  }

  void SetActionForEach(std::function<void(const std::string&)> action) {
    const std::lock_guard guard(m_oLock);
    m_fnForEach = std::move(action);
  }

  void ClearActions() {
    const std::lock_guard guard(m_oLock);
    m_oActions.clear();
    m_fnForEach = nullptr;
  }

  bool WaitFor(const std::string& format, int count) {
    std::unique_lock lock(m_oLock);
    return m_oChanged.wait_for(lock, LIMIT, [&] {
      return std::count_if(m_oLines.begin(), m_oLines.end(),
                           [&](const TraceLine& line) { return line.format == format; }) >= count;
    });
  }

 private:
  std::mutex m_oLock;
  std::condition_variable m_oChanged;
  std::vector<TraceLine> m_oLines;
  // Searched without an allocation, so that an action may run while memory is exhausted.
  std::map<std::string, std::function<void()>, std::less<>> m_oActions;
  std::function<void(const std::string&)> m_fnForEach;
};

// The trace client looks up this symbol.
CollectingSink Debug;

TraceSession::TraceSession(uint32_t level, const char* moduleName) {
  Debug.Clear();
  setenv("CV_LOG_DEBUG_LEVEL", std::to_string(level).c_str(), 1);
  g_oDebugClient.Load(moduleName);
}

TraceSession::~TraceSession() {
  setenv("CV_LOG_DEBUG_LEVEL", "0", 1);
  g_oDebugClient.Load(g_oDebugClient.GetModuleName());
  Debug.ClearActions();
}

std::vector<TraceLine> TraceSession::Lines() const { return Debug.Lines(); }

std::vector<std::string> TraceSession::Texts() const {
  std::vector<std::string> texts;
  for (const TraceLine& line : Lines()) {
    texts.push_back(line.text);
  }
  return texts;
}

std::vector<std::string> TraceSession::Formats() const {
  std::vector<std::string> formats;
  for (const TraceLine& line : Lines()) {
    formats.push_back(line.format);
  }
  return formats;
}

void TraceSession::Clear() { Debug.Clear(); }

int TraceSession::Count(const std::string& format) const {
  const std::vector<std::string> formats = Formats();
  return static_cast<int>(std::count(formats.begin(), formats.end(), format));
}

bool TraceSession::WaitFor(const std::string& format, int count) const {
  return Debug.WaitFor(format, count);
}

void TraceSession::ThrowAt(const std::string& format) {
  CallAt(format, [] { throw std::runtime_error("sink"); });
}

void TraceSession::CallAt(const std::string& format, std::function<void()> action) {
  Debug.SetAction(format, std::move(action));
}

void TraceSession::CallAtEachLine(std::function<void(const std::string&)> action) {
  Debug.SetActionForEach(std::move(action));
}

uint32_t LevelOf(const std::string& format, const std::function<void()>& action) {
  for (uint32_t level = 0; level <= 5; ++level) {
    const TraceSession session(level);
    action();
    if (session.Count(format) > 0) {
      return level;
    }
  }
  return 0;
}

bool WaitUntil(const std::function<bool()>& condition) {
  const auto limit = std::chrono::steady_clock::now() + LIMIT;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > limit) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}
