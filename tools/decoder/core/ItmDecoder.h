// Decodes the ITM/DWT packet stream that SWO carries (ARMv7-M, with the
// ARMv8-M additions): synchronization, overflow, local and global timestamps,
// stimulus-port pages, instrumentation (software) packets and the hardware
// source packets (event counters, exception trace, PC samples, data trace,
// PMU overflow). Bytes can be fed in pieces of any size; a packet split
// across two feeds is decoded whole, and the packets are the same whatever
// the pieces. Garbage is reported by the run, not by the byte: a run of
// bytes that start no packet is one Malformed packet, and a run of zero
// bytes that made no synchronization packet (a disconnected line reads as
// zeros) is one Zeros packet.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <string>

namespace vestrel::decoder {

enum class PacketKind {
  Sync,
  Overflow,
  LocalTimestamp,  // format 1 (with a value) or format 2 (value in the header)
  GlobalTimestamp1,
  GlobalTimestamp2,
  StimulusPage,     // extension packet selecting the stimulus-port page
  Extension,        // any other extension packet
  Instrumentation,  // software packet from a stimulus port
  EventCounter,
  ExceptionTrace,
  PcSample,
  PcSleep,  // periodic PC sample: core asleep (or, v8, sampling prohibited)
  DataTracePc,
  DataTraceAddress,
  DataTraceValue,
  DataTraceMatch,  // v8
  PmuOverflow,     // v8
  Zeros,           // a run of zero bytes that was no synchronization packet (value: bytes)
  Malformed,       // a run of bytes that start no packet, or a packet cut short (value: bytes)
};

const char* kindName(PacketKind kind);
// For test failures: the kind's name.
void PrintTo(PacketKind kind, std::ostream* os);

enum class ExceptionFunction : std::uint8_t { Reserved = 0, Entered = 1, Exited = 2, Returned = 3 };

struct Packet {
  PacketKind kind = PacketKind::Malformed;
  std::uint64_t offset = 0;  // of the header byte in the stream
  std::uint8_t header = 0;
  std::uint8_t size = 0;               // payload bytes
  std::uint64_t value = 0;             // payload value, timestamp, PC, address, data
  std::uint32_t port = 0;              // instrumentation: stimulus port (page applied)
  std::uint8_t comparator = 0;         // data trace: DWT comparator
  bool write = false;                  // data trace value: write (else read)
  std::uint8_t timestampRelation = 0;  // local timestamp: TC, how it relates to the data
  bool wrap = false;                   // global timestamp 1
  bool clockChange = false;            // global timestamp 1
  std::uint8_t counterWraps = 0;       // event counter: a bit per counter that wrapped
  std::uint8_t sleepPayload = 0;       // PC sleep: 0 asleep, 0xFF sampling prohibited (v8)
  std::uint16_t exception = 0;         // exception trace: exception number
  ExceptionFunction function = ExceptionFunction::Reserved;
};

struct DecoderStatistics {
  std::uint64_t bytes = 0;
  std::uint64_t packets[static_cast<int>(PacketKind::Malformed) + 1] = {};  // runs for Zeros and Malformed
  std::uint64_t malformedBytes = 0;
  std::uint64_t zeroBytes = 0;     // in zero runs that made no synchronization packet
  std::uint64_t paddingBytes = 0;  // the zero padding of a sample dump's last 8-byte sample
  std::uint64_t syncLosses = 0;    // malformed runs that began while the stream was in sync

  std::uint64_t count(PacketKind kind) const { return packets[static_cast<int>(kind)]; }
};

class ItmDecoder {
 public:
  using Sink = std::function<void(const Packet&)>;
  explicit ItmDecoder(Sink sink) : sink_(std::move(sink)) {}

  void feed(const std::uint8_t* data, std::size_t size);
  void feed(const std::string& data) { feed(reinterpret_cast<const std::uint8_t*>(data.data()), data.size()); }
  // Ends the stream: a packet still waiting for payload is reported as
  // malformed. Up to seven zero bytes that end a stream whose length is a
  // multiple of 8 are the padding of a sample dump's last sample.
  void finish();

  const DecoderStatistics& statistics() const { return statistics_; }

 private:
  enum class State { Header, Payload, Continuation, Zeros };

  void header(std::uint8_t byte);
  void timestampHeader(std::uint8_t byte);
  // A source packet's payload to wait for; its kind is known at the end.
  void startFixed(std::uint8_t header, std::uint8_t size);
  void startContinued(PacketKind kind, std::uint8_t header, std::uint8_t maximum);
  void completeFixed();
  void completeSource(std::uint8_t header, std::uint64_t offset, std::uint8_t size, std::uint64_t value);
  void sourceFields(Packet& packet) const;
  void completeContinued();
  void emit(Packet& packet);
  void malformed(std::uint8_t byte, std::uint64_t offset, std::uint64_t bytes = 1);
  void endMalformedRun();
  void endZeroRun();

  Sink sink_;
  DecoderStatistics statistics_;
  State state_ = State::Header;
  Packet pending_;
  std::uint8_t expected_ = 0;  // payload bytes still due (fixed size)
  std::uint8_t received_ = 0;
  std::uint8_t maximum_ = 0;  // continuation bytes allowed
  std::uint8_t raw_[8] = {};
  std::uint64_t zeros_ = 0;
  std::uint64_t zerosOffset_ = 0;
  Packet malformedRun_;  // the run being gathered (value: its bytes; 0 when none)
  std::uint32_t page_ = 0;
  bool inSync_ = false;
  std::uint64_t offset_ = 0;
};

}  // namespace vestrel::decoder
