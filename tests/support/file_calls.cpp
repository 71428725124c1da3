#include "tests/support/file_calls.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cstdio>
#include <utility>

namespace {

using vorlatch::tests::BeforeFileCall;
using vorlatch::tests::OpenedSpecials;

BeforeFileCall*& expected() {
  static BeforeFileCall* one = nullptr;
  return one;
}

OpenedSpecials*& collector() {
  static OpenedSpecials* one = nullptr;
  return one;
}

void noteFileCall() {
  if (expected() != nullptr) expected()->note();
}

}  // namespace

extern "C" {

// The mode of a variable call is where a named argument would be.
int __real_open(const char* path, int flags, mode_t mode);
int __real_stat(const char* path, struct stat* status);
int __real_lstat(const char* path, struct stat* status);
int __real_fstat(int file, struct stat* status);
int __real_fstatat(int directory, const char* path, struct stat* status, int flags);
int __real_rename(const char* from, const char* to);
int __real_mkostemp(char* path, int flags);
int __real_unlink(const char* path);
int __real_chmod(const char* path, mode_t mode);
int __real_fchmod(int file, mode_t mode);
int __real_truncate(const char* path, off_t size);
int __real_ftruncate(int file, off_t size);
int __real_dup2(int from, int to);
std::FILE* __real_freopen(const char* path, const char* mode, std::FILE* stream);

int __wrap_open(const char* path, int flags, mode_t mode) {
  noteFileCall();
  // Creating opens nothing that is there, and a directory can be meant.
  constexpr int kLeftOut = O_CREAT | O_DIRECTORY;
  struct stat status {};
  if (collector() != nullptr && (flags & kLeftOut) == 0 && __real_stat(path, &status) == 0 &&
      !S_ISREG(status.st_mode)) {
    collector()->paths.emplace_back(path);
  }
  return __real_open(path, flags, mode);
}

int __wrap_stat(const char* path, struct stat* status) {
  noteFileCall();
  return __real_stat(path, status);
}

int __wrap_lstat(const char* path, struct stat* status) {
  noteFileCall();
  return __real_lstat(path, status);
}

int __wrap_fstat(int file, struct stat* status) {
  noteFileCall();
  return __real_fstat(file, status);
}

int __wrap_fstatat(int directory, const char* path, struct stat* status, int flags) {
  noteFileCall();
  return __real_fstatat(directory, path, status, flags);
}

int __wrap_rename(const char* from, const char* to) {
  noteFileCall();
  return __real_rename(from, to);
}

int __wrap_mkostemp(char* path, int flags) {
  noteFileCall();
  return __real_mkostemp(path, flags);
}

int __wrap_unlink(const char* path) {
  noteFileCall();
  return __real_unlink(path);
}

int __wrap_chmod(const char* path, mode_t mode) {
  noteFileCall();
  return __real_chmod(path, mode);
}

int __wrap_fchmod(int file, mode_t mode) {
  noteFileCall();
  return __real_fchmod(file, mode);
}

int __wrap_truncate(const char* path, off_t size) {
  noteFileCall();
  return __real_truncate(path, size);
}

int __wrap_ftruncate(int file, off_t size) {
  noteFileCall();
  return __real_ftruncate(file, size);
}

int __wrap_dup2(int from, int to) {
  noteFileCall();
  return __real_dup2(from, to);
}

std::FILE* __wrap_freopen(const char* path, const char* mode, std::FILE* stream) {
  noteFileCall();
  return __real_freopen(path, mode, stream);
}

}  // extern "C"

namespace vorlatch::tests {

BeforeFileCall::BeforeFileCall(int n, std::function<void()> action)
    : calls_left_(n), action_(std::move(action)) {
  expected() = this;
}

BeforeFileCall::~BeforeFileCall() {
  expected() = nullptr;
}

// Calls that the action makes do not count.
void BeforeFileCall::note() {
  if (action_ && --calls_left_ == 0) std::exchange(action_, nullptr)();
}

OpenedSpecials::OpenedSpecials() {
  collector() = this;
}

OpenedSpecials::~OpenedSpecials() {
  collector() = nullptr;
}

}  // namespace vorlatch::tests
