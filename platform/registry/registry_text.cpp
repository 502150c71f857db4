#include "platform/registry/registry_text.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <limits>
#include <memory>
#include <optional>
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

// Copies `size` bytes, which are SIZE to twice as many.
template <size_t SIZE>
[[gnu::always_inline]] inline void CopyEnds(char* target, const char* source, size_t size) {
  std::array<char, SIZE> first;
  std::array<char, SIZE> last;
  std::memcpy(first.data(), source, SIZE);
  std::memcpy(last.data(), source + size - SIZE, SIZE);
  std::memcpy(target, first.data(), SIZE);
  std::memcpy(target + size - SIZE, last.data(), SIZE);
}

// Returns the end of the copy. Most names and values are short: to call a function for them takes
// longer than to copy them.
[[gnu::always_inline]] inline char* Append(char* target, std::string_view piece) {
  const size_t size = piece.size();
  if (size > 32) {
    std::memcpy(target, piece.data(), size);
  } else if (size >= 16) {
    CopyEnds<16>(target, piece.data(), size);
  } else if (size >= 8) {
    CopyEnds<8>(target, piece.data(), size);
  } else if (size >= 4) {
    CopyEnds<4>(target, piece.data(), size);
  } else {
    std::copy_n(piece.data(), size, target);
  }
  return target + size;
}

// Collects lines and hands them out in blocks of whole pages, which a file takes quickest.
class LineBuffer {
 public:
  LineBuffer() = default;
  LineBuffer(const LineBuffer&) = delete;
  LineBuffer& operator=(const LineBuffer&) = delete;

  // True when no further line may be written before the block is handed out.
  bool IsFull() const { return m_pEnd >= m_pBytes.get() + BLOCK_SIZE; }

  // Writes a line of these parts, of REGISTRY_LINE_LENGTH bytes at most. Inlined, since the size of
  // some is known then.
  template <typename... Parts>
  [[gnu::always_inline]] void Write(const Parts&... parts) {
    char* end = m_pEnd;
    ((end = Append(end, parts)), ...);
    *end++ = '\n';
    m_pEnd = end;
  }

  // Hands out the block when it is full. Not to be called under the lock of a key: nobody could
  // read it while the sink waits for a disk.
  void HandOutFullBlock(const RegistryTextSink& sink) {
    if (IsFull()) {
      sink({m_pBytes.get(), BLOCK_SIZE});
      m_pEnd = std::copy(m_pBytes.get() + BLOCK_SIZE, m_pEnd, m_pBytes.get());
    }
  }

  void HandOutRest(const RegistryTextSink& sink) const { sink({m_pBytes.get(), m_pEnd}); }

 private:
  static constexpr size_t BLOCK_SIZE = 65'536;

  // Of one block, and of the line that begins with its last byte.
  const std::unique_ptr<char[]> m_pBytes{new char[BLOCK_SIZE + REGISTRY_LINE_LENGTH]};
  char* m_pEnd = m_pBytes.get();
};

bool Holds(std::string_view text, char byte) { return text.find(byte) != std::string_view::npos; }

bool IsReadAsOneLine(std::string_view line) {
  return line.size() <= REGISTRY_LINE_LENGTH && !Holds(line, '\n');
}

bool IsReadAsKey(std::string_view name, std::string_view data) {
  return name.starts_with('[') && (Holds(name, ']') || Holds(data, ']'));
}

// How many bytes of data a line has room for; nothing when it has no room for the name.
std::optional<size_t> RoomAfter(std::string_view name, std::string_view marker) {
  const size_t taken = name.size() + marker.size();
  return taken <= REGISTRY_LINE_LENGTH ? std::optional(REGISTRY_LINE_LENGTH - taken) : std::nullopt;
}

// Writes a value, unless its name could not be read back. The data hold no line end.
void WriteLine(std::string_view name, std::string_view marker, std::string_view data,
               LineBuffer& lines) {
  if (!Holds(name, '\n') && !IsReadAsKey(name, data)) {
    lines.Write(name, marker, data);
  }
}

// A string that may have to be cut, at its first line end or where the line would be too long.
[[gnu::noinline]] void WriteAnyString(const CRegistryEntry& entry, std::string_view marker,
                                      LineBuffer& lines) {
  const std::string_view name = entry.GetName();
  if (const std::optional<size_t> room = RoomAfter(name, marker)) {
    const std::string_view data = entry.GetData();
    WriteLine(name, marker, data.substr(0, std::min(data.find('\n'), *room)), lines);
  }
}

// A string that was read from a line makes that line again: it needs no check.
template <size_t SIZE>
void WriteString(const CRegistryEntry& entry, const char (&marker)[SIZE], LineBuffer& lines) {
  constexpr size_t LENGTH = SIZE - 1;
  if (entry.IsFromText()) {
    lines.Write(entry.GetName(), std::string_view(marker, LENGTH), entry.GetData());
  } else {
    WriteAnyString(entry, std::string_view(marker, LENGTH), lines);
  }
}

// Left out when the line has no room for all digits.
void WriteInteger(const CRegistryEntry& entry, LineBuffer& lines) {
  constexpr std::string_view MARKER = "=d=";
  const std::optional<size_t> room = RoomAfter(entry.GetName(), MARKER);
  std::array<char, std::numeric_limits<int32_t>::digits10 + 2> digits;
  const char* const end = std::to_chars(digits.begin(), digits.end(), entry.GetInteger()).ptr;
  const std::string_view data(digits.data(), static_cast<size_t>(end - digits.data()));
  if (room && data.size() <= *room) {
    WriteLine(entry.GetName(), MARKER, data, lines);
  }
}

void WriteBinary(const CRegistryEntry& entry, LineBuffer& lines) {
  constexpr std::string_view MARKER = "=b=";
  const std::optional<size_t> room = RoomAfter(entry.GetName(), MARKER);
  if (!room) {
    return;
  }
  std::array<char, REGISTRY_LINE_LENGTH> bytes;
  char* end = bytes.data();
  for (const char byte : entry.GetData().substr(0, *room / BYTE_WIDTH)) {
    const auto bits = static_cast<uint8_t>(byte);
    *end++ = HEXADECIMAL[bits >> 4];
    *end++ = HEXADECIMAL[bits & 0xF];
    *end++ = ' ';
  }
  WriteLine(entry.GetName(), MARKER, {bytes.data(), end}, lines);
}

// Writes the line of the value, unless it could not be read back.
void WriteValue(const CRegistryEntry& entry, LineBuffer& lines) {
  switch (entry.GetType()) {
    case REG_SZ:
      [[likely]] return WriteString(entry, "=s=", lines);
    case REG_EXPAND_SZ:
      return WriteString(entry, "=es=", lines);
    case REG_DWORD:
      return WriteInteger(entry, lines);
    default:
      return WriteBinary(entry, lines);
  }
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
std::vector<Subkey> WriteValues(CRegistryNode& node, LineBuffer& lines,
                                const RegistryTextSink& sink) {
  std::vector<Subkey> subkeys;
  std::string next;  // the name to go on from
  bool isLeft = true;
  while (isLeft) {
    isLeft = node.ForEachFrom(next, [&](const CRegistryEntry& entry) {
      if (!entry.IsKey()) {
        WriteValue(entry, lines);
      } else if (std::string header = HeaderOf(entry.GetName());
                 entry.GetKey() != nullptr && IsReadAsOneLine(header)) {
        subkeys.push_back({std::move(header), entry.GetKey()});
      }
      return !lines.IsFull();
    });
    lines.HandOutFullBlock(sink);
  }
  return {std::make_move_iterator(subkeys.rbegin()), std::make_move_iterator(subkeys.rend())};
}

}  // namespace

bool ParseRegistryText(std::string_view text, CRegistryNode& node) {
  return Parser(text).Run(node);
}

void WriteRegistryText(CRegistryNode& node, const RegistryTextSink& sink) {
  LineBuffer lines;
  std::vector<std::vector<Subkey>>
      levels;  // what is left to write, from the outermost to the innermost
  levels.push_back(WriteValues(node, lines, sink));
  while (!levels.empty()) {
    if (levels.back().empty()) {
      levels.pop_back();
      lines.Write();
      lines.HandOutFullBlock(sink);
      continue;
    }
    const Subkey subkey = std::move(levels.back().back());
    levels.back().pop_back();
    lines.Write(subkey.header);
    lines.HandOutFullBlock(sink);
    levels.push_back(WriteValues(*subkey.key, lines, sink));
  }
  lines.HandOutRest(sink);
}

std::string WriteRegistryText(CRegistryNode& node) {
  std::string text;
  WriteRegistryText(node, [&](std::string_view piece) { text += piece; });
  return text;
}
