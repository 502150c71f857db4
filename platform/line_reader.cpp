#include "platform/line_reader.h"

#include <unistd.h>

#include "base/retry.h"

CLineReader::CLineReader(const char* path, int directory)
    : m_oFile(openat(directory, path, O_RDONLY | O_CLOEXEC)) {}

bool CLineReader::Read(std::string& line) {
  line.clear();
  for (;;) {
    const size_t lineEnd = m_strRest.find('\n');
    line.append(m_strRest.substr(0, lineEnd));
    if (lineEnd != std::string_view::npos) {
      m_strRest.remove_prefix(lineEnd + 1);
      return true;
    }
    m_strRest = {};
    const ssize_t length =
        RetryInterrupted([&] { return read(m_oFile.Get(), m_oBuffer.data(), m_oBuffer.size()); });
    if (length < 0) {
      line.clear();
      return false;
    }
    if (length == 0) {
      return !line.empty();
    }
    m_strRest = {m_oBuffer.data(), static_cast<size_t>(length)};
  }
}
