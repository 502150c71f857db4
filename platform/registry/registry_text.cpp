#include "platform/registry/registry_text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <memory>
#include <system_error>
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
        m_oArena(text.size()) {}

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
  // Holds no NUL.
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
      Add(CRegistryEntry::MakeBytes(name, REG_SZ, rest.substr(3), &m_oArena));
    } else if (rest.starts_with("=es=")) {
      Add(CRegistryEntry::MakeBytes(name, REG_EXPAND_SZ, rest.substr(4), &m_oArena));
    } else if (rest.starts_with("=d=")) {
      ParseInteger(name, std::string(rest.substr(3)));
    } else if (rest.starts_with("=b=")) {
      Add(CRegistryEntry::MakeBinary(name, ParseBytes(std::string(rest.substr(3))), &m_oArena));
    }
  }

  void ParseInteger(std::string_view name, const std::string& text) {
    char* end = nullptr;
    const long number = std::strtol(text.c_str(), &end, 10);
    if (end != text.c_str()) {
      Add(CRegistryEntry::MakeInteger(name, static_cast<int32_t>(number), &m_oArena));
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
    m_oEntries.push_back(CRegistryEntry::MakeKey(name, std::move(key), &m_oArena));
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
  CRegistryArena m_oArena;
  std::vector<OpenNode> m_oNodes;          // from the outermost to the innermost
  std::vector<CRegistryEntry> m_oEntries;  // of all of them, in that order
  bool m_bReadAny = false;
};

constexpr char HEXADECIMAL[] = "0123456789abcdef";
constexpr size_t BYTE_WIDTH = 3;  // two digits and a blank
constexpr size_t LONGEST_MARKER = 4;

// Collects lines, so that the text grows by many at once.
class LineBuffer {
 public:
  explicit LineBuffer(std::string& text) : m_strText(text) {}
  LineBuffer(const LineBuffer&) = delete;
  LineBuffer& operator=(const LineBuffer&) = delete;

  // The place of the next line, with room for the longest one, another marker and a line end.
  char* Room() {
    constexpr size_t NEEDED = REGISTRY_LINE_LENGTH + LONGEST_MARKER + 1;
    if (static_cast<size_t>(m_oBytes.data() + m_oBytes.size() - m_pEnd) < NEEDED) {
      Flush();
    }
    return m_pEnd;
  }
  // Takes the bytes that were written there up to `end`.
  void Take(char* end) { m_pEnd = end; }

  void Write(std::string_view line) {
    char* const end = std::copy(line.begin(), line.end(), Room());
    *end = '\n';
    Take(end + 1);
  }

  void Flush() {
    m_strText.append(m_oBytes.data(), static_cast<size_t>(m_pEnd - m_oBytes.data()));
    m_pEnd = m_oBytes.data();
  }

 private:
  std::string& m_strText;
  std::array<char, 8192> m_oBytes;
  char* m_pEnd = m_oBytes.data();
};

char* Append(std::string_view bytes, char* end) { return end + bytes.copy(end, bytes.size()); }

char* AppendBytes(std::string_view bytes, char* end) {
  for (const char byte : bytes) {
    const auto bits = static_cast<uint8_t>(byte);
    *end++ = HEXADECIMAL[bits >> 4];
    *end++ = HEXADECIMAL[bits & 0xF];
    *end++ = ' ';
  }
  return end;
}

char* AppendMarker(uint32_t type, char* end) {
  switch (type) {
    case REG_SZ:
      return Append("=s=", end);
    case REG_EXPAND_SZ:
      return Append("=es=", end);
    case REG_DWORD:
      return Append("=d=", end);
    default:
      return Append("=b=", end);
  }
}

// Writes what of the data fits before `limit` and returns its end; null for an integer that does
// not fit.
char* AppendData(const CRegistryEntry& entry, char* end, char* limit) {
  const auto room = static_cast<size_t>(limit - end);
  switch (entry.GetType()) {
    case REG_DWORD: {
      const auto [digitsEnd, error] = std::to_chars(end, limit, entry.GetInteger());
      return error == std::errc() ? digitsEnd : nullptr;
    }
    case REG_BINARY:
      return AppendBytes(entry.GetData().substr(0, room / BYTE_WIDTH), end);
    default:
      return Append(entry.GetData().substr(0, room), end);
  }
}

bool IsReadAsOneLine(std::string_view line) {
  return line.size() <= REGISTRY_LINE_LENGTH && line.find('\n') == std::string_view::npos;
}

bool IsReadAsKey(std::string_view line) {
  return line.starts_with('[') && line.find(']') != std::string_view::npos;
}

// Writes the line of the value, unless it could not be read back.
void WriteValue(const CRegistryEntry& entry, LineBuffer& lines) {
  const std::string_view name = entry.GetName();
  if (name.size() > REGISTRY_LINE_LENGTH) {
    return;
  }
  char* const line = lines.Room();
  char* const limit = line + REGISTRY_LINE_LENGTH;
  char* const data = AppendMarker(entry.GetType(), Append(name, line));
  char* end = data <= limit ? AppendData(entry, data, limit) : nullptr;
  if (end == nullptr) {
    return;
  }
  // One search for the name and the data: a name with a line end is left out, a string is cut.
  if (void* const lineEnd = std::memchr(line, '\n', static_cast<size_t>(end - line))) {
    end = static_cast<char*>(lineEnd);
  }
  if (end < data || IsReadAsKey({line, end})) {
    return;
  }
  *end = '\n';
  lines.Take(end + 1);
}

std::string HeaderOf(std::string_view name) {
  std::string header = "[";
  return header.append(name).append("]");
}

struct Subkey {
  std::string header;  // its line
  std::shared_ptr<CRegistryNode> key;
};

// Writes the values of the node and returns its subkeys, the last one first.
std::vector<Subkey> WriteValues(CRegistryNode& node, LineBuffer& lines) {
  std::vector<Subkey> subkeys;
  node.ForEach([&](const CRegistryEntry& entry) {
    if (!entry.IsKey()) {
      WriteValue(entry, lines);
    } else if (std::string header = HeaderOf(entry.GetName());
               entry.GetKey() != nullptr && IsReadAsOneLine(header)) {
      subkeys.push_back({std::move(header), entry.GetKey()});
    }
  });
  return {std::make_move_iterator(subkeys.rbegin()), std::make_move_iterator(subkeys.rend())};
}

}  // namespace

bool ParseRegistryText(std::string_view text, CRegistryNode& node) {
  return Parser(text).Run(node);
}

std::string WriteRegistryText(CRegistryNode& node, size_t expectedSize) {
  std::string text;
  text.reserve(expectedSize);
  LineBuffer lines(text);
  std::vector<std::vector<Subkey>>
      levels;  // what is left to write, from the outermost to the innermost
  levels.push_back(WriteValues(node, lines));
  while (!levels.empty()) {
    if (levels.back().empty()) {
      levels.pop_back();
      lines.Write("");
      continue;
    }
    const Subkey subkey = std::move(levels.back().back());
    levels.back().pop_back();
    lines.Write(subkey.header);
    levels.push_back(WriteValues(*subkey.key, lines));
  }
  lines.Flush();
  return text;
}
