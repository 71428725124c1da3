// Wrappers of the functions that can fail and that neither the simulated device nor the file calls
// cover. The linker substitutes them in this program; the names are the mangled names of the
// declarations.
#include <new>
#include <optional>
#include <string>
#include <utility>

#include "platform/notifications.h"
#include "platform/property_list.h"
#include "tests/faults/fault_injector.h"

#define VORLATCH_WRAPPED(result, name, mangled, ...)         \
  result real##name(__VA_ARGS__) __asm__("__real_" mangled); \
  result wrap##name(__VA_ARGS__) __asm__("__wrap_" mangled)

namespace vorlatch::faults {

using plist::Value;

VORLATCH_WRAPPED(void, Observe, "_ZN8vorlatch8platform19observeNotificationEPKcSt8functionIFvvEE",
                 const char*, platform::Work);
VORLATCH_WRAPPED(
    std::optional<Value>, Parse,
    "_ZN8vorlatch8platform17parsePropertyListESt17basic_string_viewIcSt11char_traitsIcEEPKc",
    std::string_view, const char*);
VORLATCH_WRAPPED(std::string, WriteXml,
                 "_ZN8vorlatch8platform20writeXmlPropertyListB5cxx11ERKNS_5plist5ValueE",
                 const Value&);
VORLATCH_WRAPPED(void*, Allocate, "_ZnamRKSt9nothrow_t", std::size_t, const std::nothrow_t&);

namespace {

// Makes the call, or returns nothing if it is to fail.
template <typename Real>
auto pass(const char* name, const Real& real) {
  if (!FaultInjector::get().isWatching()) return real();
  decltype(real()) whole{};
  const bool fails = FaultInjector::get().fails(name);
  if (!fails) whole = real();
  simulated::Device::get().trace(name, "", {.result = fails ? 0 : 1});
  return whole;
}

}  // namespace

void wrapObserve(const char* name, platform::Work handler) {
  if (!FaultInjector::get().fails("observeNotification")) {
    return realObserve(name, std::move(handler));
  }
  simulated::Device::get().trace(
      "observeNotification", std::string("observeNotification(\"") + name + "\")", {.result = -1});
}

std::optional<Value> wrapParse(std::string_view bytes, const char* only_key) {
  return pass("parsePropertyList", [&] { return realParse(bytes, only_key); });
}

std::string wrapWriteXml(const Value& value) {
  return pass("writeXmlPropertyList", [&] { return realWriteXml(value); });
}

void* wrapAllocate(std::size_t size, const std::nothrow_t& nothrow) {
  return pass("allocate", [&] { return realAllocate(size, nothrow); });
}

}  // namespace vorlatch::faults
