#include "tests/support/lossy_disk.h"

#include <algorithm>
#include <sstream>
#include <stdexcept>

namespace {

constexpr size_t ROOT = 0;

// Calls `visit` with every combination of numbers that are below these limits.
template <typename Visit>
void ForEachCombination(const std::vector<size_t>& limits, const Visit& visit) {
  std::vector<size_t> numbers(limits.size(), 0);
  size_t place = 0;
  do {
    visit(numbers);
    for (place = 0; place < numbers.size() && ++numbers[place] == limits[place]; ++place) {
      numbers[place] = 0;
    }
  } while (place < numbers.size());
}

}  // namespace

LossyDisk::LossyDisk() : m_oNodes(1) { m_oNodes[ROOT].isDirectory = true; }

LossyDisk::Place LossyDisk::FindPlace(const std::string& path) const {
  const size_t slash = path.rfind('/');
  if (slash == std::string::npos || slash + 1 == path.size()) {
    throw std::logic_error("no path of the model: " + path);
  }
  const std::optional<Node> directory = Find(path.substr(0, slash));
  if (!directory || !m_oNodes[*directory].isDirectory) {
    throw std::logic_error("no directory in the model for " + path);
  }
  return {*directory, path.substr(slash + 1)};
}

LossyDisk::Node LossyDisk::NodeAt(const Place& place) const {
  const Names& names = m_oNodes[place.directory].names;
  const auto position = names.find(place.name);
  if (position == names.end()) {
    throw std::logic_error("not in the model: " + place.name);
  }
  return position->second;
}

std::optional<LossyDisk::Node> LossyDisk::Find(const std::string& path) const {
  Node node = ROOT;
  std::istringstream components(path);
  std::string name;
  while (std::getline(components, name, '/')) {
    if (name.empty()) {
      continue;
    }
    const auto position = m_oNodes[node].names.find(name);
    if (position == m_oNodes[node].names.end()) {
      return std::nullopt;
    }
    node = position->second;
  }
  return node;
}

LossyDisk::Node LossyDisk::Create(const std::string& path, bool isDirectory) {
  const Place place = FindPlace(path);
  const Node node = m_oNodes.size();
  m_oNodes.emplace_back().isDirectory = isDirectory;
  Change(place.directory, NameChange{{place.name, node}});
  return node;
}

LossyDisk::Node LossyDisk::CreateDirectory(const std::string& path) { return Create(path, true); }

LossyDisk::Node LossyDisk::CreateFile(const std::string& path) { return Create(path, false); }

void LossyDisk::Rename(const std::string& from, const std::string& to) {
  const Place source = FindPlace(from);
  const Place target = FindPlace(to);
  if (source.directory != target.directory) {
    throw std::logic_error("the model renames within one directory only");
  }
  Change(source.directory, {{source.name, std::nullopt}, {target.name, NodeAt(source)}});
}

void LossyDisk::Exchange(const std::string& one, const std::string& other) {
  const Place first = FindPlace(one);
  const Place second = FindPlace(other);
  if (first.directory != second.directory) {
    throw std::logic_error("the model exchanges within one directory only");
  }
  Change(first.directory, {{first.name, NodeAt(second)}, {second.name, NodeAt(first)}});
}

void LossyDisk::Link(const std::string& from, const std::string& to) {
  const Place target = FindPlace(to);
  Change(target.directory, NameChange{{target.name, NodeAt(FindPlace(from))}});
}

void LossyDisk::Remove(const std::string& path) {
  const Place place = FindPlace(path);
  NodeAt(place);
  Change(place.directory, NameChange{{place.name, std::nullopt}});
}

void LossyDisk::Write(Node file, size_t offset, std::string_view bytes) {
  Change(file, ByteChange{std::nullopt, offset, std::string(bytes)});
}

void LossyDisk::Truncate(Node file, size_t size) { Change(file, ByteChange{size, 0, ""}); }

void LossyDisk::Apply(const NameChange& change, Names& names) {
  for (const auto& [name, node] : change) {
    if (node) {
      names[name] = *node;
    } else {
      names.erase(name);
    }
  }
}

void LossyDisk::Apply(const ByteChange& change, std::string& bytes) {
  if (change.size) {
    bytes.resize(*change.size);
    return;
  }
  bytes.resize(std::max(bytes.size(), change.offset + change.bytes.size()));
  bytes.replace(change.offset, change.bytes.size(), change.bytes);
}

void LossyDisk::Change(Node directory, NameChange change) {
  Apply(change, m_oNodes[directory].names);
  m_oNodes[directory].nameChanges.push_back(std::move(change));
}

void LossyDisk::Change(Node file, ByteChange change) {
  Apply(change, m_oNodes[file].bytes);
  m_oNodes[file].byteChanges.push_back(std::move(change));
}

void LossyDisk::Flush(Node node) {
  Entry& entry = m_oNodes[node];
  entry.flushedNames = entry.names;
  entry.nameChanges.clear();
  entry.flushedBytes = entry.bytes;
  entry.byteChanges.clear();
}

void LossyDisk::FlushAll() {
  for (Node node = ROOT; node < m_oNodes.size(); ++node) {
    Flush(node);
  }
}

void LossyDisk::ListFiles(Node directory, const std::string& path, const std::vector<Names>& names,
                          std::map<std::string, Node>& files) const {
  for (const auto& [name, node] : names[directory]) {
    if (m_oNodes[node].isDirectory) {
      ListFiles(node, path + "/" + name, names, files);
    } else {
      files[path + "/" + name] = node;
    }
  }
}

std::vector<LossyDisk::Names> LossyDisk::GetNames() const {
  std::vector<Names> names;
  for (const Entry& entry : m_oNodes) {
    names.push_back(entry.names);
  }
  return names;
}

LossyDisk::Files LossyDisk::GetFiles() const {
  std::map<std::string, Node> nodes;
  ListFiles(ROOT, "", GetNames(), nodes);
  Files files;
  for (const auto& [path, node] : nodes) {
    files[path] = m_oNodes[node].bytes;
  }
  return files;
}

std::set<LossyDisk::Files> LossyDisk::GetSurvivors() const {
  std::vector<size_t> limits;
  for (const Entry& entry : m_oNodes) {
    limits.push_back(entry.nameChanges.size() + 1);
  }
  std::set<Files> survivors;
  ForEachCombination(limits, [&](const std::vector<size_t>& counts) {
    std::vector<Names> names;
    for (Node node = ROOT; node < m_oNodes.size(); ++node) {
      names.push_back(m_oNodes[node].flushedNames);
      for (size_t index = 0; index < counts[node]; ++index) {
        Apply(m_oNodes[node].nameChanges[index], names.back());
      }
    }
    AddSurvivors(names, survivors);
  });
  return survivors;
}

// With these names in the directories.
void LossyDisk::AddSurvivors(const std::vector<Names>& names, std::set<Files>& survivors) const {
  std::map<std::string, Node> files;
  ListFiles(ROOT, "", names, files);
  std::map<Node, std::vector<std::string>> contents;
  for (const auto& [path, node] : files) {
    contents[node] = SurvivingBytes(m_oNodes[node]);
  }
  std::vector<size_t> limits;
  for (const auto& [node, texts] : contents) {
    limits.push_back(texts.size());
  }
  ForEachCombination(limits, [&](const std::vector<size_t>& choices) {
    Files survivor;
    for (const auto& [path, node] : files) {
      const auto position = contents.find(node);
      const auto index = static_cast<size_t>(std::distance(contents.begin(), position));
      survivor[path] = position->second[choices[index]];
    }
    survivors.insert(std::move(survivor));
  });
}

std::vector<std::string> LossyDisk::SurvivingBytes(const Entry& file) {
  std::set<std::string> contents = {file.flushedBytes};
  std::string bytes = file.flushedBytes;
  std::string zeros = file.flushedBytes;
  for (const ByteChange& change : file.byteChanges) {
    for (size_t length = 1; length < change.bytes.size(); ++length) {
      std::string cut = bytes;
      Apply({std::nullopt, change.offset, change.bytes.substr(0, length)}, cut);
      contents.insert(std::move(cut));
    }
    Apply(change, bytes);
    contents.insert(bytes);
    Apply({change.size, change.offset, std::string(change.bytes.size(), '\0')}, zeros);
  }
  contents.insert(std::move(zeros));
  return {contents.begin(), contents.end()};
}
