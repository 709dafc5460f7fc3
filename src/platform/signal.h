// Events: a `Signal` is raised by its owner and calls every connected handler in connection order.
//
// Handlers take the event's arguments as declared, so an argument declared as a reference
// (`Signal<const std::string&, bool&>` for a status with `flgCancel`) lets the handler's answer
// reach the object that raised the event. Everything runs on the one thread; handlers may connect
// or disconnect handlers (their own included) while the event is being raised.
//
// A listener that may die before the source holds its connection in a `ScopedConnection`.
#pragma once

#include <functional>
#include <memory>
#include <utility>
#include <vector>

namespace gw {

namespace detail {
struct SlotState {
  bool connected = true;
};
}  // namespace detail

// A handle to one connected handler.
class Connection {
 public:
  Connection() = default;
  explicit Connection(std::weak_ptr<detail::SlotState> state) : state_(std::move(state)) {}
  void Disconnect() {
    if (auto s = state_.lock()) s->connected = false;
    state_.reset();
  }
  bool Connected() const {
    auto s = state_.lock();
    return s && s->connected;
  }

 private:
  std::weak_ptr<detail::SlotState> state_;
};

// Disconnects when destroyed or reassigned: "detach from the events" by dropping it.
class ScopedConnection {
 public:
  ScopedConnection() = default;
  ScopedConnection(Connection c) : c_(std::move(c)) {}
  ScopedConnection(ScopedConnection&& o) noexcept : c_(std::move(o.c_)) { o.c_ = Connection(); }
  ScopedConnection& operator=(ScopedConnection&& o) noexcept {
    if (this != &o) {
      c_.Disconnect();
      c_ = std::move(o.c_);
      o.c_ = Connection();
    }
    return *this;
  }
  ScopedConnection(const ScopedConnection&) = delete;
  ScopedConnection& operator=(const ScopedConnection&) = delete;
  ~ScopedConnection() { c_.Disconnect(); }
  void Disconnect() { c_.Disconnect(); }
  bool Connected() const { return c_.Connected(); }

 private:
  Connection c_;
};

template <typename... Args>
class Signal {
 public:
  using Handler = std::function<void(Args...)>;

  Signal() = default;
  Signal(const Signal&) = delete;
  Signal& operator=(const Signal&) = delete;

  Connection Connect(Handler handler) {
    auto slot = std::make_shared<Slot>();
    slot->handler = std::move(handler);
    slots_.push_back(slot);
    return Connection(std::weak_ptr<detail::SlotState>(slot));
  }

  // Raises the event. Handlers connected while it runs are called from the next raise on.
  void Emit(Args... args) const {
    if (slots_.empty()) return;
    ++depth_;
    const std::size_t n = slots_.size();
    try {
      for (std::size_t k = 0; k < n; ++k) {
        // Hold the slot: a handler may disconnect it (and so release it) while it runs.
        const std::shared_ptr<Slot> slot = slots_[k];
        if (slot->connected) slot->handler(args...);
      }
    } catch (...) {
      Leave();
      throw;
    }
    Leave();
  }
  void operator()(Args... args) const { Emit(args...); }

  bool HasHandlers() const {
    for (const auto& s : slots_) {
      if (s->connected) return true;
    }
    return false;
  }
  void DisconnectAll() {
    for (auto& s : slots_) s->connected = false;
    if (depth_ == 0) slots_.clear();
  }

 private:
  struct Slot : detail::SlotState {
    Handler handler;
  };

  void Leave() const {
    if (--depth_ == 0) {
      std::erase_if(slots_, [](const std::shared_ptr<Slot>& s) { return !s->connected; });
    }
  }

  mutable std::vector<std::shared_ptr<Slot>> slots_;
  mutable int depth_ = 0;
};

}  // namespace gw
