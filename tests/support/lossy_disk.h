#pragma once

#include <cstddef>
#include <map>
#include <optional>
#include <set>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

// A model of a disk whose machine may lose power at any time: directories and files, what of them
// has been flushed, and everything that the disk may hold when the machine starts again.
//
// A directory keeps its names as it was last flushed, with the first of the changes that were made
// since then: none, some or all of them, in their order. A file keeps its bytes as it was last
// flushed, with the first of the changes since then, and of a write perhaps only its first bytes;
// or it has its new length with zeros in it. The directories and the files do not wait for each
// other: a name may be there before the bytes of its file, and a later change in one directory
// before an earlier one in another.
//
// That is more than common file systems do, and less than one that changes the order of the changes
// in a directory, or of the writes to a file.
//
// Paths are absolute and without ".", ".." and links. What cannot be done throws std::logic_error.
class LossyDisk {
 public:
  using Node = size_t;                               // a directory or file, whatever its names
  using Files = std::map<std::string, std::string>;  // what each file holds, by its path

  LossyDisk();  // has an empty root directory

  // Give what was made. The directory around it must exist.
  Node CreateDirectory(const std::string& path);
  Node CreateFile(const std::string& path);

  std::optional<Node> Find(const std::string& path) const;

  // Change names; rename() takes away a file that has the name already. Both lie in one directory.
  void Rename(const std::string& from, const std::string& to);
  void Exchange(const std::string& one, const std::string& other);
  void Link(const std::string& from, const std::string& to);
  void Remove(const std::string& path);

  // Change a file.
  void Write(Node file, size_t offset, std::string_view bytes);
  void Truncate(Node file, size_t size);

  // Of a file, as the running machine sees it.
  size_t GetSize(Node file) const { return m_oNodes[file].bytes.size(); }

  void Flush(Node node);
  void FlushAll();

  // The files as the running machine sees them.
  Files GetFiles() const;

  // All that the disk may hold after a loss of power.
  std::set<Files> GetSurvivors() const;

 private:
  using Names = std::map<std::string, Node>;
  // Names that a change gives to a node or takes away.
  using NameChange = std::vector<std::pair<std::string, std::optional<Node>>>;

  struct ByteChange {
    std::optional<size_t> size;  // of a truncation
    size_t offset;
    std::string bytes;
  };

  struct Entry {
    bool isDirectory = false;
    Names names;
    Names flushedNames;
    std::vector<NameChange> nameChanges;  // since the last flush
    std::string bytes;
    std::string flushedBytes;
    std::vector<ByteChange> byteChanges;  // since the last flush
  };

  // A name in its directory.
  struct Place {
    Node directory;
    std::string name;
  };

  static void Apply(const NameChange& change, Names& names);
  static void Apply(const ByteChange& change, std::string& bytes);
  static std::vector<std::string> SurvivingBytes(const Entry& file);

  Place FindPlace(const std::string& path) const;
  Node NodeAt(const Place& place) const;
  Node Create(const std::string& path, bool isDirectory);
  void Change(Node directory, NameChange change);
  void Change(Node file, ByteChange change);
  void ListFiles(Node directory, const std::string& path, const std::vector<Names>& names,
                 std::map<std::string, Node>& files) const;
  void AddSurvivors(const std::vector<Names>& names, std::set<Files>& survivors) const;
  std::vector<Names> GetNames() const;

  std::vector<Entry> m_oNodes;  // the first is the root
};
