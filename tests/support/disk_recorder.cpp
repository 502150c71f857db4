#include "tests/support/disk_recorder.h"

#include <fcntl.h>
#include <sys/syscall.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <stdexcept>

namespace fs = std::filesystem;

namespace {

// Whether the first path leads to or through the second one.
bool IsAtOrBelow(const std::string& path, const std::string& directory) {
  return path == directory || path.starts_with(directory == "/" ? "/" : directory + "/");
}

// The path that a system call was given as a directory and a path.
std::string PathAt(const SteppedChild& child, uint64_t directory, uint64_t address) {
  const fs::path path = child.ReadText(address);
  const std::string process = "/proc/" + std::to_string(child.GetPid());
  const fs::path link = static_cast<int>(directory) == AT_FDCWD
                            ? process + "/cwd"
                            : process + "/fd/" + std::to_string(static_cast<int>(directory));
  return (path.is_absolute() ? path : fs::read_symlink(link) / path).lexically_normal();
}

std::string PathOf(const SteppedChild& child, uint64_t address) {
  return PathAt(child, static_cast<uint64_t>(AT_FDCWD), address);
}

}  // namespace

DiskRecorder::DiskRecorder(const std::string& directory) : m_strDirectory(directory) {
  std::string made;
  for (const fs::path& name : fs::path(directory).parent_path().relative_path()) {
    made += "/" + name.string();
    m_oDisk.CreateDirectory(made);
  }
  if (fs::exists(directory)) {
    m_oDisk.CreateDirectory(directory);
    for (const fs::directory_entry& entry : fs::recursive_directory_iterator(directory)) {
      if (entry.is_directory()) {
        m_oDisk.CreateDirectory(entry.path());
      }
    }
  }
  for (const auto& [path, bytes] : ReadFiles()) {
    m_oDisk.Write(m_oDisk.CreateFile(path), 0, bytes);
  }
  m_oDisk.FlushAll();
}

DiskRecorder::Survivors DiskRecorder::Run(const std::function<void()>& action, int limit) {
  m_oOpen.clear();
  Survivors survivors = GetSurvivors();
  SteppedChild child(action);
  Effect effect;
  bool isRunning = child.Step();
  for (m_nCalls = 0; isRunning && m_nCalls < limit; ++m_nCalls) {
    effect = EffectOf(child);
    isRunning = child.Step();
    if (isRunning && effect != nullptr && child.GetResult() >= 0) {
      effect(child.GetResult());
      survivors.merge(GetSurvivors());
    }
  }
  child.Kill();
  m_nExitCode = child.GetExitCode();
  if (m_oDisk.GetFiles() != ReadFiles()) {
    throw std::logic_error("a system call changed the files as the model does not know");
  }
  return survivors;
}

void DiskRecorder::Restore(const LossyDisk::Files& files) const {
  fs::remove_all(m_strDirectory);
  for (const auto& [path, bytes] : files) {
    fs::create_directories(fs::path(path).parent_path());
    std::ofstream(path, std::ios::binary) << bytes;
  }
}

// The directories around the followed one are followed too: they hold its name.
bool DiskRecorder::IsFollowed(const std::string& path) const {
  return IsAtOrBelow(path, m_strDirectory) || IsAtOrBelow(m_strDirectory, path);
}

LossyDisk::Files DiskRecorder::ReadFiles() const {
  LossyDisk::Files files;
  if (!fs::exists(m_strDirectory)) {
    return files;
  }
  for (const fs::directory_entry& entry : fs::recursive_directory_iterator(m_strDirectory)) {
    if (entry.is_regular_file()) {
      std::ifstream file(entry.path(), std::ios::binary);
      files[entry.path()] = {std::istreambuf_iterator<char>(file), {}};
    }
  }
  return files;
}

// What the system call that the child is about to make will do to the model. Null: nothing.
DiskRecorder::Effect DiskRecorder::EffectOf(const SteppedChild& child) {
  const Effect effect = EffectOnNames(child);
  return effect != nullptr ? effect : EffectOnBytes(child);
}

DiskRecorder::Effect DiskRecorder::EffectOnNames(const SteppedChild& child) {
  const auto& arguments = child.GetArguments();
  [[maybe_unused]] const auto path = [&](size_t index) { return PathOf(child, arguments[index]); };
  const auto pathAt = [&](size_t index) {
    return PathAt(child, arguments[index], arguments[index + 1]);
  };
  switch (child.GetSystemCall()) {
#ifdef SYS_open  // the older calls, which newer processors do not have
    case SYS_open:
      return Open(path(0), arguments[1]);
    case SYS_mkdir:
      return MakeDirectory(path(0));
    case SYS_unlink:
    case SYS_rmdir:
      return Remove(path(0));
    case SYS_rename:
      return Rename(path(0), path(1), false);
#endif
#ifdef SYS_renameat
    case SYS_renameat:
      return Rename(pathAt(0), pathAt(2), false);
#endif
    case SYS_openat:
      return Open(pathAt(0), arguments[2]);
    case SYS_mkdirat:
      return MakeDirectory(pathAt(0));
    case SYS_unlinkat:
      return Remove(pathAt(0));
    case SYS_renameat2:
      return Rename(pathAt(0), pathAt(2), (arguments[4] & RENAME_EXCHANGE) != 0);
    default:
      return nullptr;
  }
}

DiskRecorder::Effect DiskRecorder::EffectOnBytes(const SteppedChild& child) {
  const auto& arguments = child.GetArguments();
  const auto position = m_oOpen.find(arguments[0]);
  if (position == m_oOpen.end()) {
    return nullptr;
  }
  OpenFile& file = position->second;
  switch (child.GetSystemCall()) {
    case SYS_close:
      return [this, position](int64_t) { m_oOpen.erase(position); };
    case SYS_read:
      return [&file](int64_t length) { file.offset += static_cast<size_t>(length); };
    case SYS_lseek:
      return [&file](int64_t offset) { file.offset = static_cast<size_t>(offset); };
    case SYS_write:
      return Write(child, false);
    case SYS_pwrite64:
      return Write(child, true);
    case SYS_ftruncate:
      return [this, &file, size = arguments[1]](int64_t) { m_oDisk.Truncate(file.node, size); };
    case SYS_fsync:
    case SYS_fdatasync:
      return [this, &file](int64_t) { m_oDisk.Flush(file.node); };
    default:
      return nullptr;
  }
}

DiskRecorder::Effect DiskRecorder::Open(const std::string& path, uint64_t flags) {
  if (!IsFollowed(path)) {
    return nullptr;
  }
  return [this, path, flags](int64_t descriptor) {
    const std::optional<LossyDisk::Node> found = m_oDisk.Find(path);
    const LossyDisk::Node node = found ? *found : m_oDisk.CreateFile(path);
    if ((flags & O_TRUNC) != 0) {
      m_oDisk.Truncate(node, 0);
    }
    m_oOpen[static_cast<uint64_t>(descriptor)] = {node, 0, (flags & O_APPEND) != 0};
  };
}

DiskRecorder::Effect DiskRecorder::MakeDirectory(const std::string& path) {
  if (!IsFollowed(path)) {
    return nullptr;
  }
  return [this, path](int64_t) { m_oDisk.CreateDirectory(path); };
}

DiskRecorder::Effect DiskRecorder::Remove(const std::string& path) {
  if (!IsFollowed(path)) {
    return nullptr;
  }
  return [this, path](int64_t) { m_oDisk.Remove(path); };
}

DiskRecorder::Effect DiskRecorder::Rename(const std::string& from, const std::string& to,
                                          bool isExchange) {
  if (!IsFollowed(from) && !IsFollowed(to)) {
    return nullptr;
  }
  return [this, from, to, isExchange](int64_t) {
    if (isExchange) {
      m_oDisk.Exchange(from, to);
    } else {
      m_oDisk.Rename(from, to);
    }
  };
}

DiskRecorder::Effect DiskRecorder::Write(const SteppedChild& child, bool isAtOffset) {
  const auto& arguments = child.GetArguments();
  OpenFile& file = m_oOpen[arguments[0]];
  std::string bytes = child.ReadMemory(arguments[1], arguments[2]);
  return [this, &file, isAtOffset, at = arguments[3], bytes](int64_t length) {
    const size_t end = file.isAppending ? m_oDisk.GetSize(file.node) : file.offset;
    const auto count = static_cast<size_t>(length);
    m_oDisk.Write(file.node, isAtOffset && !file.isAppending ? at : end, bytes.substr(0, count));
    file.offset = isAtOffset ? file.offset : end + count;
  };
}
