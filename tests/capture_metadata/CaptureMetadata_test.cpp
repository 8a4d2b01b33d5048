// The metadata file beside a capture: its exact text, every value read back,
// and every way a file can be unusable, refused with the file and the reason.
#include "CaptureMetadata.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <stdexcept>
#include <string>

#include "TestSupport.h"
#include "ThrownText.h"

using namespace vestrel::capture_metadata;
using namespace vestrel_test;

namespace {

CaptureMetadata everything() {
  CaptureMetadata metadata;
  metadata.clockHz = 72000000.0;
  metadata.timestampPrescale = 16;
  metadata.tpiuId = 1;
  metadata.tdf = true;
  metadata.elf = "/work/firmware \"v2\".elf";
  metadata.recordedBy = "vestrel-host record";
  return metadata;
}

std::string invalidBecause(const std::string& text) {
  try {
    parseMetadata(text);
  } catch (const std::invalid_argument& error) {
    return error.what();
  }
  return "(accepted)";
}

std::string object(const std::string& members) {
  return R"({"format": "vestrel-capture-metadata", "version": 1)" + (members.empty() ? "" : ", " + members) + "}";
}

void write(const std::string& path, const std::string& content) {
  std::ofstream file(path, std::ios::binary);
  file << content;
}

}  // namespace

TEST(CaptureMetadata, IsWrittenAsOneObjectWithItsKeysInAFixedOrder) {
  EXPECT_EQ(toJson(everything()),
            "{\n"
            "  \"format\": \"vestrel-capture-metadata\",\n"
            "  \"version\": 1,\n"
            "  \"clock_hz\": 72000000.0,\n"
            "  \"timestamp_prescale\": 16,\n"
            "  \"tpiu_id\": 1,\n"
            "  \"container\": \"tdf\",\n"
            "  \"elf\": \"/work/firmware \\\"v2\\\".elf\",\n"
            "  \"recorded_by\": \"vestrel-host record\"\n"
            "}\n");
  EXPECT_EQ(toJson(CaptureMetadata{}),
            "{\n  \"format\": \"vestrel-capture-metadata\",\n  \"version\": 1,\n  \"clock_hz\": null,\n"
            "  \"timestamp_prescale\": 1,\n  \"tpiu_id\": null,\n  \"container\": \"raw\",\n  \"elf\": \"\",\n"
            "  \"recorded_by\": \"\"\n}\n");
}

TEST(CaptureMetadata, ReadsBackWhatWasWritten) {
  EXPECT_EQ(parseMetadata(toJson(everything())), everything());
  EXPECT_EQ(parseMetadata(toJson(CaptureMetadata{})), CaptureMetadata{});
  // Keys a later version adds are passed over; missing ones keep their defaults.
  const CaptureMetadata read = parseMetadata(object(R"("clock_hz": 6e6, "future_key": [1, 2])"));
  ASSERT_TRUE(read.clockHz.has_value());
  EXPECT_EQ(*read.clockHz, 6000000.0);
  EXPECT_EQ(read.timestampPrescale, 1u);
  EXPECT_FALSE(read.tdf);
}

TEST(CaptureMetadata, RefusesWhatIsNotItsFormatOrOutOfRange) {
  EXPECT_EQ(invalidBecause("[1]"), "not a JSON object");
  EXPECT_EQ(invalidBecause(R"({"version": 1})"), "format is not vestrel-capture-metadata");
  EXPECT_EQ(invalidBecause(R"({"format": "vestrel-capture-metadata", "version": 2})"),
            "version 2 is not one this build reads (1)");
  EXPECT_EQ(invalidBecause(object(R"("clock_hz": 999.5)")), "clock_hz 999.5 is not a clock from 1 kHz to 10 GHz");
  EXPECT_EQ(invalidBecause(object(R"("clock_hz": 1e300)")), "clock_hz 1e+300 is not a clock from 1 kHz to 10 GHz");
  EXPECT_EQ(invalidBecause(object(R"("clock_hz": "72 MHz")")),
            "clock_hz \"72 MHz\" is not a clock from 1 kHz to 10 GHz");
  EXPECT_EQ(invalidBecause(object(R"("timestamp_prescale": 8)")), "timestamp_prescale 8 is not 1, 4, 16 or 64");
  EXPECT_EQ(invalidBecause(object(R"("timestamp_prescale": 4.0)")), "timestamp_prescale 4.0 is not 1, 4, 16 or 64");
  EXPECT_EQ(invalidBecause(object(R"("tpiu_id": 128)")), "tpiu_id 128 is not from 1 to 127");
  EXPECT_EQ(invalidBecause(object(R"("container": "zip")")), "container \"zip\" is neither raw nor tdf");
  EXPECT_EQ(invalidBecause(object(R"("elf": 3)")), "elf is not a text");
  EXPECT_EQ(invalidBecause(object(R"("elf": ")" + std::string(5000, 'a') + "\"")), "elf is too long");
  EXPECT_EQ(invalidBecause("{").rfind("not JSON: ", 0), 0u) << invalidBecause("{");
}

TEST(CaptureMetadata, BesideACaptureItIsReadWhenThereAndNamedWhenBroken) {
  ScratchDirectory scratch;
  const std::string capture = scratch.file("capture.bin");
  EXPECT_EQ(metadataPathFor(capture), capture + ".vestrel.json");
  EXPECT_FALSE(readMetadataBeside(capture).has_value());
  writeMetadataBeside(capture, everything());
  EXPECT_EQ(readFile(capture + ".vestrel.json"), toJson(everything()));
  ASSERT_TRUE(readMetadataBeside(capture).has_value());
  EXPECT_EQ(*readMetadataBeside(capture), everything());

  write(capture + ".vestrel.json", object(R"("timestamp_prescale": 3)"));
  EXPECT_EQ(thrownText<std::runtime_error>([&] { readMetadataBeside(capture); }),
            capture + ".vestrel.json: timestamp_prescale 3 is not 1, 4, 16 or 64");
  write(capture + ".vestrel.json", std::string(kMaxMetadataBytes + 1, ' '));
  EXPECT_EQ(thrownText<std::runtime_error>([&] { readMetadataBeside(capture); }),
            capture + ".vestrel.json: 65537 bytes, more than a metadata file holds (65536)");
  std::filesystem::remove(capture + ".vestrel.json");
  std::filesystem::create_directory(capture + ".vestrel.json");
  EXPECT_EQ(thrownText<std::runtime_error>([&] { readMetadataBeside(capture); }),
            capture + ".vestrel.json: not a regular file");
}

TEST(CaptureMetadata, AFileThatCannotBeMadeIsNamed) {
  ScratchDirectory scratch;
  const std::string capture = scratch.file("missing-folder") + sep() + "capture.bin";
  EXPECT_EQ(thrownText<std::runtime_error>([&] { writeMetadataBeside(capture, everything()); }),
            "cannot write " + capture + ".vestrel.json: No such file or directory");
}

TEST(CaptureMetadata, ClocksForTheCommandLine) {
  EXPECT_EQ(clockText(72000000.0), "72000000");
  EXPECT_EQ(clockText(6e6), "6000000");
  EXPECT_EQ(clockText(1234567.5), "1234567.5");
  EXPECT_EQ(clockText(1.0 / 3.0 * 1e7), "3333333.33");
}
