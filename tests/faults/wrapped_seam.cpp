// Wrappers of the platform functions, and of allocations without which the daemon can continue,
// that the linker substitutes in this program. The names are the mangled names of the declarations.
#include <new>
#include <optional>
#include <string>
#include <utility>

#include "platform/local_time.h"
#include "platform/memorystatus.h"
#include "platform/notifications.h"
#include "platform/process_table.h"
#include "platform/property_list.h"
#include "tests/faults/fault_injector.h"

#define VORLATCH_REAL(name) __asm__("__real_" name)
#define VORLATCH_WRAP(name) __asm__("__wrap_" name)
#define VORLATCH_MEMORYSTATUS_CONTROL "_ZN8vorlatch8platform20memorystatus_controlEjijPvm"
#define VORLATCH_GETPRIORITY "_ZN8vorlatch8platform11getpriorityEij"
#define VORLATCH_SETPRIORITY "_ZN8vorlatch8platform11setpriorityEiji"
#define VORLATCH_PROC_LISTPIDS "_ZN8vorlatch8platform13proc_listpidsEjjPvi"
#define VORLATCH_PROC_NAME "_ZN8vorlatch8platform9proc_nameEiPvj"
#define VORLATCH_PROC_PIDPATH "_ZN8vorlatch8platform12proc_pidpathEiPvj"
#define VORLATCH_OBSERVE "_ZN8vorlatch8platform19observeNotificationEPKcSt8functionIFvvEE"
#define VORLATCH_PARSE \
  "_ZN8vorlatch8platform17parsePropertyListESt17basic_string_viewIcSt11char_traitsIcEEPKc"
#define VORLATCH_WRITE_XML "_ZN8vorlatch8platform20writeXmlPropertyListB5cxx11ERKNS_5plist5ValueE"
#define VORLATCH_LOCAL_TIME "_ZN8vorlatch8platform14localTimeStampB5cxx11Ev"
#define VORLATCH_ALLOCATE "_ZnamRKSt9nothrow_t"

namespace vorlatch::faults {

using plist::Value;
using std::int32_t;
using std::size_t;
using std::uint32_t;

int realMemorystatusControl(uint32_t, int32_t, uint32_t, void*, size_t)
    VORLATCH_REAL(VORLATCH_MEMORYSTATUS_CONTROL);
int wrapMemorystatusControl(uint32_t, int32_t, uint32_t, void*, size_t)
    VORLATCH_WRAP(VORLATCH_MEMORYSTATUS_CONTROL);
int realGetpriority(int, uint32_t) VORLATCH_REAL(VORLATCH_GETPRIORITY);
int wrapGetpriority(int, uint32_t) VORLATCH_WRAP(VORLATCH_GETPRIORITY);
int realSetpriority(int, uint32_t, int) VORLATCH_REAL(VORLATCH_SETPRIORITY);
int wrapSetpriority(int, uint32_t, int) VORLATCH_WRAP(VORLATCH_SETPRIORITY);
int realProcListpids(uint32_t, uint32_t, void*, int) VORLATCH_REAL(VORLATCH_PROC_LISTPIDS);
int wrapProcListpids(uint32_t, uint32_t, void*, int) VORLATCH_WRAP(VORLATCH_PROC_LISTPIDS);
int realProcName(int, void*, uint32_t) VORLATCH_REAL(VORLATCH_PROC_NAME);
int wrapProcName(int, void*, uint32_t) VORLATCH_WRAP(VORLATCH_PROC_NAME);
int realProcPidpath(int, void*, uint32_t) VORLATCH_REAL(VORLATCH_PROC_PIDPATH);
int wrapProcPidpath(int, void*, uint32_t) VORLATCH_WRAP(VORLATCH_PROC_PIDPATH);
void realObserve(const char*, platform::Work) VORLATCH_REAL(VORLATCH_OBSERVE);
void wrapObserve(const char*, platform::Work) VORLATCH_WRAP(VORLATCH_OBSERVE);
std::optional<Value> realParse(std::string_view, const char*) VORLATCH_REAL(VORLATCH_PARSE);
std::optional<Value> wrapParse(std::string_view, const char*) VORLATCH_WRAP(VORLATCH_PARSE);
std::string realWriteXml(const Value&) VORLATCH_REAL(VORLATCH_WRITE_XML);
std::string wrapWriteXml(const Value&) VORLATCH_WRAP(VORLATCH_WRITE_XML);
std::string realLocalTime() VORLATCH_REAL(VORLATCH_LOCAL_TIME);
std::string wrapLocalTime() VORLATCH_WRAP(VORLATCH_LOCAL_TIME);
void* realAllocate(size_t, const std::nothrow_t&) noexcept VORLATCH_REAL(VORLATCH_ALLOCATE);
void* wrapAllocate(size_t, const std::nothrow_t&) noexcept VORLATCH_WRAP(VORLATCH_ALLOCATE);

namespace {

bool isWatching() {
  return FaultInjector::get().isWatching();
}

template <typename Real>
int pass(const char* name, const std::vector<std::int64_t>& arguments, void* buffer,
         size_t buffer_bytes, const Real& real) {
  if (!isWatching()) return real();
  const auto result = FaultInjector::get().pass({.name = name, .arguments = arguments}, buffer,
                                                buffer_bytes, [&real](bool) { return real(); });
  return static_cast<int>(result);
}

// For a call whose result is not a number; null or empty means failure.
template <typename Real>
auto passWhole(const char* name, const Real& real) {
  if (!isWatching()) return real();
  decltype(real()) whole{};
  FaultInjector::get().pass({.name = name}, nullptr, 0, [&](bool) {
    whole = real();
    return 1;
  });
  return whole;
}

}  // namespace

int wrapMemorystatusControl(uint32_t command, int32_t pid, uint32_t flags, void* buffer,
                            size_t buffersize) {
  return pass("memorystatus_control", {command, pid, flags, static_cast<std::int64_t>(buffersize)},
              buffer, buffersize,
              [&] { return realMemorystatusControl(command, pid, flags, buffer, buffersize); });
}

int wrapGetpriority(int which, uint32_t who) {
  return pass("getpriority", {which, static_cast<int32_t>(who)}, nullptr, 0,
              [&] { return realGetpriority(which, who); });
}

int wrapSetpriority(int which, uint32_t who, int value) {
  return pass("setpriority", {which, static_cast<int32_t>(who), value}, nullptr, 0,
              [&] { return realSetpriority(which, who, value); });
}

int wrapProcListpids(uint32_t type, uint32_t typeinfo, void* buffer, int buffersize) {
  return pass("proc_listpids", {type, typeinfo, buffersize}, buffer,
              static_cast<size_t>(buffersize),
              [&] { return realProcListpids(type, typeinfo, buffer, buffersize); });
}

int wrapProcName(int pid, void* buffer, uint32_t buffersize) {
  return pass("proc_name", {pid, buffersize}, buffer, buffersize,
              [&] { return realProcName(pid, buffer, buffersize); });
}

int wrapProcPidpath(int pid, void* buffer, uint32_t buffersize) {
  return pass("proc_pidpath", {pid, buffersize}, buffer, buffersize,
              [&] { return realProcPidpath(pid, buffer, buffersize); });
}

void wrapObserve(const char* name, platform::Work handler) {
  if (!isWatching()) return realObserve(name, std::move(handler));
  FaultInjector::get().pass({.name = "observeNotification", .given = name}, nullptr, 0, [&](bool) {
    realObserve(name, std::move(handler));
    return 1;
  });
}

std::optional<Value> wrapParse(std::string_view bytes, const char* only_key) {
  return passWhole("parsePropertyList", [&] { return realParse(bytes, only_key); });
}

std::string wrapWriteXml(const Value& value) {
  return passWhole("writeXmlPropertyList", [&] { return realWriteXml(value); });
}

std::string wrapLocalTime() {
  const bool was_watching = isWatching();
  std::string stamp = passWhole("localTimeStamp", realLocalTime);
  if (was_watching) FaultInjector::get().last().left = stamp;
  return stamp;
}

void* wrapAllocate(size_t size, const std::nothrow_t& nothrow) noexcept {
  if (!isWatching()) return realAllocate(size, nothrow);
  void* memory = nullptr;
  FaultInjector::get().pass({.name = "allocate", .arguments = {static_cast<std::int64_t>(size)}},
                            nullptr, 0, [&](bool) {
                              memory = realAllocate(size, nothrow);
                              return memory != nullptr ? 1 : 0;
                            });
  return memory;
}

}  // namespace vorlatch::faults
