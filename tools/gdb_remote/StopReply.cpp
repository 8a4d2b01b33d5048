#include "StopReply.h"

namespace vestrel::gdb_remote {

namespace {

const char* signalName(int number) {
  switch (number) {
    case 2:
      return "SIGINT";
    case 4:
      return "SIGILL";
    case 5:
      return "SIGTRAP";
    case 6:
      return "SIGABRT";
    case 7:
      return "SIGBUS";
    case 9:
      return "SIGKILL";
    case 11:
      return "SIGSEGV";
    case 15:
      return "SIGTERM";
    default:
      return nullptr;
  }
}

std::string signalText(int number) {
  const char* name = signalName(number);
  return "signal " + std::to_string(number) + (name != nullptr ? std::string(" (") + name + ")" : "");
}

}  // namespace

std::string StopReply::text() const {
  switch (kind) {
    case Kind::Stopped:
      return "stopped by " + signalText(number);
    case Kind::Exited:
      return "exited with code " + std::to_string(number);
    case Kind::Terminated:
      return "ended by " + signalText(number);
  }
  return "";
}

std::optional<StopReply> parseStopReply(const std::string& payload) {
  if (payload.size() < 3) return std::nullopt;
  StopReply reply;
  switch (payload[0]) {
    case 'S':
    case 'T':
      reply.kind = StopReply::Kind::Stopped;
      break;
    case 'W':
      reply.kind = StopReply::Kind::Exited;
      break;
    case 'X':
      reply.kind = StopReply::Kind::Terminated;
      break;
    default:
      return std::nullopt;
  }
  int number = 0;
  for (int i = 1; i <= 2; ++i) {
    const char c = payload[static_cast<std::size_t>(i)];
    const int digit = c >= '0' && c <= '9'   ? c - '0'
                      : c >= 'a' && c <= 'f' ? c - 'a' + 10
                      : c >= 'A' && c <= 'F' ? c - 'A' + 10
                                             : -1;
    if (digit < 0) return std::nullopt;
    number = number * 16 + digit;
  }
  reply.number = number;
  if (payload[0] == 'T') reply.details = payload.substr(3);
  return reply;
}

}  // namespace vestrel::gdb_remote
