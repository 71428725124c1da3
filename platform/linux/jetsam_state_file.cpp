#include "platform/linux/jetsam_state_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <utility>

#include "base/descriptor.h"
#include "platform/linux/installation.h"

namespace vorlatch::platform {
namespace {

constexpr std::array<char, 8> kMagic = {'v', 'o', 'r', 'j', 'e', 't', '0', '1'};
constexpr off_t kFileSizeMax = 1 << 24;  // bytes; room for 290000 records
constexpr mode_t kStateMode = 0600;

// Layout of the file. Without padding, so that the checksum covers only defined bytes.
struct FileHeader {
  std::array<char, 8> magic;
  std::array<char, 40> boot_id;
  std::int64_t next_arrival;
  std::uint64_t checksum;  // of the whole file, with 0 in this field
};
static_assert(sizeof(FileHeader) == 64);

struct FileRecord {
  std::uint64_t start_time;
  std::int64_t arrival;
  std::uint64_t user_data;
  std::int32_t pid;
  std::int32_t requested_band;
  std::int32_t effective_band;
  std::int32_t darwin_role;
  std::int32_t active_limit_mb;
  std::int32_t inactive_limit_mb;
  std::uint32_t bits;
  std::uint32_t reserved;
};
static_assert(sizeof(FileRecord) == 56);

constexpr std::uint32_t kActiveFatal = 0x01;
constexpr std::uint32_t kInactiveFatal = 0x02;
constexpr std::uint32_t kAssertion = 0x04;
constexpr std::uint32_t kManaged = 0x08;
constexpr std::uint32_t kFreezable = 0x10;
constexpr std::uint32_t kElevated = 0x20;

FileRecord packRecord(std::int32_t pid, const model::JetsamRecord& record) {
  const auto bit = [](bool set, std::uint32_t value) { return set ? value : 0U; };
  return {.start_time = record.start_time,
          .arrival = record.arrival,
          .user_data = record.user_data,
          .pid = pid,
          .requested_band = record.requested_band,
          .effective_band = record.effective_band,
          .darwin_role = record.darwin_role,
          .active_limit_mb = record.active.limit_mb,
          .inactive_limit_mb = record.inactive.limit_mb,
          .bits = bit(record.active.fatal, kActiveFatal) |
                  bit(record.inactive.fatal, kInactiveFatal) | bit(record.assertion, kAssertion) |
                  bit(record.managed, kManaged) | bit(record.freezable, kFreezable) |
                  bit(record.elevated, kElevated),
          .reserved = 0};
}

model::JetsamRecord unpackRecord(const FileRecord& record) {
  const auto has = [&record](std::uint32_t bit) { return (record.bits & bit) != 0; };
  return {.start_time = record.start_time,
          .arrival = record.arrival,
          .requested_band = record.requested_band,
          .effective_band = record.effective_band,
          .user_data = record.user_data,
          .active = {.limit_mb = record.active_limit_mb, .fatal = has(kActiveFatal)},
          .inactive = {.limit_mb = record.inactive_limit_mb, .fatal = has(kInactiveFatal)},
          .darwin_role = record.darwin_role,
          .assertion = has(kAssertion),
          .managed = has(kManaged),
          .freezable = has(kFreezable),
          .elevated = has(kElevated)};
}

// FNV-1a: detects accidental damage, not an attack.
std::uint64_t checksumOf(std::string_view bytes) {
  std::uint64_t hash = 14695981039346656037U;
  for (const char c : bytes) hash = (hash ^ static_cast<unsigned char>(c)) * 1099511628211U;
  return hash;
}

// Returns true for a regular file of this user. Any user may create files in this directory.
bool isOwnRegularFile(int descriptor, off_t& size) {
  struct stat status {};
  if (fstat(descriptor, &status) != 0) return false;
  size = status.st_size;
  return S_ISREG(status.st_mode) && status.st_uid == geteuid();
}

// Returns true if only this user can open, and so lock, the file. Refuses a file with several
// links: another user may have linked one of this user's files here.
bool isClosedToOthers(int descriptor) {
  struct stat status {};
  return fstat(descriptor, &status) == 0 && status.st_nlink == 1 && (status.st_mode & 077U) == 0;
}

// Opens and locks the lock file. The lock lasts until the file is closed or the process dies.
Descriptor openLocked(const std::string& path) {
  const auto open_once = [&path] {
    return open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK, kStateMode);
  };
  int descriptor = open_once();
  if (descriptor < 0 && errno == ENOENT &&
      makeDirectory(path.substr(0, path.rfind('/')), kRuntimeDirectoryMode)) {
    descriptor = open_once();
  }
  off_t size = 0;
  bool locked =
      descriptor >= 0 && isOwnRegularFile(descriptor, size) && isClosedToOthers(descriptor);
  if (locked) {
    int result = flock(descriptor, LOCK_EX);
    while (result != 0 && errno == EINTR) result = flock(descriptor, LOCK_EX);
    locked = result == 0;
  }
  if (!locked && descriptor >= 0) {
    close(descriptor);
    descriptor = -1;
  }
  return Descriptor(descriptor);
}

std::string readWhole(int descriptor, std::size_t size) {
  std::string bytes(size, '\0');
  std::size_t done = 0;
  while (done < size) {
    const ssize_t count = read(descriptor, bytes.data() + done, size - done);
    if (count < 0 && errno == EINTR) continue;
    if (count <= 0) break;
    done += static_cast<std::size_t>(count);
  }
  bytes.resize(done);
  return bytes;
}

// Renames the new file to the state's name in one step. If a state exists, exchanges the two and
// deletes the old one, because a rename over a file makes ext4 write the new file to the disk,
// which takes many times longer than the rest of the update.
bool putInPlace(const std::string& fresh, const std::string& path) {
  if (renameat2(AT_FDCWD, fresh.c_str(), AT_FDCWD, path.c_str(), RENAME_EXCHANGE) == 0) {
    unlink(fresh.c_str());
    return true;
  }
  return std::rename(fresh.c_str(), path.c_str()) == 0;
}

// Keeps the old state until the new one is complete. Flushes nothing to the disk, because a reboot
// makes the state void.
bool save(const std::string& path, std::string_view bytes) {
  const std::string fresh = path + ".new";
  if (unlink(fresh.c_str()) != 0 && errno != ENOENT) return false;
  {
    const Descriptor file(
        open(fresh.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC | O_NOFOLLOW, kStateMode));
    if (!file.isOpen() || !writeWhole(file, bytes)) return false;
  }
  return putInPlace(fresh, path);
}

std::string readBootId() {
  const Descriptor file(open("/proc/sys/kernel/random/boot_id", O_RDONLY | O_CLOEXEC));
  return file.isOpen() ? readWhole(file.get(), 36) : std::string();
}

const std::string& bootId() {
  static const std::string& boot_id = *new std::string(readBootId());
  return boot_id;
}

}  // namespace

std::string encodeJetsamTable(const model::JetsamTable& table, std::string_view boot_id) {
  FileHeader header{
      .magic = kMagic, .boot_id = {}, .next_arrival = table.next_arrival, .checksum = 0};
  std::memcpy(header.boot_id.data(), boot_id.data(),
              std::min(boot_id.size(), header.boot_id.size()));
  std::string bytes(sizeof(header) + table.records.size() * sizeof(FileRecord), '\0');
  std::memcpy(bytes.data(), &header, sizeof(header));
  char* out = bytes.data() + sizeof(header);
  for (const auto& [pid, record] : table.records) {
    const FileRecord packed = packRecord(pid, record);
    std::memcpy(out, &packed, sizeof(packed));
    out += sizeof(packed);
  }
  header.checksum = checksumOf(bytes);
  std::memcpy(bytes.data(), &header, sizeof(header));
  return bytes;
}

std::optional<model::JetsamTable> decodeJetsamTable(std::string_view bytes,
                                                    std::string_view boot_id) {
  FileHeader header{};
  if (bytes.size() < sizeof(header)) return std::nullopt;
  if ((bytes.size() - sizeof(header)) % sizeof(FileRecord) != 0) return std::nullopt;
  std::memcpy(&header, bytes.data(), sizeof(header));
  model::JetsamTable table;
  table.next_arrival = header.next_arrival;
  for (std::size_t at = sizeof(header); at < bytes.size(); at += sizeof(FileRecord)) {
    FileRecord record{};
    std::memcpy(&record, bytes.data() + at, sizeof(record));
    table.records[record.pid] = unpackRecord(record);
  }
  // Rejects what this program would not have written: another layout, another boot, a changed byte,
  // a pid that occurs twice.
  if (encodeJetsamTable(table, boot_id) != bytes) return std::nullopt;
  return table;
}

const model::JetsamTable* JetsamStateFile::load() {
  const Descriptor file(open(path_.c_str(), O_RDONLY | O_CLOEXEC | O_NOFOLLOW | O_NONBLOCK));
  const bool is_missing = !file.isOpen() && errno == ENOENT;
  off_t size = 0;
  if (!is_missing && (!file.isOpen() || !isOwnRegularFile(file.get(), size))) return nullptr;
  std::string bytes;
  if (!is_missing && size <= kFileSizeMax) bytes = readWhole(file.get(), sizeof(FileHeader));
  if (bytes.size() < sizeof(FileHeader)) {
    read_header_.clear();
    read_table_ = {};
  } else if (bytes != read_header_) {
    read_header_ = bytes;
    bytes += readWhole(file.get(), static_cast<std::size_t>(size) - bytes.size());
    read_table_ = decodeJetsamTable(bytes, bootId()).value_or(model::JetsamTable{});
  }
  return &read_table_;
}

void JetsamStateFile::look(const std::function<void(const model::JetsamTable&)>& use) {
  const Lock lock(mutex_);
  const model::JetsamTable* table = in_memory_ ? &*in_memory_ : load();
  use(table != nullptr ? *table : model::JetsamTable{});
}

void JetsamStateFile::update(const model::ProcessList& processes,
                             const std::function<void(model::JetsamTable&)>& use) {
  const Lock lock(mutex_);
  if (in_memory_) {
    use(*in_memory_);
    return;
  }
  const Descriptor lock_file = openLocked(path_ + ".lock");
  const model::JetsamTable* stored = lock_file.isOpen() ? load() : nullptr;
  model::JetsamTable table = stored != nullptr ? *stored : model::JetsamTable{};
  use(table);
  if (stored != nullptr && table == *stored) return;
  model::forgetDeadProcesses(table, processes);
  if (stored != nullptr && save(path_, encodeJetsamTable(table, bootId()))) return;
  in_memory_ = std::move(table);
}

}  // namespace vorlatch::platform
