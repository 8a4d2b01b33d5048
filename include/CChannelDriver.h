// The host framework's channel-driver interfaces. Declaration order is slot
// order.
#pragma once

#include <cstdint>
#include <string>

#include "HostTypes.h"

namespace Kv::Orv::Trace {

class TraceChannelAttributes {
 public:
  virtual ~TraceChannelAttributes() = default;                                         // slot 0
  virtual TraceAttribute& GetAttribute(const char* name, TraceAttribute& record) = 0;  // slot 1
};

class CChannelDriverProgress {
 public:
  virtual void GetProgress(std::uint32_t* current, std::uint32_t* total) = 0;

 protected:
  ~CChannelDriverProgress() = default;
};

class CChannelDriver : public TraceChannelAttributes, public CChannelDriverProgress {
 public:
  virtual bool IsFileLoaded() = 0;                                          // slot 2
  virtual void SetConfiguration(const char* fileName) = 0;                  // slot 3
  virtual void StartRecording(bool flag) = 0;                               // slot 4
  virtual void StopRecording() = 0;                                         // slot 5
  virtual void ResumeRecording() = 0;                                       // slot 6
  virtual void SaveToFile(std::string fileName, std::uint32_t format) = 0;  // slot 7
  virtual void LoadFile(const char* fileName) = 0;                          // slot 8
  virtual std::uint32_t SeekReadTraceData(std::uint32_t startSample, std::uint32_t numRequested, std::uint64_t* buffer,
                                          std::uint32_t* numRead) = 0;                       // slot 9
  virtual std::uint32_t GetNumSamples() = 0;                                                 // slot 10
  virtual const char* GetCpuName() = 0;                                                      // slot 11
  virtual void GetStatus(ChannelStatus& status) = 0;                                         // slot 12
  virtual void GetInfoText(std::string& out, std::uint32_t id, std::uint32_t argument) = 0;  // slot 13
};

}  // namespace Kv::Orv::Trace
