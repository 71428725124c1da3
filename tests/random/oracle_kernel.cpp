// The oracle's rules of what is done to one process.
#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>

#include "tests/random/oracle.h"
#include "tests/random/reading.h"

namespace vorlatch::tests::random {
namespace {

using plist::Dictionary;

constexpr std::int32_t kNoBand = -999;

std::string number(std::int64_t value) {
  return std::to_string(value);
}

// As the trace shows a buffer.
std::string bytesOf(const std::vector<std::int32_t>& words) {
  std::string text;
  for (const std::int32_t word : words) {
    std::array<unsigned char, 4> bytes{};
    std::memcpy(bytes.data(), &word, bytes.size());
    std::array<char, 9> digits{};
    std::snprintf(digits.data(), digits.size(), "%02x%02x%02x%02x", bytes[0], bytes[1], bytes[2],
                  bytes[3]);
    text.append(text.empty() ? "{" : " ").append(digits.data());
  }
  return text + "}";
}

std::int32_t wordIn(const std::string& bytes, std::size_t index) {
  std::int32_t word = 0;
  std::memcpy(&word, bytes.data() + 4 * index, sizeof(word));
  return word;
}

bool holds(std::int32_t wanted, std::int32_t actual) {
  return actual == wanted || ((wanted == 0 || wanted == -1) && actual >= 1);
}

}  // namespace

int Oracle::memorystatus(int command, std::int32_t pid, int flags,
                         const std::vector<std::int32_t>& words) {
  const std::string buffer = words.empty() ? "null" : bytesOf(words);
  return record_
      .call("memorystatus_control(" + number(command) + ", " + text(pid) + ", " + number(flags) +
            ", " + buffer + ", " + number(static_cast<std::int64_t>(4 * words.size())) + ")")
      .answer.result;
}

int Oracle::getNice(std::int32_t pid) {
  return record_.call("getpriority(0, " + text(pid) + ")").answer.result;
}

int Oracle::setNice(std::int32_t pid, int value) {
  return record_.call("setpriority(0, " + text(pid) + ", " + number(value) + ")").answer.result;
}

void Oracle::record(const std::string& key, std::int32_t pid, int nice_value, std::int32_t band) {
  status_.erase(key);
  if (pid != 0) status_.emplace(key, Dictionary{{"pid", pid}, {"n", nice_value}, {"p", band}});
  ++status_writes_;
}

void Oracle::apply(const std::string& key, const Dictionary& settings, std::int32_t pid) {
  applyLimits(settings, pid);
  applyNiceValue(settings, pid);
  applyBand(settings, pid);
  if (const auto strip = settings.find("StripManaged"); strip != settings.end()) {
    applyManaged(strip->second, pid);
  }
  const int nice_value = getNice(pid);
  record(key, pid, nice_value, band(pid));
  line("[守护] " + key + " PID:" + number(pid) + " 完成");
}

void Oracle::applyLimits(const Dictionary& settings, std::int32_t pid) {
  const std::int32_t active = intIn(settings, "MemLimitActive");
  const std::int32_t inactive = intIn(settings, "MemLimitInactive");
  const std::string wanted = "[内存限制] 目标 Act:" + number(active) + " Inact:" + number(inactive);
  record_.error_number = 0;
  if (memorystatus(7, pid, 0, {active, active >= 1 ? 1 : 0, inactive, inactive >= 1 ? 1 : 0}) !=
      0) {
    line(wanted + " -> [失败] err:" + number(record_.error_number));
    line("[内核] ：失败");
    return;
  }
  const auto& limits = record_.call("memorystatus_control(8, " + text(pid) + ", 0, " +
                                    bytesOf({0, 0, 0, 0}) + ", 16)");
  const std::int32_t actual_active = wordIn(limits.left, 0);
  const std::int32_t actual_inactive = wordIn(limits.left, 2);
  line(wanted + " | 最终 Act:" + number(actual_active) + " Inact:" + number(actual_inactive) +
       " -> [成功]");
  const bool both_hold = holds(active, actual_active) && holds(inactive, actual_inactive);
  line(both_hold ? "[内核] ：成功" : "[内核] ：已被系统覆盖");
}

void Oracle::applyNiceValue(const Dictionary& settings, std::int32_t pid) {
  const int target = std::clamp(intIn(settings, "NiceValue"), -20, 20);
  record_.error_number = 0;
  const int current = getNice(pid);
  if (current == -1 && record_.error_number != 0) {
    line("[进程优先级] 读取状态失败 err:" + number(record_.error_number));
    return;
  }
  if (current == target) {
    line("[进程优先级] 目标已是 " + number(target));
    return;
  }
  const std::string wanted = "[进程优先级] 当前:" + number(current) + " 目标:" + number(target);
  if (setNice(pid, target) != 0) {
    line(wanted + " -> [失败] err:" + number(record_.error_number));
    line("[内核] ：失败");
    return;
  }
  const int actual = getNice(pid);
  line(wanted + " -> [成功]");
  line(actual == target ? "[内核] ：成功" : "[内核] ：已被系统覆盖 (实际: " + number(actual) + ")");
}

void Oracle::applyBand(const Dictionary& settings, std::int32_t pid) {
  std::int32_t wanted = intIn(settings, "JetsamPriority");
  if (wanted == 0) {
    memorystatus(16, pid, 0, {1});
    const int result = memorystatus(2, pid, 0, {0, 0, 0, 0});
    line("[内存优先级] 目标:0 -> [恢复默认, 系统接管]");
    verifyBand(pid, result, kNoBand);
    return;
  }
  if (wanted == -1) {
    line("[内存优先级] 目标:-1 -> 未设置, 跳过");
    return;
  }
  memorystatus(16, pid, 0, {0});
  int result = memorystatus(2, pid, 1, {wanted, 0, 0, 0});
  if (result == -1 && wanted >= 1 && wanted != 999) {
    const std::int32_t tenth = wanted / 10;
    result = memorystatus(2, pid, 1, {tenth, 0, 0, 0});
    line("[环境适配] 目标 " + number(wanted) + " -> 实际 " + number(tenth));
    wanted = tenth;
  }
  line("[系统] 内存优先级:" + number(wanted) +
       (result == 0 ? " -> [内核: 成功]" : " -> [内核: 失败]"));
  verifyBand(pid, result, wanted);
}

void Oracle::applyManaged(const plist::Value& strip, std::int32_t pid) {
  const bool strips = isTrue(strip);
  const int state = strips ? 0 : 1;
  const bool accepted = memorystatus(16, pid, 0, {state}) == 0;
  const int managed = memorystatus(17, pid, 0);
  memorystatus(18, pid, 0, {state});
  memorystatus(strips ? 14 : 15, pid, 0);
  if (strips) record_.call("setpriority(6, " + text(pid) + ", 1)");
  line("[状态剥离] 目标: " + std::string(strips ? "剥离系统托管并开启强锁" : "恢复系统托管") +
       " -> [操作: " + (accepted ? "成功" : "失败") + "] [内核]: " + number(managed) + ")");
}

std::int32_t Oracle::band(std::int32_t pid) {
  const int needed = memorystatus(1, 0, 0);
  if (needed < 1) return kNoBand;
  const auto& list =
      record_.call("memorystatus_control(1, 0, 0, buffer, " + number(needed + 240) + ")");
  if (list.answer.result < 24) return kNoBand;
  const auto words = static_cast<std::size_t>(list.answer.result) / 24 * 6;
  for (std::size_t entry = 0; entry < words; entry += 6) {
    if (wordIn(list.left, entry) == pid) return wordIn(list.left, entry + 1);
  }
  return kNoBand;
}

void Oracle::verifyBand(std::int32_t pid, int result, std::int32_t requested) {
  const std::int32_t actual = band(pid);
  if (actual == kNoBand) {
    line("[内存优先级] 未在内核优先级列表中找到 PID:" + number(pid));
    line(result == 0 ? "[内核] ：调用成功但状态丢失" : "[内核] ：失败");
    return;
  }
  line("[内存优先级] 为:" + number(actual));
  if (requested == kNoBand) {
    line("[内核] ：系统接管并分配真实优先级为 " + number(actual));
  } else if (actual == requested) {
    line("[内核] ：成功");
  } else {
    line("[内核] ：已被系统覆盖 (设置:" + number(requested) + " 实际:" + number(actual) + ")");
  }
}

void Oracle::giveBack(const std::string& key, std::int32_t pid) {
  line(std::string(40, '-'));
  line("[恢复] 目标: " + key + " PID: " + number(pid));
  setNice(pid, 0);
  memorystatus(7, pid, 0, {0, 0, 0, 0});
  memorystatus(16, pid, 0, {1});
  memorystatus(2, pid, 0, {0, 0, 0, 0});
  line("[守护] " + key + " PID:" + number(pid));
}

void Oracle::protectItself() {
  const std::int32_t self = std::stoi(own_pid_);
  line("[守护] PID:" + own_pid_);
  const bool accepted = setNice(self, -20) == 0;
  const int actual = getNice(self);
  line(accepted ? "[系统] 设定进程优先级 -> [内核: 成功]"
                : "[系统] 设定进程优先级 -> [内核: 失败]");
  if (!accepted) {
    line("[内核] ：失败");
  } else if (actual == -20) {
    line("[内核] ：成功");
  } else {
    line("[内核] ：已被系统覆盖 (实际: " + number(actual) + ")");
  }
  int tried = 999;
  int result = memorystatus(2, self, 1, {tried, 0, 0, 0});
  if (result == -1) result = memorystatus(2, self, 1, {tried = 210, 0, 0, 0});
  if (result == -1) result = memorystatus(2, self, 1, {tried = 21, 0, 0, 0});
  line("[系统] 设定内存优先级(" + number(tried) +
       (result == 0 ? ") -> [内核] 成功" : ") -> [内核] 失败"));
  verifyBand(self, result, tried);
  line("[守护] Vorlatch 后台守护进程初始化完成");
  line(std::string(40, '='));
}

}  // namespace vorlatch::tests::random
