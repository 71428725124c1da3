#include "tests/support/file_calls.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstdlib>
#include <map>
#include <string>

// Declares the linker's two names of a wrapped function: the real one, and the one that is called.
#define VORLATCH_WRAPPED(name, result, real, wrap, ...) \
  result real(__VA_ARGS__) __asm__("__real_" name);     \
  result wrap(__VA_ARGS__) __asm__("__wrap_" name)

// Wraps a function that is passed on as it is; `on` names the file by `place`.
#define VORLATCH_PASSED_ON(name, real, wrap, on, place, parameters, arguments) \
  int real parameters __asm__("__real_" name);                                 \
  int wrap parameters __asm__("__wrap_" name);                                 \
  int wrap parameters {                                                        \
    return on(name, place, [&](bool) { return real arguments; });              \
  }

namespace vorlatch::tests {

VORLATCH_WRAPPED("open", int, realOpen, wrapOpen, const char*, int, ...);
VORLATCH_WRAPPED("mkostemp", int, realMkostemp, wrapMkostemp, char*, int);
VORLATCH_WRAPPED("read", ssize_t, realRead, wrapRead, int, void*, size_t);
VORLATCH_WRAPPED("write", ssize_t, realWrite, wrapWrite, int, const void*, size_t);
VORLATCH_WRAPPED("dup2", int, realDup2, wrapDup2, int, int);
VORLATCH_WRAPPED("fflush", int, realFflush, wrapFflush, std::FILE*);
int wrapFprintf(std::FILE*, const char*, ...) __asm__("__wrap_fprintf");

namespace {

FileCallInterceptor*& currentInterceptor() {
  static FileCallInterceptor* one = nullptr;
  return one;
}

// The path with which each descriptor was opened while an interceptor was installed.
std::map<int, std::string>& paths() {
  static auto& all = *new std::map<int, std::string>;
  return all;
}

// The size to pass on: half of it, but at least 1, for a partial call.
size_t amount(size_t whole, bool in_part) {
  return in_part ? std::max<size_t>(whole / 2, 1) : whole;
}

template <typename Real>
auto onPath(const char* name, const char* path, const Real& real,
            const std::vector<std::int64_t>& arguments = {}) -> decltype(real(false)) {
  if (currentInterceptor() == nullptr) return real(false);
  return static_cast<decltype(real(false))>(
      currentInterceptor()->intercept({.name = name, .arguments = arguments, .path = path}, real));
}

template <typename Real>
auto onDescriptor(const char* name, int descriptor, const Real& real) -> decltype(real(false)) {
  if (currentInterceptor() == nullptr) return real(false);
  return onPath(name, paths()[descriptor].c_str(), real);
}

int opened(int descriptor, const std::string& path) {
  if (descriptor >= 0 && currentInterceptor() != nullptr) paths()[descriptor] = path;
  return descriptor;
}

}  // namespace

void interceptFileCalls(FileCallInterceptor* interceptor) {
  currentInterceptor() = interceptor;
}

int wrapOpen(const char* path, int flags, ...) {
  va_list rest;
  va_start(rest, flags);
  const mode_t mode = (flags & O_CREAT) != 0 ? va_arg(rest, mode_t) : 0;
  va_end(rest);
  return opened(onPath("open", path, [&](bool) { return realOpen(path, flags, mode); }, {flags}),
                path);
}

// Records the pattern as the temporary file's path, because the real name differs in every run.
int wrapMkostemp(char* path, int flags) {
  const std::string pattern = path;
  return opened(onPath("mkostemp", path, [&](bool) { return realMkostemp(path, flags); }, {flags}),
                pattern);
}

VORLATCH_PASSED_ON("close", realClose, wrapClose, onDescriptor, file, (int file), (file))
VORLATCH_PASSED_ON("fstat", realFstat, wrapFstat, onDescriptor, file,
                   (int file, struct stat* status), (file, status))
VORLATCH_PASSED_ON("fchmod", realFchmod, wrapFchmod, onDescriptor, file, (int file, mode_t mode),
                   (file, mode))
VORLATCH_PASSED_ON("ftruncate", realFtruncate, wrapFtruncate, onDescriptor, file,
                   (int file, off_t length), (file, length))
VORLATCH_PASSED_ON("stat", realStat, wrapStat, onPath, path,
                   (const char* path, struct stat* status), (path, status))
VORLATCH_PASSED_ON("lstat", realLstat, wrapLstat, onPath, path,
                   (const char* path, struct stat* status), (path, status))
VORLATCH_PASSED_ON("fstatat", realFstatat, wrapFstatat, onPath, path,
                   (int directory, const char* path, struct stat* status, int flags),
                   (directory, path, status, flags))
VORLATCH_PASSED_ON("rename", realRename, wrapRename, onPath, to, (const char* from, const char* to),
                   (from, to))
VORLATCH_PASSED_ON("unlink", realUnlink, wrapUnlink, onPath, path, (const char* path), (path))

ssize_t wrapRead(int descriptor, void* buffer, size_t size) {
  return onDescriptor("read", descriptor, [&](bool in_part) {
    return realRead(descriptor, buffer, amount(size, in_part));
  });
}

ssize_t wrapWrite(int descriptor, const void* bytes, size_t size) {
  return onDescriptor("write", descriptor, [&](bool in_part) {
    return realWrite(descriptor, bytes, amount(size, in_part));
  });
}

int wrapDup2(int from, int to) {
  const std::string path = currentInterceptor() != nullptr ? paths()[from] : std::string();
  return onPath("dup2", path.c_str(), [&](bool) { return realDup2(from, to); }, {to});
}

int wrapFprintf(std::FILE* stream, const char* format, ...) {
  va_list values;
  va_start(values, format);
  if (currentInterceptor() == nullptr || stream != stderr) {
    const int written = std::vfprintf(stream, format, values);
    va_end(values);
    return written;
  }
  char* text = nullptr;
  const int length = vasprintf(&text, format, values);
  va_end(values);
  const std::string line(text, static_cast<size_t>(length));
  std::free(text);
  return static_cast<int>(currentInterceptor()->intercept(
      {.name = "line", .line = line}, [&](bool in_part) -> std::int64_t {
        const size_t size = amount(line.size(), in_part);
        return std::fwrite(line.data(), 1, size, stream) == size ? static_cast<int>(size) : -1;
      }));
}

int wrapFflush(std::FILE* stream) {
  if (currentInterceptor() == nullptr || stream != stderr) return realFflush(stream);
  return static_cast<int>(
      currentInterceptor()->intercept({.name = "flush"}, [&](bool) { return realFflush(stream); }));
}

}  // namespace vorlatch::tests
