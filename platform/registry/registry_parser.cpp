#include "platform/registry/registry_parser.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <iterator>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "platform/registry/registry_node.h"

namespace {

// Cuts the next piece of a line off `text`, and the line end that follows it directly: a line end
// that stood alone would end the node.
std::string_view TakePiece(std::string_view& text) {
  const size_t lineEnd = text.substr(0, REGISTRY_LINE_LENGTH + 1).find('\n');
  const std::string_view piece = text.substr(0, std::min(lineEnd, REGISTRY_LINE_LENGTH));
  text.remove_prefix(piece.size() + (lineEnd != std::string_view::npos ? 1 : 0));
  return piece;
}

// The bytes of a run of hexadecimal numbers.
std::string ParseBytes(const std::string& text) {
  std::string bytes;
  const char* position = text.c_str();
  for (;;) {
    char* end = nullptr;
    const long number = std::strtol(position, &end, 16);
    if (end == position) {
      return bytes;
    }
    bytes.push_back(static_cast<char>(number));
    position = end;
  }
}

// A node whose end has not been read yet.
struct OpenNode {
  std::string_view name;
  size_t firstEntry;
};

class Parser {
 public:
  explicit Parser(std::string_view text)
      : m_strRest(text),
        m_bHasNul(text.find('\0') != std::string_view::npos),
        m_oRoom(text.size()) {}

  bool Run(CRegistryNode& node) {
    m_oNodes.push_back({{}, 0});
    while (!m_strRest.empty()) {
      const std::string_view line = TakeLine();
      if (!line.empty()) {
        ParseLine(line);
      } else if (m_oNodes.size() > 1) {
        CloseNode();
      } else {
        break;
      }
    }
    while (m_oNodes.size() > 1) {
      CloseNode();
    }
    Deliver(node);
    return m_bReadAny;
  }

 private:
  std::string_view TakeLine() {
    const std::string_view piece = TakePiece(m_strRest);
    return m_bHasNul ? piece.substr(0, piece.find('\0')) : piece;
  }

  void ParseLine(std::string_view line) {
    const size_t nameEnd = line.front() == '[' ? line.find(']') : std::string_view::npos;
    if (nameEnd != std::string_view::npos) {
      m_oNodes.push_back({line.substr(1, nameEnd - 1), m_oEntries.size()});
      m_bReadAny = true;
    } else {
      ParseValue(line);
    }
  }

  void ParseValue(std::string_view line) {
    const size_t marker = line.find('=');
    if (marker == std::string_view::npos) {
      return;
    }
    const std::string_view name = line.substr(0, marker);
    const std::string_view rest = line.substr(marker);
    if (rest.starts_with("=s=")) {
      Add(CRegistryEntry::MakeString(name, REG_SZ, rest.substr(3), &m_oRoom));
    } else if (rest.starts_with("=es=")) {
      Add(CRegistryEntry::MakeString(name, REG_EXPAND_SZ, rest.substr(4), &m_oRoom));
    } else if (rest.starts_with("=d=")) {
      ParseInteger(name, std::string(rest.substr(3)));
    } else if (rest.starts_with("=b=")) {
      Add(CRegistryEntry::MakeBinary(name, ParseBytes(std::string(rest.substr(3))), &m_oRoom));
    }
  }

  void ParseInteger(std::string_view name, const std::string& text) {
    char* end = nullptr;
    const long number = std::strtol(text.c_str(), &end, 10);
    if (end != text.c_str()) {
      Add(CRegistryEntry::MakeInteger(name, static_cast<int32_t>(number), &m_oRoom));
    }
    m_bReadAny = true;  // deliberately also for a line without digits, which stores nothing
  }

  void Add(CRegistryEntry entry) {
    m_oEntries.push_back(std::move(entry));
    m_bReadAny = true;
  }

  // Makes the innermost node a subkey of the node around it.
  void CloseNode() {
    auto key = std::make_shared<CRegistryNode>();
    Deliver(*key);
    const std::string_view name = m_oNodes.back().name;
    m_oNodes.pop_back();
    m_oEntries.push_back(CRegistryEntry::MakeKey(name, std::move(key), &m_oRoom));
  }

  // Moves the entries of the innermost node into `node`, in an array of just their number.
  void Deliver(CRegistryNode& node) {
    const auto first = m_oEntries.begin() + static_cast<std::ptrdiff_t>(m_oNodes.back().firstEntry);
    std::vector<CRegistryEntry> entries(std::make_move_iterator(first),
                                        std::make_move_iterator(m_oEntries.end()));
    m_oEntries.erase(first, m_oEntries.end());
    std::vector<CRegistryEntry> replaced;
    node.StoreAll(std::move(entries), replaced);
    KillRegistryKeys(replaced);
  }

  std::string_view m_strRest;
  const bool m_bHasNul;  // in all of the text: most texts hold none, and no line is searched then
  CRegistryRoom m_oRoom;
  std::vector<OpenNode> m_oNodes;          // from the outermost to the innermost
  std::vector<CRegistryEntry> m_oEntries;  // of all of them, in that order
  bool m_bReadAny = false;
};

}  // namespace

bool ParseRegistryText(std::string_view text, CRegistryNode& node) {
  return Parser(text).Run(node);
}
