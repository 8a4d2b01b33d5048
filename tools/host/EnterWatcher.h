// Enter, watched on a thread of its own so that a recording's counter keeps
// moving. A thread blocked reading standard input cannot be woken portably:
// when the recording ends some other way (its time, the target, a failure)
// the watcher is let go and ends with the process; it holds only the state
// it shares with this object, never the caller's stack.
#pragma once

#include <atomic>
#include <iostream>
#include <memory>
#include <string>
#include <thread>

namespace vestrel::host {

class EnterWatcher {
 public:
  EnterWatcher() : state_(std::make_shared<State>()) {
    thread_ = std::thread([state = state_] {
      std::string ignored;
      if (!std::getline(std::cin, ignored)) state->inputEnded = true;
      state->pressed = true;
    });
  }
  EnterWatcher(const EnterWatcher&) = delete;
  EnterWatcher& operator=(const EnterWatcher&) = delete;
  ~EnterWatcher() {
    if (state_->pressed) {
      thread_.join();
    } else {
      thread_.detach();
    }
  }

  bool pressed() const { return state_->pressed; }
  bool inputEnded() const { return state_->inputEnded; }

 private:
  struct State {
    std::atomic<bool> pressed{false};
    std::atomic<bool> inputEnded{false};
  };
  std::shared_ptr<State> state_;
  std::thread thread_;
};

}  // namespace vestrel::host
