#include "web/server.h"

#include <algorithm>
#include <boost/asio/io_context.hpp>
#include <list>

#include "control/access_key.h"
#include "control/translation.h"
#include "web/connection.h"
#include "web/events.h"
#include "web/gate.h"
#include "web/rate_limit.h"

namespace vorlatch::web {
namespace {

using boost::asio::ip::tcp;
using boost::system::error_code;
using Timer = boost::asio::steady_timer;

// After an accept that failed, as for lack of descriptors.
constexpr std::chrono::milliseconds kRetryInterval{100};
// A look takes at most one part of so many of the time, unless the page would then be too old.
constexpr int kLookShare = 200;
constexpr std::chrono::seconds kLongestLookInterval{30};

}  // namespace

class Server::State final : public ConnectionOwner {
 public:
  State(const std::vector<int>& listening, const Routes& routes, const Limits& limits)
      : routes_(routes),
        limits_(limits),
        page_rate_(limits.requests_per_second, limits.request_burst),
        strangers_rate_(limits.requests_per_second, limits.request_burst),
        look_timer_(context_),
        comment_timer_(context_),
        idle_timer_(context_) {
    for (const int socket : listening) acceptors_.emplace_back(context_, tcp::v4(), socket);
  }

  void run() {
    for (tcp::acceptor& acceptor : acceptors_) accept(acceptor);
    awaitIdleness();
    context_.run();
  }

  Answer answer(const Request& request) override {
    // Who has no key cannot use up what the page may ask.
    RateLimit& rate = holdsKey(request, control::storedAccessKey()) ? page_rate_ : strangers_rate_;
    if (rate.admit(RateLimit::Clock::now())) return routes_.answer(request);
    chooseLanguage(request);
    return errorAnswer(429, "too-many",
                       control::tr("there are too many requests; wait for a moment"));
  }

  void listen(control::Language language, Listener& listener) override {
    const bool is_first = !events_.hasListeners();
    events_.add(language, listener);
    if (!is_first) return;
    look_timer_.expires_after(limits_.look_interval);
    awaitLook();
    awaitComment();
  }

  void forget(Connection& connection) override {
    events_.remove(connection);
    if (!events_.hasListeners()) {
      look_timer_.cancel();
      comment_timer_.cancel();
    }
    connections_.remove_if([&](const auto& each) { return each.get() == &connection; });
    awaitIdleness();
  }

 private:
  void accept(tcp::acceptor& acceptor) {
    acceptor.async_accept([this, &acceptor](const error_code& error, tcp::socket socket) {
      if (error) return acceptLater(acceptor);
      add(std::move(socket));
      accept(acceptor);
    });
  }

  void acceptLater(tcp::acceptor& acceptor) {
    const auto timer = std::make_shared<Timer>(context_, kRetryInterval);
    timer->async_wait([this, &acceptor, timer](const error_code& /*error*/) { accept(acceptor); });
  }

  void add(tcp::socket socket) {
    if (connections_.size() >= limits_.connections) dropOne();
    idle_timer_.cancel();
    connections_.push_back(std::make_shared<Connection>(std::move(socket), *this, limits_.request));
    connections_.back()->start();
  }

  // Ends the oldest connection, and rather one without events: nobody can keep the page out by
  // holding all connections.
  void dropOne() {
    const auto dropped = std::find_if(connections_.begin(), connections_.end(),
                                      [](const auto& each) { return !each->isListening(); });
    // Outlives the close, which removes it from the list.
    const std::shared_ptr<Connection> kept =
        dropped != connections_.end() ? *dropped : connections_.front();
    kept->close();
  }

  void awaitLook() {
    look_timer_.async_wait([this](const error_code& error) {
      if (error) return;
      const auto begin = Timer::clock_type::now();
      events_.look();
      const auto taken = Timer::clock_type::now() - begin;
      look_timer_.expires_after(std::clamp<Timer::duration>(
          kLookShare * taken, limits_.look_interval,
          std::max<Timer::duration>(limits_.look_interval, kLongestLookInterval)));
      if (events_.hasListeners()) awaitLook();
    });
  }

  void awaitComment() {
    comment_timer_.expires_after(limits_.comment_interval);
    comment_timer_.async_wait([this](const error_code& error) {
      if (error) return;
      events_.sendComment();
      if (events_.hasListeners()) awaitComment();
    });
  }

  void awaitIdleness() {
    if (!limits_.idle || !connections_.empty()) return;
    idle_timer_.expires_after(*limits_.idle);
    idle_timer_.async_wait([this](const error_code& error) {
      if (!error && connections_.empty()) context_.stop();
    });
  }

  const Routes& routes_;
  const Limits limits_;
  boost::asio::io_context context_{1};
  RateLimit page_rate_;
  RateLimit strangers_rate_;
  Events events_;
  std::list<std::shared_ptr<Connection>> connections_;  // the oldest first
  std::list<tcp::acceptor> acceptors_;
  Timer look_timer_;
  Timer comment_timer_;
  Timer idle_timer_;
};

Server::Server(const std::vector<int>& listening, const Routes& routes, const Limits& limits)
    : state_(std::make_unique<State>(listening, routes, limits)) {}

Server::~Server() = default;

void Server::run() {
  state_->run();
}

}  // namespace vorlatch::web
