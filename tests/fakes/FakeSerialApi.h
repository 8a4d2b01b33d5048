// A scripted serial port. Capture-file operations go to the real file system
// (so capture files can be compared byte for byte) but can be made to fail.
// Every call is recorded in order, except reads and writes, which are
// counted (the collector polls without pause).
#pragma once

#include <atomic>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <vector>

#include "SerialPort.h"

namespace vestrel_test {

class FakeSerialApi final : public Kv::Orv::Trace::Vestrel::SerialApi {
 public:
  using PortState = Kv::Orv::Trace::Vestrel::PortState;
  using PortHandle = Kv::Orv::Trace::Vestrel::PortHandle;
  using FileHandle = Kv::Orv::Trace::Vestrel::FileHandle;

  FakeSerialApi() {
    state.DCBlength = 28;
    state.BaudRate = 38400;
    state.ByteSize = 7;
    state.Parity = 2;
    state.StopBits = 2;
    state.fParity = 1;
    state.fOutxCtsFlow = 1;
    state.fOutxDsrFlow = 1;
    state.fDtrControl = 1;
    state.fDsrSensitivity = 1;
    state.fTXContinueOnXoff = 1;
    state.fOutX = 1;
    state.fInX = 1;
    state.fErrorChar = 1;
    state.fNull = 1;
    state.fRtsControl = 2;
    state.XonLim = 2048;
    state.XoffLim = 512;
    state.XonChar = 0x11;
    state.XoffChar = 0x13;
    state.ErrorChar = '?';
    state.EofChar = 0x1A;
    state.EvtChar = '!';
    opened = state;
  }

  // --- scripts --------------------------------------------------------------------
  // The n-th call (from 1) of a named operation fails with the given code.
  void failCall(const std::string& name, int n, std::uint32_t code) { failures[name] = {n, code}; }
  int zeroLengthOnGetState = 0;  // the n-th getState reports DCBlength 0
  std::function<std::uint32_t(std::uint32_t)> reportedRate = [](std::uint32_t rate) { return rate; };
  // Called inside every read with the read's number (from 1), before it
  // answers: a test can act in the middle of a collector's pass.
  std::function<void(int)> duringRead;
  std::optional<std::uint32_t> errorAfterClose;  // lastError() once a close succeeded
  std::string stale;                             // queued before programming
  bool purgeClearsStale = false;
  std::optional<std::uint64_t> readFailsAfter;   // bytes delivered before reads fail
  std::optional<std::uint64_t> writeFailsAfter;  // capture bytes before writes fail
  std::uint32_t readFailureCode = 22;
  std::uint32_t writeFailureCode = 112;  // ERROR_DISK_FULL

  // Bytes for the port to deliver, one chunk per read at most.
  void push(const std::string& chunk) {
    std::lock_guard<std::mutex> guard(mutex_);
    chunks_.push_back(chunk);
  }
  // Bytes that arrive only once the line is in the break state.
  void pushAfterBreak(const std::string& chunk) {
    std::lock_guard<std::mutex> guard(mutex_);
    afterBreak_.push_back(chunk);
  }

  // --- records --------------------------------------------------------------------
  std::vector<std::string> calls;
  std::vector<PortState> statesSet;
  PortState state;   // the port's state as last set
  PortState opened;  // the state the port had when opened
  // Read by the test while the collector thread counts them.
  std::atomic<std::uint64_t> reads{0}, emptyReads{0}, writes{0}, emptyWrites{0}, deliveredBytes{0};
  std::atomic<std::uint64_t> readsAfterBreak{0}, writesAfterBreak{0};
  std::atomic<bool> breakSet{false};

  std::vector<std::string> callsSnapshot() {
    std::lock_guard<std::mutex> guard(mutex_);
    return calls;
  }

  PortHandle openPort(const std::wstring& devicePath) override {
    std::lock_guard<std::mutex> guard(mutex_);
    calls.push_back("openPort(" + std::string(devicePath.begin(), devicePath.end()) + ")");
    if (fails("openPort")) return nullptr;
    return &portToken_;
  }
  bool setTimeouts(PortHandle, const Kv::Orv::Trace::Vestrel::PortTimeouts& t) override {
    std::lock_guard<std::mutex> guard(mutex_);
    calls.push_back("setTimeouts(" + std::to_string(t.ReadIntervalTimeout) + "," +
                    std::to_string(t.ReadTotalTimeoutMultiplier) + "," + std::to_string(t.ReadTotalTimeoutConstant) +
                    "," + std::to_string(t.WriteTotalTimeoutMultiplier) + "," +
                    std::to_string(t.WriteTotalTimeoutConstant) + ")");
    return !fails("setTimeouts");
  }
  bool getState(PortHandle, PortState& out) override {
    std::lock_guard<std::mutex> guard(mutex_);
    calls.push_back("getState");
    if (fails("getState")) return false;
    out = state;
    out.BaudRate = reportedRate(state.BaudRate);
    if (++getStates_ == zeroLengthOnGetState) out.DCBlength = 0;
    return true;
  }
  bool setState(PortHandle, const PortState& in) override {
    std::lock_guard<std::mutex> guard(mutex_);
    calls.push_back("setState(" + std::to_string(in.BaudRate) + ")");
    if (fails("setState")) return false;
    statesSet.push_back(in);
    state = in;
    return true;
  }
  bool purge(PortHandle, std::uint32_t flags) override {
    std::lock_guard<std::mutex> guard(mutex_);
    calls.push_back("purge(" + std::to_string(flags) + ")");
    if (fails("purge")) return false;
    if (purgeClearsStale) stale.clear();
    return true;
  }
  bool clearError(PortHandle, std::uint32_t& queued) override {
    std::lock_guard<std::mutex> guard(mutex_);
    calls.push_back("clearError");
    if (fails("clearError")) return false;
    queued = static_cast<std::uint32_t>(stale.size());
    return true;
  }
  bool setBreak(PortHandle) override {
    std::lock_guard<std::mutex> guard(mutex_);
    calls.push_back("setBreak");
    breakSet = true;
    if (fails("setBreak")) return false;
    for (auto& chunk : afterBreak_) chunks_.push_back(chunk);
    afterBreak_.clear();
    return true;
  }
  bool read(PortHandle, void* buffer, std::uint32_t size, std::uint32_t& got) override {
    std::lock_guard<std::mutex> guard(mutex_);
    ++reads;
    if (duringRead) duringRead(static_cast<int>(reads));
    if (breakSet) ++readsAfterBreak;
    got = 0;
    if (!stale.empty()) {  // queued before programming, taken first
      const std::uint32_t n = std::min<std::uint32_t>(size, static_cast<std::uint32_t>(stale.size()));
      std::copy(stale.begin(), stale.begin() + n, static_cast<char*>(buffer));
      stale.erase(0, n);
      got = n;
      return true;
    }
    if (readFailsAfter && deliveredBytes >= *readFailsAfter) {
      lastError_ = readFailureCode;
      return false;
    }
    if (chunks_.empty()) {
      ++emptyReads;
      return true;
    }
    std::string& chunk = chunks_.front();
    std::uint32_t n = std::min<std::uint32_t>(size, static_cast<std::uint32_t>(chunk.size()));
    if (readFailsAfter) n = std::min<std::uint32_t>(n, static_cast<std::uint32_t>(*readFailsAfter - deliveredBytes));
    std::copy(chunk.begin(), chunk.begin() + n, static_cast<char*>(buffer));
    chunk.erase(0, n);
    if (chunk.empty()) chunks_.pop_front();
    deliveredBytes += n;
    got = n;
    return true;
  }
  bool closePort(PortHandle) override {
    std::lock_guard<std::mutex> guard(mutex_);
    calls.push_back("closePort");
    if (fails("closePort")) return false;
    if (errorAfterClose) lastError_ = *errorAfterClose;
    return true;
  }
  FileHandle createCaptureFile(const std::wstring& path) override {
    std::lock_guard<std::mutex> guard(mutex_);
    calls.push_back("createCaptureFile");
    if (fails("createCaptureFile")) return nullptr;
    return real().createCaptureFile(path);
  }
  bool writeFile(FileHandle file, const void* data, std::uint32_t size, std::uint32_t& written) override {
    std::lock_guard<std::mutex> guard(mutex_);
    ++writes;
    if (breakSet) ++writesAfterBreak;
    if (size == 0) ++emptyWrites;
    if (writeFailsAfter && capturedBytes_ + size > *writeFailsAfter) {
      lastError_ = writeFailureCode;
      return false;
    }
    capturedBytes_ += size;
    return real().writeFile(file, data, size, written);
  }
  bool closeFile(FileHandle file) override {
    std::lock_guard<std::mutex> guard(mutex_);
    calls.push_back("closeFile");
    return real().closeFile(file);
  }
  std::uint32_t lastError() override {
    std::lock_guard<std::mutex> guard(mutex_);
    return lastError_;
  }

 private:
  static Kv::Orv::Trace::Vestrel::SerialApi& real() { return Kv::Orv::Trace::Vestrel::systemSerialApi(); }
  bool fails(const std::string& name) {
    const int count = ++counts_[name];
    auto failure = failures.find(name);
    if (failure == failures.end() || failure->second.first != count) return false;
    lastError_ = failure->second.second;
    return true;
  }

  std::mutex mutex_;
  std::map<std::string, std::pair<int, std::uint32_t>> failures;
  std::map<std::string, int> counts_;
  std::deque<std::string> chunks_;
  std::deque<std::string> afterBreak_;
  std::uint32_t lastError_ = 0;
  int getStates_ = 0;
  std::uint64_t capturedBytes_ = 0;
  int portToken_ = 0;
};

}  // namespace vestrel_test
