// The exception handlers running on the core, innermost last, as exception
// trace tells of them: an entry pushes a handler, an exit closes it and any
// handler entered inside it whose exit was lost, and at the end of the
// capture what is still running is closed at the last time. Its depth is
// bounded, and every step is constant time but for the runs it closes.
#pragma once

#include <array>
#include <cstdint>
#include <vector>

namespace vestrel::decoder {

struct HandlerRun {
  // Reset: closed because the stack passed kMaxDepth (the trace is corrupt).
  enum class End { Exited, ExitLost, CaptureEnded, Reset };
  std::uint16_t exception = 0;
  std::uint32_t depth = 0;  // 0: pre-empted nothing; 1: pre-empted one handler; ...
  std::uint64_t begin = 0;
  std::uint64_t end = 0;
  End how = End::Exited;
  std::uint64_t serial = 0;  // the how-manieth entry this run was (from 0)
};

class HandlerStack {
 public:
  // The architecture has 512 exception numbers and a handler never pre-empts
  // itself: a deeper stack is corrupt input.
  static constexpr std::size_t kMaxDepth = 512;

  // Returns the depth of the new run. An entry that would pass kMaxDepth
  // first closes every open run (ended, End::Reset, innermost first).
  template <typename Ended>
  std::uint32_t enter(std::uint16_t exception, std::uint64_t time, Ended ended) {
    if (open_.size() >= kMaxDepth) {
      ++resets_;
      closeAll(time, HandlerRun::End::Reset, ended);
    }
    open_.push_back(
        {exception, static_cast<std::uint32_t>(open_.size()), time, time, HandlerRun::End::Exited, entries_++});
    ++runningCount(exception);
    return open_.back().depth;
  }
  // Calls ended(const HandlerRun&) for each run closed, innermost first; an
  // exit of a handler that is not running closes nothing. Constant time
  // but for the runs it closes.
  template <typename Ended>
  void exit(std::uint16_t exception, std::uint64_t time, Ended ended) {
    if (runningCount(exception) == 0) return;
    while (!open_.empty()) {
      HandlerRun run = pop();
      run.end = time;
      run.how = run.exception == exception ? HandlerRun::End::Exited : HandlerRun::End::ExitLost;
      ended(run);
      if (run.exception == exception) return;
    }
  }
  template <typename Ended>
  void finish(std::uint64_t time, Ended ended) {
    closeAll(time, HandlerRun::End::CaptureEnded, ended);
  }
  std::size_t depth() const { return open_.size(); }
  // How often the stack passed kMaxDepth and was reset.
  std::uint64_t resets() const { return resets_; }
  // Entries so far: the serial the next run gets.
  std::uint64_t entries() const { return entries_; }

 private:
  template <typename Ended>
  void closeAll(std::uint64_t time, HandlerRun::End how, Ended ended) {
    while (!open_.empty()) {
      HandlerRun run = pop();
      run.end = time;
      run.how = how;
      ended(run);
    }
  }
  HandlerRun pop() {
    HandlerRun run = open_.back();
    open_.pop_back();
    --runningCount(run.exception);
    return run;
  }
  std::uint32_t& runningCount(std::uint16_t exception) { return running_[exception % kMaxDepth]; }

  std::vector<HandlerRun> open_;
  std::array<std::uint32_t, kMaxDepth> running_{};  // open runs by exception number
  std::uint64_t resets_ = 0;
  std::uint64_t entries_ = 0;
};

}  // namespace vestrel::decoder
