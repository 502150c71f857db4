#pragma once

#include <sys/types.h>

#include <optional>
#include <string_view>

// Where a profile file changes.
struct ProfileChange {
  enum class Kind {
    NOTHING,
    REPLACE,        // the stretch, by the entry, which is nothing when something is removed
    APPEND_SECTION  // at the end of the file
  };

  Kind kind = Kind::NOTHING;
  off_t from = 0;  // the stretch, as offsets in the file
  off_t to = 0;
  bool leadingLineEnd = false;  // in front of the entry
};

// Finds the place of an update: of a key with a value, of a key to be removed (null value), or of a
// section to be removed (null key).
//
// Deliberate, because programs that keep such files depend on their shape:
// - An entry or header begins at the end of the significant line before it. Comments and empty
//   lines belong to the line that follows them, and are replaced and removed with it.
// - Only a line without leading blanks is a header or the entry of a key.
// - The last character of each line counts as its line end, whatever it is. Where a file does not
//   end with a line end, its last character is not seen and goes when its line is rewritten; what
//   is appended follows it on the same line.
// - The first entry of a section leaves an empty line after the header when it is replaced or
//   removed.
class CProfilePlace {
 public:
  // The strings stay the caller's and must outlive the object.
  CProfilePlace(const char* section, const char* key, const char* value);

  // Takes the next line of the file, which ends before the offset `end`. Gives the change when it
  // is known, and is not called again.
  std::optional<ProfileChange> TakeLine(std::string_view line, off_t end);

  // The change when no line gave one. `end` is the end of the file.
  ProfileChange TakeEndOfFile(off_t end) const;

 private:
  std::optional<ProfileChange> TakeHeader(std::string_view line, off_t from);
  std::optional<ProfileChange> TakeEntry(std::string_view line, off_t from, off_t end);

  const std::string_view m_strSection;
  const std::string_view m_strKey;
  const bool m_bRemoveSection;
  const bool m_bRemove;  // a key or the section
  off_t m_nSectionStart = 0;
  off_t m_nSignificantEnd = 0;  // of the last significant line
  bool m_bInSection = false;
  bool m_bFirstEntry = true;  // no entry of the section was taken yet
};
