#include "platform/child_program.h"

#include <unistd.h>

#include <string_view>
#include <utility>

#include "platform/close_descriptors.h"

namespace {

constexpr uint32_t FIRST_DESCRIPTOR = 3;  // behind standard input, output and error
constexpr int CANNOT_EXECUTE = 255;       // exit status

constexpr std::string_view WHITE_SPACE = " \t\n\v\f\r";

}  // namespace

CChildProgram::CChildProgram(std::vector<std::string> words, bool keepDescriptors)
    : m_oWords(std::move(words)),
      m_pProgram(m_oWords.empty() ? "" : m_oWords.front().c_str()),
      m_bKeepDescriptors(keepDescriptors),
      m_nDescriptorLimit(GetDescriptorLimit()),
      m_oUnblocked() {
  for (std::string& word : m_oWords) {
    m_oArguments.push_back(word.data());
  }
  m_oArguments.push_back(nullptr);
  sigemptyset(&m_oUnblocked);
  for (const int signal : {SIGINT, SIGTERM, SIGHUP, SIGALRM}) {
    sigaddset(&m_oUnblocked, signal);
  }
}

void CChildProgram::Execute() const noexcept {
  if (!m_bKeepDescriptors) {
    CloseDescriptors(FIRST_DESCRIPTOR, m_nDescriptorLimit);
  }
  // The host blocks them for its worker threads, and the program would inherit that.
  sigprocmask(SIG_UNBLOCK, &m_oUnblocked, nullptr);
  // The C library's search of PATH takes no memory and no lock.
  execvp(m_pProgram, m_oArguments.data());
  _exit(CANNOT_EXECUTE);
}

std::vector<std::string> SplitIntoWords(const char* commandLine) {
  std::vector<std::string> words;
  std::string_view rest(commandLine != nullptr ? commandLine : "");
  for (;;) {
    const size_t begin = rest.find_first_not_of(WHITE_SPACE);
    if (begin == std::string_view::npos) {
      return words;
    }
    rest.remove_prefix(begin);
    const std::string_view word = rest.substr(0, rest.find_first_of(WHITE_SPACE));
    words.emplace_back(word);
    rest.remove_prefix(word.size());
  }
}
