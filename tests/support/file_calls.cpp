#include "tests/support/file_calls.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <sys/types.h>

#include <cstdarg>
#include <cstdio>
#include <utility>

namespace {

struct Expected {
  int calls_left = 0;
  std::function<void()> action;
};

Expected& expected() {
  static Expected& one = *new Expected;
  return one;
}

vorlatch::tests::OpenedSpecials*& collector() {
  static vorlatch::tests::OpenedSpecials* one = nullptr;
  return one;
}

void noteFileCall() {
  Expected& next = expected();
  if (!next.action || --next.calls_left > 0) return;
  std::exchange(next.action, nullptr)();
}

}  // namespace

extern "C" {

int __real_open(const char* path, int flags, ...);
int __real_stat(const char* path, struct stat* status);
int __real_lstat(const char* path, struct stat* status);
int __real_fstat(int file, struct stat* status);
int __real_fstatat(int directory, const char* path, struct stat* status, int flags);
int __real_rename(const char* from, const char* to);
int __real_mkostemp(char* path, int flags);
int __real_unlink(const char* path);
int __real_chmod(const char* path, mode_t mode);
int __real_fchmod(int file, mode_t mode);
int __real_ftruncate(int file, off_t size);
int __real_dup2(int from, int to);
std::FILE* __real_freopen(const char* path, const char* mode, std::FILE* stream);

int __wrap_open(const char* path, int flags, ...) {
  noteFileCall();
  mode_t mode = 0;
  if ((flags & O_CREAT) != 0) {
    va_list arguments;
    va_start(arguments, flags);
    mode = va_arg(arguments, mode_t);
    va_end(arguments);
  }
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

BeforeFileCall::BeforeFileCall(int n, std::function<void()> action) {
  expected() = {.calls_left = n, .action = std::move(action)};
}

BeforeFileCall::~BeforeFileCall() {
  expected() = {};
}

bool BeforeFileCall::hasHappened() const {
  return !expected().action;
}

OpenedSpecials::OpenedSpecials() {
  collector() = this;
}

OpenedSpecials::~OpenedSpecials() {
  collector() = nullptr;
}

}  // namespace vorlatch::tests
