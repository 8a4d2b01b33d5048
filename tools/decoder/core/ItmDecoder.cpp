#include "ItmDecoder.h"

#include <array>
#include <ostream>

namespace vestrel::decoder {

const char* kindName(PacketKind kind) {
  switch (kind) {
    case PacketKind::Sync:
      return "sync";
    case PacketKind::Overflow:
      return "overflow";
    case PacketKind::LocalTimestamp:
      return "local-timestamp";
    case PacketKind::GlobalTimestamp1:
      return "global-timestamp-1";
    case PacketKind::GlobalTimestamp2:
      return "global-timestamp-2";
    case PacketKind::StimulusPage:
      return "stimulus-page";
    case PacketKind::Extension:
      return "extension";
    case PacketKind::Instrumentation:
      return "instrumentation";
    case PacketKind::EventCounter:
      return "event-counter";
    case PacketKind::ExceptionTrace:
      return "exception";
    case PacketKind::PcSample:
      return "pc-sample";
    case PacketKind::PcSleep:
      return "pc-sleep";
    case PacketKind::DataTracePc:
      return "data-trace-pc";
    case PacketKind::DataTraceAddress:
      return "data-trace-address";
    case PacketKind::DataTraceValue:
      return "data-trace-value";
    case PacketKind::DataTraceMatch:
      return "data-trace-match";
    case PacketKind::PmuOverflow:
      return "pmu-overflow";
    case PacketKind::Zeros:
      return "zeros";
    case PacketKind::Malformed:
      return "malformed";
  }
  return "unknown";
}

void PrintTo(PacketKind kind, std::ostream* os) { *os << kindName(kind); }

namespace {

constexpr std::uint8_t kSizes[4] = {0, 1, 2, 4};  // source packet SS -> payload bytes

// A source packet's payload, least significant byte first.
std::uint64_t payloadValue(const std::uint8_t* bytes, std::uint8_t size) {
  switch (size) {
    case 1:
      return bytes[0];
    case 2:
      return static_cast<std::uint64_t>(bytes[0]) | static_cast<std::uint64_t>(bytes[1]) << 8;
    default:
      return static_cast<std::uint64_t>(bytes[0]) | static_cast<std::uint64_t>(bytes[1]) << 8 |
             static_cast<std::uint64_t>(bytes[2]) << 16 | static_cast<std::uint64_t>(bytes[3]) << 24;
  }
}

}  // namespace

inline void ItmDecoder::emit(Packet& packet) {
  if (malformedRun_.value != 0) endMalformedRun();
  ++statistics_.packets[static_cast<int>(packet.kind)];
  if (sink_) sink_(packet);
}

void ItmDecoder::feed(const std::uint8_t* data, std::size_t size) {
  statistics_.bytes += size;
  for (std::size_t i = 0; i < size; ++i, ++offset_) {
    const std::uint8_t byte = data[i];
    // Most packets are source packets whose payload is already here: decode
    // them straight from the buffer.
    if (state_ == State::Header && (byte & 0b0000'0011) != 0) {
      const std::uint8_t payload = kSizes[byte & 0b11];
      if (i + payload < size) {
        completeSource(byte, offset_, payload, payloadValue(data + i + 1, payload));
        i += payload;
        offset_ += payload;
        continue;
      }
    }
    switch (state_) {
      case State::Header:
        header(byte);
        break;
      case State::Zeros:
        if (byte == 0b0000'0000) {
          ++zeros_;
        } else if (byte == 0b1000'0000 && zeros_ >= 5) {
          // At least 47 zero bits, then a one.
          Packet sync;
          sync.kind = PacketKind::Sync;
          sync.offset = zerosOffset_;
          page_ = 0;
          inSync_ = true;
          state_ = State::Header;
          emit(sync);
        } else {
          // Too few zeros for a synchronization packet: a zero run.
          endZeroRun();
          state_ = State::Header;
          header(byte);
        }
        break;
      case State::Payload:
        raw_[received_++] = byte;
        if (received_ == expected_) completeFixed();
        break;
      case State::Continuation:
        raw_[received_++] = byte;
        if ((byte & 0b1000'0000) == 0) {
          completeContinued();
        } else if (received_ == maximum_) {
          // The last byte a packet may have still says another follows.
          state_ = State::Header;
          malformed(pending_.header, pending_.offset, 1u + received_);
        }
        break;
    }
  }
}

void ItmDecoder::finish() {
  if (state_ == State::Zeros) {
    if (zeros_ <= 7 && statistics_.bytes % 8 == 0) {
      statistics_.paddingBytes += zeros_;
    } else {
      endZeroRun();
    }
  } else if (state_ == State::Payload || state_ == State::Continuation) {
    malformed(pending_.header, pending_.offset, 1u + received_);
  }
  state_ = State::Header;
  endMalformedRun();
}

void ItmDecoder::endZeroRun() {
  endMalformedRun();
  Packet run;
  run.kind = PacketKind::Zeros;
  run.offset = zerosOffset_;
  run.value = zeros_;
  statistics_.zeroBytes += zeros_;
  zeros_ = 0;
  emit(run);
}

void ItmDecoder::startFixed(std::uint8_t header, std::uint8_t size) {
  pending_ = Packet{};
  pending_.header = header;
  pending_.offset = offset_;
  pending_.size = size;
  expected_ = size;
  received_ = 0;
  state_ = State::Payload;
}

void ItmDecoder::startContinued(PacketKind kind, std::uint8_t header, std::uint8_t maximum) {
  startFixed(header, 0);
  pending_.kind = kind;
  maximum_ = maximum;
  state_ = State::Continuation;
}

// D4.2.4 local and D4.2.5 global timestamp headers: low nibble 0b0000 or
// 0b0100.
void ItmDecoder::timestampHeader(std::uint8_t byte) {
  if ((byte & 0b0000'1111) == 0b0000'0000) {
    // D4.2.4 Local timestamp format 2, 0b0TTT'0000: the value (1 to 6) sits in
    // the header.
    if ((byte & 0b1000'0000) == 0) {
      Packet timestamp;
      timestamp.kind = PacketKind::LocalTimestamp;
      timestamp.header = byte;
      timestamp.offset = offset_;
      timestamp.value = (byte >> 4) & 0b111;
      emit(timestamp);
      return;
    }
    // D4.2.4 Local timestamp format 1, 0b11TC'0000, then 1 to 4 bytes.
    if ((byte & 0b1100'0000) == 0b1100'0000) {
      startContinued(PacketKind::LocalTimestamp, byte, 4);
      return;
    }
    malformed(byte, offset_);  // 0b10xx'0000 is reserved
    return;
  }
  // D4.2.5 Global timestamps (low nibble 0b0100): GTS1 0b1001'0100 (up to 4
  // bytes), GTS2 0b1011'0100 (up to 6 bytes).
  if (byte == 0b1001'0100) {
    startContinued(PacketKind::GlobalTimestamp1, byte, 4);
  } else if (byte == 0b1011'0100) {
    startContinued(PacketKind::GlobalTimestamp2, byte, 6);
  } else {
    malformed(byte, offset_);
  }
}

// Header bytes as the ARMv7-M Architecture Reference Manual (DDI 0403E,
// appendix D4) draws them, bit 7 on the left; ARMv8-M adds the data trace
// match and PMU overflow source packets and the sleep payload.
void ItmDecoder::header(std::uint8_t byte) {
  // D4.2.1 Synchronization: at least 47 zero bits, then a one.
  if (byte == 0b0000'0000) {
    zeros_ = 1;
    zerosOffset_ = offset_;
    state_ = State::Zeros;
    return;
  }
  // D4.2.3 Overflow: 0b0111'0000.
  if (byte == 0b0111'0000) {
    Packet overflow;
    overflow.kind = PacketKind::Overflow;
    overflow.header = byte;
    overflow.offset = offset_;
    emit(overflow);
    return;
  }
  if ((byte & 0b0000'1011) == 0b0000'0000) {
    timestampHeader(byte);  // low nibble 0b0000 or 0b0100
    return;
  }
  // D4.2.6 Extension, 0bCEEE'1S00: SH (S) 0 is the ITM's stimulus port page.
  if ((byte & 0b0000'1011) == 0b0000'1000) {
    if ((byte & 0b1000'0000) != 0) {
      startContinued(PacketKind::Extension, byte, 4);
      return;
    }
    Packet extension;
    extension.header = byte;
    extension.offset = offset_;
    extension.value = (byte >> 4) & 0b111;
    extension.kind = (byte & 0b0000'0100) == 0 ? PacketKind::StimulusPage : PacketKind::Extension;
    if (extension.kind == PacketKind::StimulusPage) page_ = static_cast<std::uint32_t>(extension.value);
    emit(extension);
    return;
  }
  // D4.2.8 Instrumentation 0bAAAA'A0SS, D4.2.9 hardware source 0bAAAA'A1SS:
  // SS gives the payload size; the kind is known once the payload is here.
  if ((byte & 0b0000'0011) != 0) {
    startFixed(byte, kSizes[byte & 0b11]);
    return;
  }
  malformed(byte, offset_);
}

void ItmDecoder::completeFixed() {
  state_ = State::Header;
  completeSource(pending_.header, pending_.offset, pending_.size, payloadValue(raw_, received_));
}

// The hardware source packets by discriminator and payload size (D4.3, DWT
// use of them); Malformed where the architecture defines none. A data trace
// match (ARMv8-M) also needs bit 0 of its payload set.
constexpr PacketKind hardwareSourceKind(std::uint32_t discriminator, std::uint8_t size) {
  if (discriminator == 0 && size == 1) return PacketKind::EventCounter;    // D4.3.1 event counter wrap
  if (discriminator == 1 && size == 2) return PacketKind::ExceptionTrace;  // D4.3.2
  if (discriminator == 2 && size == 4) return PacketKind::PcSample;        // D4.3.3 periodic PC sample
  if (discriminator == 2 && size == 1) return PacketKind::PcSleep;         // D4.3.3 core asleep
  if (discriminator == 3 && size == 1) return PacketKind::PmuOverflow;     // ARMv8-M
  if (discriminator < 8 || discriminator > 23) return PacketKind::Malformed;
  // D4.3.4 Data trace, discriminator 0bTT'CC'X: type TT, comparator CC, and
  // X (an address rather than a PC; a write rather than a read).
  const std::uint32_t type = (discriminator >> 3) & 0b11;
  const bool x = (discriminator & 0b1) != 0;
  if (type == 0b01 && !x && size == 4) return PacketKind::DataTracePc;
  if (type == 0b01 && !x && size == 1) return PacketKind::DataTraceMatch;  // ARMv8-M
  if (type == 0b01 && x && size == 2) return PacketKind::DataTraceAddress;
  if (type == 0b10) return PacketKind::DataTraceValue;
  return PacketKind::Malformed;
}

// The kind of every source packet header (0bAAAA'ASSS with SS not 0):
// D4.2.8 instrumentation when S is 0, else a hardware source.
constexpr std::array<PacketKind, 256> sourceKinds() {
  std::array<PacketKind, 256> kinds{};
  for (unsigned header = 0; header < 256; ++header) {
    const std::uint8_t size = kSizes[header & 0b11];
    if (size == 0) {
      kinds[header] = PacketKind::Malformed;
    } else if ((header & 0b0000'0100) == 0) {
      kinds[header] = PacketKind::Instrumentation;
    } else {
      kinds[header] = hardwareSourceKind(header >> 3, size);
    }
  }
  return kinds;
}

constexpr std::array<PacketKind, 256> kSourceKinds = sourceKinds();

void ItmDecoder::completeSource(std::uint8_t header, std::uint64_t offset, std::uint8_t size, std::uint64_t value) {
  PacketKind kind = kSourceKinds[header];
  if (kind == PacketKind::DataTraceMatch && (value & 0b1) == 0) kind = PacketKind::Malformed;
  if (kind == PacketKind::Malformed) {
    // The header was read; its payload was read with it, so decoding goes
    // on right after the packet.
    malformed(header, offset, 1u + size);
    return;
  }
  if (!sink_) {
    // Counting only: no packet to build.
    if (malformedRun_.value != 0) endMalformedRun();
    ++statistics_.packets[static_cast<int>(kind)];
    return;
  }
  Packet packet;
  packet.kind = kind;
  packet.header = header;
  packet.offset = offset;
  packet.size = size;
  packet.value = value;
  sourceFields(packet);
  emit(packet);
}

// The fields each source packet kind carries in its header and payload.
void ItmDecoder::sourceFields(Packet& packet) const {
  const std::uint32_t address = packet.header >> 3;  // A: the port, or the discriminator
  switch (packet.kind) {
    case PacketKind::Instrumentation:
      packet.port = page_ * 32 + address;
      break;
    case PacketKind::EventCounter:
      packet.counterWraps = static_cast<std::uint8_t>(packet.value);  // a bit per counter
      break;
    case PacketKind::ExceptionTrace:
      // Exception number in bits 8:0, function in 13:12.
      packet.exception = static_cast<std::uint16_t>(packet.value & 0b1'1111'1111);
      packet.function = static_cast<ExceptionFunction>((packet.value >> 12) & 0b11);
      break;
    case PacketKind::PcSleep:
      // ARMv8-M: 0xFF when sampling was prohibited.
      packet.sleepPayload = static_cast<std::uint8_t>(packet.value);
      break;
    case PacketKind::DataTracePc:
    case PacketKind::DataTraceMatch:
    case PacketKind::DataTraceAddress:
      packet.comparator = static_cast<std::uint8_t>((address >> 1) & 0b11);
      break;
    case PacketKind::DataTraceValue:
      packet.comparator = static_cast<std::uint8_t>((address >> 1) & 0b11);
      packet.write = (address & 0b1) != 0;
      break;
    default:
      break;
  }
}

void ItmDecoder::completeContinued() {
  Packet& packet = pending_;
  packet.size = received_;
  state_ = State::Header;
  std::uint64_t value = 0;
  int shift = 0;
  // Each byte carries 7 bits, least significant first; bit 7 says another follows.
  for (std::uint8_t i = 0; i < received_; ++i, shift += 7) {
    value |= static_cast<std::uint64_t>(raw_[i] & 0b0111'1111) << shift;
  }

  switch (packet.kind) {
    case PacketKind::LocalTimestamp:
      // D4.2.4: a 28-bit delta; TC (header bits 5:4) relates it to the data.
      packet.value = value & 0x0FFF'FFFF;
      packet.timestampRelation = (packet.header >> 4) & 0b11;
      break;
    case PacketKind::GlobalTimestamp1:
      if (received_ == 4) {
        // D4.2.5: the fourth byte carries Wrap (bit 6) and ClkCh (bit 5)
        // above TS[25:21].
        packet.wrap = (raw_[3] & 0b0100'0000) != 0;
        packet.clockChange = (raw_[3] & 0b0010'0000) != 0;
        value &= 0x03FF'FFFF;
      }
      packet.value = value;
      break;
    case PacketKind::GlobalTimestamp2:
      packet.value = value;  // TS[47:26] or TS[63:26]
      break;
    default:
      packet.value = value;
      break;
  }
  emit(packet);
}

// Bytes that start no packet gather into one run, reported when the next
// packet (or the end of the stream) comes.
void ItmDecoder::malformed(std::uint8_t byte, std::uint64_t offset, std::uint64_t bytes) {
  statistics_.malformedBytes += bytes;
  if (malformedRun_.value == 0) {
    malformedRun_ = Packet{};
    malformedRun_.kind = PacketKind::Malformed;
    malformedRun_.header = byte;
    malformedRun_.offset = offset;
    if (inSync_) ++statistics_.syncLosses;
    inSync_ = false;
  }
  malformedRun_.value += bytes;
}

void ItmDecoder::endMalformedRun() {
  if (malformedRun_.value == 0) return;
  Packet run = malformedRun_;
  malformedRun_.value = 0;
  ++statistics_.packets[static_cast<int>(PacketKind::Malformed)];
  if (sink_) sink_(run);
}

}  // namespace vestrel::decoder
