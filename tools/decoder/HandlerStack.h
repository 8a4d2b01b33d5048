// The exception handlers running on the core, innermost last, as exception
// trace tells of them: an entry pushes a handler, an exit closes it and any
// handler entered inside it whose exit was lost, and at the end of the
// capture what is still running is closed at the last time.
#pragma once

#include <cstdint>
#include <vector>

namespace vestrel::decode {

struct HandlerRun {
  enum class End { Exited, ExitLost, CaptureEnded };
  std::uint16_t exception = 0;
  std::uint32_t depth = 0;  // 0: pre-empted nothing; 1: pre-empted one handler; ...
  std::uint64_t begin = 0;
  std::uint64_t end = 0;
  End how = End::Exited;
};

class HandlerStack {
 public:
  // Returns the depth of the new run.
  std::uint32_t enter(std::uint16_t exception, std::uint64_t time) {
    open_.push_back({exception, static_cast<std::uint32_t>(open_.size()), time, time, HandlerRun::End::Exited});
    return open_.back().depth;
  }
  // Calls ended(const HandlerRun&) for each run closed, innermost first; an
  // exit of a handler that is not running closes nothing.
  template <typename Ended>
  void exit(std::uint16_t exception, std::uint64_t time, Ended ended) {
    bool running = false;
    for (const HandlerRun& run : open_) running = running || run.exception == exception;
    if (!running) return;
    while (!open_.empty()) {
      HandlerRun run = open_.back();
      open_.pop_back();
      run.end = time;
      run.how = run.exception == exception ? HandlerRun::End::Exited : HandlerRun::End::ExitLost;
      ended(run);
      if (run.exception == exception) return;
    }
  }
  template <typename Ended>
  void finish(std::uint64_t time, Ended ended) {
    while (!open_.empty()) {
      HandlerRun run = open_.back();
      open_.pop_back();
      run.end = time;
      run.how = HandlerRun::End::CaptureEnded;
      ended(run);
    }
  }
  std::size_t depth() const { return open_.size(); }

 private:
  std::vector<HandlerRun> open_;
};

}  // namespace vestrel::decode
