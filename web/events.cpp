#include "web/events.h"

#include <algorithm>

#include "control/access_key.h"
#include "web/commands.h"

namespace vorlatch::web {
namespace {

// Returns the status as an event, or the reason why there is none.
std::string takeEvent(control::Language language) {
  const CommandResult result = runCommand({"status"}, language);
  const std::string data =
      result.output != "null" ? result.output : "{\"error\":" + result.error + "}";
  return "event: status\ndata: " + data + "\n\n";
}

}  // namespace

void Events::add(control::Language language, Listener& listener) {
  if (channels_.empty()) key_ = control::storedAccessKey();
  Channel& channel = channels_[language];
  if (!channel.last) channel.last = std::make_shared<const std::string>(takeEvent(language));
  channel.listeners.push_back(&listener);
  listener.send(channel.last);
}

void Events::remove(const Listener& listener) {
  for (auto channel = channels_.begin(); channel != channels_.end();) {
    std::erase(channel->second.listeners, &listener);
    channel = channel->second.listeners.empty() ? channels_.erase(channel) : std::next(channel);
  }
}

void Events::look() {
  if (control::storedAccessKey() != key_) return dismissAll();
  for (auto& [language, channel] : channels_) {
    std::string event = takeEvent(language);
    if (event == *channel.last) continue;
    channel.last = std::make_shared<const std::string>(std::move(event));
    channel.send(channel.last);
  }
}

void Events::sendComment() {
  static const EventText& comment = *new EventText(std::make_shared<const std::string>(":\n\n"));
  for (const auto& [language, channel] : channels_) channel.send(comment);
}

void Events::dismissAll() {
  std::vector<Listener*> all;
  for (const auto& [language, channel] : channels_) {
    all.insert(all.end(), channel.listeners.begin(), channel.listeners.end());
  }
  for (Listener* const listener : all) listener->dismiss();
}

}  // namespace vorlatch::web
