#include "ItmDecoder.h"

namespace vestrel::decode {

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

namespace {
constexpr std::uint8_t kSizes[4] = {0, 1, 2, 4};  // source packet SS -> payload bytes
}

void ItmDecoder::feed(const std::uint8_t* data, std::size_t size) {
  statistics_.bytes += size;
  for (std::size_t i = 0; i < size; ++i, ++offset_) {
    const std::uint8_t byte = data[i];
    // Most packets are source packets whose payload is already here: decode
    // them straight from the buffer.
    if (state_ == State::Header && (byte & 0x03) != 0) {
      const std::uint8_t payload = kSizes[byte & 0x03];
      if (i + payload < size) {
        std::uint64_t value = 0;
        for (std::uint8_t b = 0; b < payload; ++b) value |= static_cast<std::uint64_t>(data[i + 1 + b]) << (8 * b);
        completeSource(byte, offset_, payload, value);
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
        if (byte == 0x00) {
          ++zeros_;
        } else if (byte == 0x80 && zeros_ >= 5) {
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
        if ((byte & 0x80) == 0) {
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

void ItmDecoder::startFixed(PacketKind kind, std::uint8_t header, std::uint8_t size) {
  pending_ = Packet{};
  pending_.kind = kind;
  pending_.header = header;
  pending_.offset = offset_;
  pending_.size = size;
  expected_ = size;
  received_ = 0;
  state_ = State::Payload;
}

void ItmDecoder::startContinued(PacketKind kind, std::uint8_t header, std::uint8_t maximum) {
  startFixed(kind, header, 0);
  maximum_ = maximum;
  state_ = State::Continuation;
}

void ItmDecoder::header(std::uint8_t byte) {
  if (byte == 0x00) {
    zeros_ = 1;
    zerosOffset_ = offset_;
    state_ = State::Zeros;
    return;
  }
  if (byte == 0x70) {
    Packet overflow;
    overflow.kind = PacketKind::Overflow;
    overflow.header = byte;
    overflow.offset = offset_;
    emit(overflow);
    return;
  }
  const std::uint8_t low = byte & 0x0F;
  if (low == 0x00) {
    if ((byte & 0x80) == 0) {
      // Local timestamp format 2: the value sits in the header (1 to 6).
      Packet timestamp;
      timestamp.kind = PacketKind::LocalTimestamp;
      timestamp.header = byte;
      timestamp.offset = offset_;
      timestamp.value = (byte >> 4) & 0x07;
      emit(timestamp);
      return;
    }
    if ((byte & 0xC0) == 0xC0) {
      startContinued(PacketKind::LocalTimestamp, byte, 4);
      return;
    }
    malformed(byte, offset_);  // 0x80, 0x90, 0xA0, 0xB0
    return;
  }
  if (low == 0x04) {
    if (byte == 0x94) {
      startContinued(PacketKind::GlobalTimestamp1, byte, 4);
    } else if (byte == 0xB4) {
      startContinued(PacketKind::GlobalTimestamp2, byte, 6);
    } else {
      malformed(byte, offset_);
    }
    return;
  }
  if ((byte & 0x0B) == 0x08) {
    if ((byte & 0x80) != 0) {
      startContinued(PacketKind::Extension, byte, 4);
      return;
    }
    Packet extension;
    extension.header = byte;
    extension.offset = offset_;
    extension.value = (byte >> 4) & 0x07;
    extension.kind = (byte & 0x04) == 0 ? PacketKind::StimulusPage : PacketKind::Extension;
    if (extension.kind == PacketKind::StimulusPage) page_ = static_cast<std::uint32_t>(extension.value);
    emit(extension);
    return;
  }
  if ((byte & 0x03) != 0) {
    const std::uint8_t size = kSizes[byte & 0x03];
    const bool hardware = (byte & 0x04) != 0;
    startFixed(hardware ? PacketKind::EventCounter : PacketKind::Instrumentation, byte, size);
    return;
  }
  malformed(byte, offset_);
}

void ItmDecoder::completeFixed() {
  std::uint64_t value = 0;
  for (std::uint8_t i = 0; i < received_; ++i) value |= static_cast<std::uint64_t>(raw_[i]) << (8 * i);
  state_ = State::Header;
  completeSource(pending_.header, pending_.offset, pending_.size, value);
}

void ItmDecoder::completeSource(std::uint8_t header, std::uint64_t offset, std::uint8_t size, std::uint64_t value) {
  Packet packet;
  packet.header = header;
  packet.offset = offset;
  packet.size = size;
  packet.value = value;
  const std::uint32_t address = header >> 3;

  if ((header & 0x04) == 0) {
    packet.kind = PacketKind::Instrumentation;
    packet.port = page_ * 32 + address;
    emit(packet);
    return;
  }
  // Hardware source packets, by discriminator.
  if (address == 0 && size == 1) {
    packet.kind = PacketKind::EventCounter;
    packet.control = static_cast<std::uint8_t>(value);
  } else if (address == 1 && size == 2) {
    packet.kind = PacketKind::ExceptionTrace;
    packet.exception = static_cast<std::uint16_t>((value & 0xFF) | ((value >> 8) & 0x01) << 8);
    packet.function = static_cast<ExceptionFunction>((value >> 12) & 0x03);
  } else if (address == 2 && size == 4) {
    packet.kind = PacketKind::PcSample;
  } else if (address == 2 && size == 1) {
    packet.kind = PacketKind::PcSleep;
    packet.control = static_cast<std::uint8_t>(value);
  } else if (address == 3 && size == 1) {
    packet.kind = PacketKind::PmuOverflow;
  } else if (address >= 8 && address <= 23) {
    const std::uint32_t type = (address >> 3) & 0x03;
    packet.port = (address >> 1) & 0x03;
    const bool x = (address & 0x01) != 0;
    if (type == 1 && !x && size == 4) {
      packet.kind = PacketKind::DataTracePc;
    } else if (type == 1 && !x && size == 1 && (value & 0x01) != 0) {
      packet.kind = PacketKind::DataTraceMatch;
    } else if (type == 1 && x && size == 2) {
      packet.kind = PacketKind::DataTraceAddress;
    } else if (type == 2) {
      packet.kind = PacketKind::DataTraceValue;
      packet.write = x;
    } else {
      packet.kind = PacketKind::Malformed;
    }
  } else {
    packet.kind = PacketKind::Malformed;
  }
  if (packet.kind == PacketKind::Malformed) {
    // The header was read; its payload was read with it, so decoding goes
    // on right after the packet.
    malformed(header, offset, 1u + size);
    return;
  }
  emit(packet);
}

void ItmDecoder::completeContinued() {
  Packet& packet = pending_;
  packet.size = received_;
  state_ = State::Header;
  std::uint64_t value = 0;
  int shift = 0;
  for (std::uint8_t i = 0; i < received_; ++i, shift += 7) value |= static_cast<std::uint64_t>(raw_[i] & 0x7F) << shift;

  switch (packet.kind) {
    case PacketKind::LocalTimestamp:
      packet.value = value & 0x0FFFFFFF;
      packet.control = (packet.header >> 4) & 0x03;
      break;
    case PacketKind::GlobalTimestamp1:
      if (received_ == 4) {
        // The fourth byte carries the wrap and clock-change flags above
        // bits 25:21.
        packet.wrap = (raw_[3] & 0x40) != 0;
        packet.clockChange = (raw_[3] & 0x20) != 0;
        value &= 0x03FFFFFF;
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

void ItmDecoder::emit(Packet& packet) {
  if (malformedRun_.value != 0) endMalformedRun();
  ++statistics_.packets[static_cast<int>(packet.kind)];
  if (sink_) sink_(packet);
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

}  // namespace vestrel::decode
