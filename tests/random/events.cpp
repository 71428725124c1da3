// Steps that change the processes on the device, or its kernel.
#include <algorithm>

#include "tests/base/describe.h"
#include "tests/faults/outcomes.h"
#include "tests/random/steps.h"
#include "tests/support/text.h"

namespace vorlatch::tests::random {
namespace {

using plist::Dictionary;
using plist::Value;

// Above every real pid of the machine, because the daemon uses its own real pid.
constexpr std::int32_t kFirstPid = 10'000'000;
constexpr int kPids = 40;

struct Role {
  std::string name;
  std::string path;  // relative to the jailbreak root
};

const std::vector<Role> kRoles = {{"alpha", "/usr/libexec/alpha"},
                                  {"alpha", "/usr/libexec/alpha"},
                                  {"beta", "/usr/libexec/beta"},
                                  {"gamma", ""},
                                  {"Chat", "/Applications/Chat.app/Chat"},
                                  {"ChatHelper", "/Applications/Chat.app/ChatHelper"},
                                  {"nested", "/Applications/Chat.app/Helpers/nested"},
                                  {"Share", "/Applications/Chat.app/PlugIns/Share.appex/Share"},
                                  {"Mail", "/Applications/Mail.app/Mail"},
                                  {"com.example.chat", "/usr/libexec/com.example.chat"},
                                  {"SpringBoard", "/System/SpringBoard.app/SpringBoard"},
                                  {"", "/usr/libexec/unnamed"},
                                  {"bad\xff", "/Applications/bad\xff.app/bad"},
                                  {"a%s b%n [c]", "/usr/libexec/percent"},
                                  {"a daemon of quite a long name, cut short", "/usr/libexec/long"},
                                  {"守护进程", "/usr/libexec/守护进程"},
                                  {"一个名字太长了的守护进程", "/usr/libexec/cut"}};

const std::vector<std::string> kBundles = {"Chat.app", "Chat.app/PlugIns/Share.appex", "Mail.app"};

std::int32_t freePid(Stage& stage) {
  std::int32_t pid = kFirstPid;
  const auto is_taken = [&stage](std::int32_t wanted) {
    const auto& processes = stage.device.processes();
    return std::any_of(processes.begin(), processes.end(),
                       [wanted](const auto& process) { return process.pid == wanted; });
  };
  while (is_taken(pid)) ++pid;
  return pid;
}

void launch(Stage& stage, const Role& role, int nice_value, std::int32_t pid) {
  if (stage.device.processes().size() > kPids) return;
  stage.device.launch({.name = role.name,
                       .executable_path = role.path.empty() ? "" : stage.story.rootPath(role.path),
                       .pid = pid,
                       .nice_value = nice_value});
}

// A step for the newest process with this name, if there is one.
Step forNewest(const std::string& name, const std::string& text,
               const std::function<void(Stage&, simulated::Process&)>& act) {
  return {"\"" + name + "\" " + text, [name, act](Stage& stage) {
            if (simulated::Process* process = stage.newest(name)) act(stage, *process);
          }};
}

// A copy of a process under another pid, or under its own once it has ended.
void launchAgain(Stage& stage, const simulated::Process& old, std::int32_t pid, int nice_value) {
  stage.device.launch({.name = old.name,
                       .executable_path = old.executable_path,
                       .pid = pid,
                       .nice_value = nice_value});
}

Step restart(const std::string& name, bool under_its_pid) {
  return forNewest(name, under_its_pid ? "starts again under its pid" : "starts again",
                   [under_its_pid](Stage& stage, simulated::Process& process) {
                     const simulated::Process old = process;
                     stage.device.exit(old.pid);
                     launchAgain(stage, old, under_its_pid ? old.pid : freePid(stage), 0);
                   });
}

// A different process gets the pid.
Step replace(const std::string& name, const Role& role) {
  return forNewest(name, "ends, and \"" + role.name + "\" gets its pid",
                   [role](Stage& stage, simulated::Process& process) {
                     const std::int32_t pid = process.pid;
                     stage.device.exit(pid);
                     launch(stage, role, 0, pid);
                   });
}

// The child copies everything from its parent except the pid.
Step fork(const std::string& name) {
  return forNewest(name, "forks", [](Stage& stage, simulated::Process& process) {
    if (stage.device.processes().size() > kPids) return;
    launchAgain(stage, simulated::Process(process), freePid(stage), process.nice_value);
  });
}

Step changeFromOutside(Dice& dice, const std::string& name) {
  const std::vector<int> numbers = {-20, -5, 0, 3, 9};
  const int number = dice.of(numbers);
  const std::vector<Step> changes = {
      forNewest(name, text("gets nice value ", number, " from somebody else"),
                [number](Stage&, simulated::Process& process) { process.nice_value = number; }),
      forNewest(name, "gets the jetsam defaults from the system",
                [](Stage& stage, simulated::Process& process) {
                  stage.device.jetsam_table.records.erase(process.pid);
                }),
      forNewest(
          name, text("is held at nice value ", number, " by the system"),
          [number](Stage&, simulated::Process& process) { process.overriding_nice = number; }),
      forNewest(name, text("is held in band ", 10 * number, " by the system"),
                [number](Stage&, simulated::Process& process) {
                  process.overriding_band = 10 * number;
                })};
  return dice.of(changes);
}

}  // namespace

Step anyLaunch(Dice& dice) {
  const std::vector<int> nice_values = {0, 0, -5, 3, 20};
  const Role role = dice.of(kRoles);
  const int nice_value = dice.of(nice_values);
  return {"\"" + role.name + "\" starts" +
              (nice_value != 0 ? " at nice value " + std::to_string(nice_value) : ""),
          [=](Stage& stage) { launch(stage, role, nice_value, freePid(stage)); }};
}

Step anyProcessStep(Dice& dice) {
  const std::string name = dice.of(kRoles).name;
  const std::size_t kind = dice.below(100);
  if (kind < 30) return anyLaunch(dice);
  if (kind < 50) {
    return forNewest(name, "ends", [](Stage& stage, simulated::Process& process) {
      stage.device.exit(process.pid);
    });
  }
  if (kind < 56) return restart(name, false);
  if (kind < 61) return restart(name, true);
  if (kind < 65) return fork(name);
  if (kind < 70) return replace(name, dice.of(kRoles));
  if (kind < 76) {
    return forNewest(name, "becomes a zombie", [](Stage& stage, simulated::Process& process) {
      stage.device.becomeZombie(process.pid);
    });
  }
  if (kind < 80) {
    return {"launchd starts", [](Stage& stage) {
              if (stage.device.find(1) == nullptr) {
                launch(stage, {"launchd", "/sbin/launchd"}, 0, 1);
              }
            }};
  }
  return changeFromOutside(dice, name);
}

Step anyBundle(Dice& dice) {
  const std::vector<std::string> usual = {"com.example.chat", "com.example.chat.share",
                                          "com.example.mail"};
  const std::size_t which = dice.below(kBundles.size());
  const std::string& bundle = kBundles[which];
  if (dice.percent(10)) {
    return {bundle + " has a broken Info.plist",
            [bundle](Stage& stage) { stage.breakBundle(bundle); }};
  }
  Value identifier = usual[which];
  if (dice.percent(20)) {
    const std::vector<Value> odd = {"", 5, "alpha", "com.example.chat", plist::Array{}};
    identifier = dice.of(odd);
  }
  return {bundle + " says " + test::describe(identifier), [=](Stage& stage) {
            stage.installBundle(bundle, {{"CFBundleIdentifier", identifier}});
          }};
}

Step anyRefusal(Dice& dice) {
  if (dice.percent(35)) {
    return {"the kernel is itself again", [](Stage& stage) { stage.calmKernel(); }};
  }
  if (dice.percent(8)) {
    return {"the kernel refuses everything",
            [](Stage& stage) { stage.device.kernel.caller_is_privileged = false; }};
  }
  const std::string kind = dice.of(faults::kernelKinds());
  const faults::Outcome outcome = dice.of(faults::outcomesOf(kind, false, dice.below(24)));
  simulated::Script script = faults::scriptOf(kind, outcome);
  std::string what = kind + ": " + outcome.name;
  if (outcome.buffer || dice.percent(60)) {
    script.first = dice.between(1, 3);
    script.count = dice.between(1, 2);
    what += text(", ", script.count, " times from the ", script.first, ". on");
  }
  const bool for_one = !kind.ends_with("size") && !kind.ends_with("list") && dice.percent(40);
  const std::string name = for_one ? dice.of(kRoles).name : "";
  return {what + (for_one ? ", for \"" + name + "\"" : ""), [=](Stage& stage) {
            simulated::Script own = script;
            if (for_one) {
              const simulated::Process* process = stage.newest(name);
              own.pid = process != nullptr ? process->pid : kFirstPid;
            }
            stage.device.script(own);
          }};
}

Step anyKernel(Dice& dice) {
  const bool newest = dice.percent(50);
  const bool flags = dice.percent(50);
  return {std::string("the kernel is that of ") + (newest ? "iOS 18" : "iOS 15") +
              (flags ? ", and reads states from the flags" : ""),
          [=](Stage& stage) {
            stage.device.kernel.generation = newest ? model::KernelGeneration::Xnu11215To11417
                                                    : model::KernelGeneration::Xnu4903To8020;
            if (flags) stage.device.kernel.state_argument = model::StateArgument::Flags;
          }};
}

}  // namespace vorlatch::tests::random
