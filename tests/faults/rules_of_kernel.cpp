// One process's settings.
#include <unistd.h>

#include <array>
#include <cstring>

#include "tests/faults/rules.h"

namespace vorlatch::faults {
namespace {

using std::to_string;

constexpr std::int32_t kNoBand = -999;
constexpr std::size_t kEntryBytes = 24;

std::int32_t numberIn(const std::string& bytes, std::size_t at) {
  std::int32_t number = 0;
  std::memcpy(&number, bytes.data() + at, sizeof(number));
  return number;
}

std::string word(const char* success, const char* failure, bool succeeded) {
  return succeeded ? success : failure;
}

bool limitHolds(std::int32_t wanted, std::int32_t actual) {
  return actual == wanted || ((wanted == 0 || wanted == -1) && actual >= 1);
}

}  // namespace

const Call& Rules::control(std::int32_t command, std::int32_t pid, std::int32_t flags,
                           const std::vector<std::int32_t>& record) {
  return calls.nextGiving(
      "memorystatus_control",
      {command, pid, flags, static_cast<std::int64_t>(record.size() * sizeof(std::int32_t))},
      record);
}

std::int32_t Rules::bandOf(std::int32_t pid) {
  const std::int64_t bytes = control(1, 0).result;
  if (bytes < 1) return kNoBand;
  if (calls.memoryLacks()) return kNoBand;
  const Call& list = calls.next("memorystatus_control", {1, 0, 0, bytes + 240});
  if (list.result < static_cast<std::int64_t>(kEntryBytes)) return kNoBand;
  for (std::size_t i = 0; i < static_cast<std::size_t>(list.result) / kEntryBytes; ++i) {
    if (numberIn(list.left, i * kEntryBytes) == pid)
      return numberIn(list.left, i * kEntryBytes + 4);
  }
  return kNoBand;
}

void Rules::verifyBand(std::int32_t pid, std::int64_t set_result,
                       std::optional<std::int32_t> wanted) {
  const std::int32_t actual = bandOf(pid);
  if (actual == kNoBand) {
    calls.line("[内存优先级] 未在内核优先级列表中找到 PID:" + to_string(pid));
    calls.line("[内核] ：" + word("调用成功但状态丢失", "失败", set_result == 0));
    return;
  }
  calls.line("[内存优先级] 为:" + to_string(actual));
  if (!wanted) {
    calls.line("[内核] ：系统接管并分配真实优先级为 " + to_string(actual));
  } else if (actual == *wanted) {
    calls.line("[内核] ：成功");
  } else {
    calls.line("[内核] ：已被系统覆盖 (设置:" + to_string(*wanted) + " 实际:" + to_string(actual) +
               ")");
  }
}

void Rules::protectItself() {
  const std::int32_t self = getpid();
  calls.line("[守护] PID:" + to_string(self));
  const bool is_set = calls.next("setpriority", {0, self, -20}).result == 0;
  const std::int64_t actual = calls.next("getpriority", {0, self}).result;
  calls.line("[系统] 设定进程优先级 -> " + word("[内核: 成功]", "[内核: 失败]", is_set));
  if (is_set && actual != -20) {
    calls.line("[内核] ：已被系统覆盖 (实际: " + to_string(actual) + ")");
  } else {
    calls.line("[内核] ：" + word("成功", "失败", is_set));
  }
  std::int64_t result = -1;
  std::int32_t band = 0;
  for (const std::int32_t step : {999, 210, 21}) {
    if (result != -1) break;
    band = step;
    result = control(2, self, 1, {band, 0, 0, 0}).result;
  }
  calls.line("[系统] 设定内存优先级(" + to_string(band) + ") -> " +
             word("[内核] 成功", "[内核] 失败", result == 0));
  verifyBand(self, result, band);
  calls.line("[守护] Vorlatch 后台守护进程初始化完成");
  calls.line(std::string(40, '='));
}

void Rules::holdLimits(const Settings& settings, std::int32_t pid) {
  const std::int32_t active = settings.active_mb;
  const std::int32_t inactive = settings.inactive_mb;
  const std::string wanted =
      "[内存限制] 目标 Act:" + to_string(active) + " Inact:" + to_string(inactive);
  const Call& set =
      control(7, pid, 0, {active, active >= 1 ? 1 : 0, inactive, inactive >= 1 ? 1 : 0});
  if (set.result != 0) {
    calls.line(wanted + " -> [失败] err:" + to_string(set.error));
    calls.line("[内核] ：失败");
    return;
  }
  const std::string& actual = control(8, pid, 0, {0, 0, 0, 0}).left;
  calls.line(wanted + " | 最终 Act:" + to_string(numberIn(actual, 0)) +
             " Inact:" + to_string(numberIn(actual, 8)) + " -> [成功]");
  calls.line("[内核] ：" + word("成功", "已被系统覆盖",
                                limitHolds(active, numberIn(actual, 0)) &&
                                    limitHolds(inactive, numberIn(actual, 8))));
}

void Rules::holdNice(const Settings& settings, std::int32_t pid) {
  const Call& current = calls.next("getpriority", {0, pid});
  if (current.result == -1 && current.error != 0) {
    calls.line("[进程优先级] 读取状态失败 err:" + to_string(current.error));
    return;
  }
  const std::string target = to_string(settings.nice);
  if (current.result == settings.nice) {
    calls.line("[进程优先级] 目标已是 " + target);
    return;
  }
  const std::string change = "[进程优先级] 当前:" + to_string(current.result) + " 目标:" + target;
  const Call& set = calls.next("setpriority", {0, pid, settings.nice});
  if (set.result != 0) {
    calls.line(change + " -> [失败] err:" + to_string(set.error));
    calls.line("[内核] ：失败");
    return;
  }
  const std::int64_t actual = calls.next("getpriority", {0, pid}).result;
  calls.line(change + " -> [成功]");
  calls.line(actual == settings.nice ? "[内核] ：成功"
                                     : "[内核] ：已被系统覆盖 (实际: " + to_string(actual) + ")");
}

void Rules::holdBand(std::int32_t band, std::int32_t pid) {
  if (band == -1) {
    calls.line("[内存优先级] 目标:-1 -> 未设置, 跳过");
    return;
  }
  control(16, pid, 0, {band == 0 ? 1 : 0});
  if (band == 0) {
    const std::int64_t result = control(2, pid, 0, {0, 0, 0, 0}).result;
    calls.line("[内存优先级] 目标:0 -> [恢复默认, 系统接管]");
    verifyBand(pid, result, std::nullopt);
    return;
  }
  std::int64_t result = control(2, pid, 1, {band, 0, 0, 0}).result;
  if (result == -1 && band >= 1 && band != 999) {
    const std::int32_t adapted = band / 10;
    result = control(2, pid, 1, {adapted, 0, 0, 0}).result;
    calls.line("[环境适配] 目标 " + to_string(band) + " -> 实际 " + to_string(adapted));
    band = adapted;
  }
  calls.line("[系统] 内存优先级:" + to_string(band) + " -> [" +
             word("内核: 成功", "内核: 失败", result == 0) + "]");
  verifyBand(pid, result, band);
}

void Rules::setManaged(bool strip, std::int32_t pid) {
  const std::int32_t state = strip ? 0 : 1;
  const bool is_set = control(16, pid, 0, {state}).result == 0;
  const std::int64_t managed = control(17, pid).result;
  control(18, pid, 0, {state});
  control(strip ? 14 : 15, pid);
  if (strip) calls.next("setpriority", {6, pid, 1});
  calls.line("[状态剥离] 目标: " + word("剥离系统托管并开启强锁", "恢复系统托管", strip) +
             " -> [操作: " + word("成功", "失败", is_set) + "] [内核]: " + to_string(managed) +
             ")");
}

void Rules::apply(const std::string& key, const Settings& settings, std::int32_t pid) {
  holdLimits(settings, pid);
  holdNice(settings, pid);
  holdBand(settings.band, pid);
  if (settings.strip) setManaged(*settings.strip, pid);
  const std::int64_t nice = calls.next("getpriority", {0, pid}).result;
  updateStatus(key, pid, nice, bandOf(pid));
  calls.line("[守护] " + key + " PID:" + to_string(pid) + " 完成");
}

void Rules::restore(const std::string& key, std::int32_t pid) {
  updateStatus(key, 0, 0, 0);
  if (pid == 0) return;
  calls.line(std::string(40, '-'));
  calls.line("[恢复] 目标: " + key + " PID: " + to_string(pid));
  calls.next("setpriority", {0, pid, 0});
  control(7, pid, 0, {0, 0, 0, 0});
  control(16, pid, 0, {1});
  control(2, pid, 0, {0, 0, 0, 0});
  calls.line("[守护] " + key + " PID:" + to_string(pid));
}

}  // namespace vorlatch::faults
