// The live status for the pages that are open: server-sent events, which are sent when the status
// changed. All pages in one language share one picture.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "control/translation.h"

namespace vorlatch::web {

using EventText = std::shared_ptr<const std::string>;

// A connection that receives events.
class Listener {
 public:
  Listener() = default;
  Listener(const Listener&) = delete;
  Listener& operator=(const Listener&) = delete;
  virtual ~Listener() = default;

  // Removes no listener before it returns.
  virtual void send(const EventText& event) = 0;
  // Ends the connection, because its key opens nothing any more.
  virtual void dismiss() = 0;
};

class Events {
 public:
  // Sends the status at once. The listener stays until `remove`.
  void add(control::Language language, Listener& listener);
  void remove(const Listener& listener);
  [[nodiscard]] bool hasListeners() const { return !channels_.empty(); }

  // Takes the status again, and sends it to the listeners for whom it changed. Dismisses all of
  // them if the key changed since they came.
  void look();
  // Sends a comment, which shows a page, and this machine's network, that the connection lives.
  void sendComment();

 private:
  struct Channel {
    std::vector<Listener*> listeners;
    EventText last;

    void send(const EventText& event) const {
      for (Listener* const listener : listeners) listener->send(event);
    }
  };
  void dismissAll();

  std::map<control::Language, Channel> channels_;
  std::optional<std::string> key_;
};

}  // namespace vorlatch::web
