// The oracle's rules for the settings of one process.
#include <algorithm>
#include <cstring>

#include "tests/oracle/oracle.h"
#include "tests/oracle/reading.h"

namespace vorlatch::tests {
namespace {

using plist::Dictionary;

constexpr std::int32_t kNoBand = -999;

std::int32_t wordIn(const std::string& bytes, std::size_t index) {
  std::int32_t word = 0;
  std::memcpy(&word, bytes.data() + 4 * index, sizeof(word));
  return word;
}

bool holds(std::int32_t wanted, std::int32_t actual) {
  return actual == wanted || ((wanted == 0 || wanted == -1) && actual >= 1);
}

}  // namespace

Answer Oracle::memorystatus(int command, std::int32_t pid, int flags,
                            const std::vector<std::int32_t>& words) {
  Buffer buffer;
  if (!words.empty()) {
    std::string bytes(4 * words.size(), '\0');
    std::memcpy(bytes.data(), words.data(), bytes.size());
    buffer = {.size = static_cast<std::int64_t>(bytes.size()), .holds = bytes};
  }
  return daemon_.call("memorystatus_control", {command, pid, flags}, buffer);
}

std::int64_t Oracle::getNice(std::int32_t pid) {
  return daemon_.call("getpriority", {0, pid}, std::nullopt).result;
}

std::int64_t Oracle::setNice(std::int32_t pid, int value) {
  return daemon_.call("setpriority", {0, pid, value}, std::nullopt).result;
}

void Oracle::record(const std::string& key, std::int32_t pid, std::int64_t nice_value,
                    std::int32_t band) {
  status_.erase(key);
  if (pid != 0) status_.emplace(key, Dictionary{{"pid", pid}, {"n", nice_value}, {"p", band}});
  daemon_.writesStatus(status_);
}

void Oracle::apply(const std::string& key, const Dictionary& settings, std::int32_t pid) {
  applyLimits(settings, pid);
  applyNiceValue(settings, pid);
  applyBand(settings, pid);
  if (const auto strip = settings.find("StripManaged"); strip != settings.end()) {
    applyManaged(strip->second, pid);
  }
  const std::int64_t nice_value = getNice(pid);
  record(key, pid, nice_value, band(pid));
  line("[守护] ", key, " PID:", pid, " 完成");
}

void Oracle::applyLimits(const Dictionary& settings, std::int32_t pid) {
  const std::int32_t active = intIn(settings, "MemLimitActive");
  const std::int32_t inactive = intIn(settings, "MemLimitInactive");
  const std::string wanted = text("[内存限制] 目标 Act:", active, " Inact:", inactive);
  daemon_.error_number = 0;
  const Answer set =
      memorystatus(7, pid, 0, {active, active >= 1 ? 1 : 0, inactive, inactive >= 1 ? 1 : 0});
  if (set.result != 0) {
    line(wanted, " -> [失败] err:", daemon_.error_number);
    line("[内核] ：失败");
    return;
  }
  const Answer limits = memorystatus(8, pid, 0, {0, 0, 0, 0});
  const std::int32_t actual_active = wordIn(limits.left, 0);
  const std::int32_t actual_inactive = wordIn(limits.left, 2);
  line(wanted, " | 最终 Act:", actual_active, " Inact:", actual_inactive, " -> [成功]");
  const bool both_hold = holds(active, actual_active) && holds(inactive, actual_inactive);
  line(both_hold ? "[内核] ：成功" : "[内核] ：已被系统覆盖");
}

void Oracle::applyNiceValue(const Dictionary& settings, std::int32_t pid) {
  const int target = std::clamp(intIn(settings, "NiceValue"), -20, 20);
  daemon_.error_number = 0;
  const std::int64_t current = getNice(pid);
  if (current == -1 && daemon_.error_number != 0) {
    line("[进程优先级] 读取状态失败 err:", daemon_.error_number);
    return;
  }
  if (current == target) {
    line("[进程优先级] 目标已是 ", target);
    return;
  }
  const std::string wanted = text("[进程优先级] 当前:", current, " 目标:", target);
  if (setNice(pid, target) != 0) {
    line(wanted, " -> [失败] err:", daemon_.error_number);
    line("[内核] ：失败");
    return;
  }
  const std::int64_t actual = getNice(pid);
  line(wanted, " -> [成功]");
  lineAboutNice(target, actual);
}

void Oracle::lineAboutNice(std::int64_t wanted, std::int64_t actual) {
  line(actual == wanted ? "[内核] ：成功" : text("[内核] ：已被系统覆盖 (实际: ", actual, ")"));
}

void Oracle::applyBand(const Dictionary& settings, std::int32_t pid) {
  std::int32_t wanted = intIn(settings, "JetsamPriority");
  if (wanted == 0) {
    memorystatus(16, pid, 0, {1});
    const std::int64_t result = memorystatus(2, pid, 0, {0, 0, 0, 0}).result;
    line("[内存优先级] 目标:0 -> [恢复默认, 系统接管]");
    verifyBand(pid, result, kNoBand);
    return;
  }
  if (wanted == -1) {
    line("[内存优先级] 目标:-1 -> 未设置, 跳过");
    return;
  }
  memorystatus(16, pid, 0, {0});
  std::int64_t result = memorystatus(2, pid, 1, {wanted, 0, 0, 0}).result;
  if (result == -1 && wanted >= 1 && wanted != 999) {
    const std::int32_t tenth = wanted / 10;
    result = memorystatus(2, pid, 1, {tenth, 0, 0, 0}).result;
    line("[环境适配] 目标 ", wanted, " -> 实际 ", tenth);
    wanted = tenth;
  }
  line("[系统] 内存优先级:", wanted, (result == 0 ? " -> [内核: 成功]" : " -> [内核: 失败]"));
  verifyBand(pid, result, wanted);
}

void Oracle::applyManaged(const plist::Value& strip, std::int32_t pid) {
  const bool strips = isTrue(strip);
  const int state = strips ? 0 : 1;
  const bool accepted = memorystatus(16, pid, 0, {state}).result == 0;
  const std::int64_t managed = memorystatus(17, pid, 0).result;
  memorystatus(18, pid, 0, {state});
  memorystatus(strips ? 14 : 15, pid, 0);
  if (strips) daemon_.call("setpriority", {6, pid, 1}, std::nullopt);
  line("[状态剥离] 目标: ", strips ? "剥离系统托管并开启强锁" : "恢复系统托管",
       " -> [操作: ", accepted ? "成功" : "失败", "] [内核]: ", managed, ")");
}

std::int32_t Oracle::band(std::int32_t pid) {
  const std::int64_t needed = memorystatus(1, 0, 0).result;
  if (needed < 1 || daemon_.lacksMemory()) return kNoBand;
  const Answer list = daemon_.call("memorystatus_control", {1, 0, 0}, Buffer{.size = needed + 240});
  if (list.result < 24) return kNoBand;
  const auto words = static_cast<std::size_t>(list.result) / 24 * 6;
  for (std::size_t entry = 0; entry < words; entry += 6) {
    if (wordIn(list.left, entry) == pid) return wordIn(list.left, entry + 1);
  }
  return kNoBand;
}

void Oracle::verifyBand(std::int32_t pid, std::int64_t result, std::int32_t requested) {
  const std::int32_t actual = band(pid);
  if (actual == kNoBand) {
    line("[内存优先级] 未在内核优先级列表中找到 PID:", pid);
    line(result == 0 ? "[内核] ：调用成功但状态丢失" : "[内核] ：失败");
    return;
  }
  line("[内存优先级] 为:", actual);
  if (requested == kNoBand) {
    line("[内核] ：系统接管并分配真实优先级为 ", actual);
  } else if (actual == requested) {
    line("[内核] ：成功");
  } else {
    line("[内核] ：已被系统覆盖 (设置:", requested, " 实际:", actual, ")");
  }
}

void Oracle::giveBack(const std::string& key, std::int32_t pid) {
  line(std::string(40, '-'));
  line("[恢复] 目标: ", key, " PID: ", pid);
  setNice(pid, 0);
  memorystatus(7, pid, 0, {0, 0, 0, 0});
  memorystatus(16, pid, 0, {1});
  memorystatus(2, pid, 0, {0, 0, 0, 0});
  line("[守护] ", key, " PID:", pid);
}

void Oracle::protectItself() {
  line("[守护] PID:", own_pid_);
  const bool accepted = setNice(own_pid_, -20) == 0;
  const std::int64_t actual = getNice(own_pid_);
  line("[系统] 设定进程优先级 -> [内核: ", accepted ? "成功]" : "失败]");
  if (!accepted) {
    line("[内核] ：失败");
  } else {
    lineAboutNice(-20, actual);
  }
  int tried = 0;
  const auto try_band = [this, &tried](int band) {
    tried = band;
    return memorystatus(2, own_pid_, 1, {band, 0, 0, 0}).result;
  };
  std::int64_t result = try_band(999);
  if (result == -1) result = try_band(210);
  if (result == -1) result = try_band(21);
  line("[系统] 设定内存优先级(", tried, (result == 0 ? ") -> [内核] 成功" : ") -> [内核] 失败"));
  verifyBand(own_pid_, result, tried);
  line("[守护] Vorlatch 后台守护进程初始化完成");
  line(std::string(40, '='));
}

}  // namespace vorlatch::tests
