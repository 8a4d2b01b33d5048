// What the options-file tests share: a scratch folder for the files they
// write, loading with and without failure, and the system's texts.
#pragma once

#include <gtest/gtest.h>

#include <fstream>
#include <string>
#include <vector>

#include "FakeSerialDevices.h"
#include "TestSupport.h"
#include "XmlOptions.h"
#include "cHexkitError.h"

namespace vestrel_test {

using namespace Kv::Orv::Trace::Vestrel;
using Kv::Orv::Hexkit::cHexkitError;
using Strings = std::vector<std::string>;

inline const char* const kHeader =
    "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n"
    "<CHANNEL-SETUP>\n"
    "\t<VERSION version=\"1.1.0.0\" Copyright=\"x\"></VERSION>\n"
    "\t<RCVRNAME>SWO Trace</RCVRNAME>\n";

inline const char* const kReceiverNameMissing =
    "RCVRNAME xml tag not found in this xml file.\nIf this file was created with Trace V1.0, then please recreate\nthe "
    "file using Trace V1.1 software by setting the same options\nand saving to the same file name.\nIt is also "
    "possible this file is corrupted. Saving the file again\nas desribed above will resolve this problem.";

inline const char* const kUndefined = "Undefined exception occurred while parsing emulation setup file";

class XmlOptionsTest : public ::testing::Test {
 protected:
  void TearDown() override { setProbeFamily(2); }
  std::string file(const std::string& content, const std::string& name = "options.xml") {
    std::ofstream(dir.file(name), std::ios::binary) << content;
    return dir.file(name);
  }
  OptionSet load(const std::string& path, std::uint32_t probeKind = 2) {
    OptionSet set;
    ChannelOptionsHandler handler;
    handler.load(set, path, probeKind);
    return set;
  }
  std::string loadFailure(const std::string& path, int* severity = nullptr) {
    OptionSet set(1);
    set[0].value = "kept";
    try {
      ChannelOptionsHandler handler;
      handler.load(set, path, 2);
    } catch (const cHexkitError& e) {
      if (severity != nullptr) *severity = e.GetSeverity();
      EXPECT_EQ(set.size(), 1u);
      EXPECT_EQ(set[0].value, "kept");
      return e.GetMessage();
    }
    return "<loaded>";
  }
  static Strings keysOf(const OptionSet& set) {
    Strings keys;
    for (const auto& option : set) keys.push_back(option.key + "=" + option.value);
    return keys;
  }

  vestrel_test::ScratchDirectory dir;
  vestrel_test::FakeSerialDevices devices;
  ScopedSerialDeviceSource scope{devices};
};

}  // namespace vestrel_test
