// The version, for whoever has the module or a core file of its host: the note with which programs
// name the package that they are from. `readelf --notes` shows it, and crash handlers read it.

#include <array>
#include <cstddef>
#include <cstdint>

namespace {

constexpr char VERSION_JSON[] = R"({"name":"em-talvor","version":")" EM_TALVOR_VERSION R"("})";
constexpr size_t NOTE_ALIGNMENT = 4;
constexpr uint32_t PACKAGE_METADATA = 0xCAFE1A7E;

template <size_t LENGTH>
struct Note {
  uint32_t m_nOwnerLength = sizeof(m_oOwner);
  uint32_t m_nTextLength = sizeof(m_oText);
  uint32_t m_nType = PACKAGE_METADATA;
  char m_oOwner[4] = "FDO";
  std::array<char, LENGTH> m_oText = {};
};

// The text, filled with zeros to the alignment of notes.
template <size_t LENGTH>
constexpr auto MakeNote(const char (&text)[LENGTH]) {
  Note<(LENGTH + NOTE_ALIGNMENT - 1) / NOTE_ALIGNMENT * NOTE_ALIGNMENT> note;
  for (size_t index = 0; index < LENGTH; ++index) {
    note.m_oText[index] = text[index];
  }
  return note;
}

[[gnu::section(".note.package"),
  gnu::used]] alignas(NOTE_ALIGNMENT) constexpr auto VERSION_NOTE = MakeNote(VERSION_JSON);

}  // namespace
