#include "uFile.h"

#include <gtest/gtest.h>

#include <string>

#include "TestSupport.h"

using KV_ORV::uFile;
using vestrel_test::readFile;
using vestrel_test::ScratchDirectory;

TEST(uFile, ConstructionOpensNothing) {
  ScratchDirectory dir;
  uFile file(dir.file("x.bin").c_str(), "wb");
  EXPECT_FALSE(file.isOpen());
  EXPECT_EQ(file.path(), dir.file("x.bin"));
  EXPECT_FALSE(vestrel_test::fileExists(dir.file("x.bin")));
  uFile unnamed(nullptr, nullptr);
  EXPECT_EQ(unnamed.path(), "");
}

TEST(uFile, WritingThroughAFileWhoseOpenFailedWritesNothing) {
  ScratchDirectory dir;
  const std::string path = dir.file("missing") + vestrel_test::sep() + "x.bin";
  uFile file;
  EXPECT_FALSE(file.open(path.c_str(), "wb"));
  EXPECT_FALSE(file.isOpen());
  EXPECT_EQ(file.write("abc", 3), 0u);
  EXPECT_FALSE(file.writeText("abc"));
  EXPECT_FALSE(file.flush());
  EXPECT_FALSE(file.close());
  EXPECT_EQ(file.length(), -1);
  EXPECT_FALSE(vestrel_test::fileExists(path));
}

TEST(uFile, WritesBytesExactlyAndReportsTheLength) {
  ScratchDirectory dir;
  const std::string path = dir.file("data.bin");
  uFile file;
  ASSERT_TRUE(file.open(path.c_str(), "wb"));
  const unsigned char bytes[] = {0x00, 0x0A, 0x0D, 0xFF, 0x1A};
  EXPECT_EQ(file.write(bytes, sizeof bytes), sizeof bytes);
  EXPECT_TRUE(file.writeText("tail"));
  EXPECT_TRUE(file.flush());
  EXPECT_EQ(file.length(), 9);
  EXPECT_TRUE(file.close());
  EXPECT_FALSE(file.isOpen());
  EXPECT_EQ(readFile(path), std::string("\x00\x0A\x0D\xFF\x1A"
                                        "tail",
                                        9));
  EXPECT_FALSE(file.close());
}

TEST(uFile, OpenWithNullPathReusesTheStoredPath) {
  ScratchDirectory dir;
  const std::string path = dir.file("stored.txt");
  uFile file(path.c_str(), "w");
  ASSERT_TRUE(file.open(nullptr, "wb"));
  EXPECT_EQ(file.mode(), "wb");
  file.write("x", 1);
  file.close();
  EXPECT_EQ(readFile(path), "x");
}

TEST(uFile, ReopeningClosesTheStreamOpenBefore) {
  ScratchDirectory dir;
  uFile file;
  ASSERT_TRUE(file.open(dir.file("a.bin").c_str(), "wb"));
  file.write("a", 1);
  ASSERT_TRUE(file.open(dir.file("b.bin").c_str(), "wb"));
  file.write("b", 1);
  file.close();
  EXPECT_EQ(readFile(dir.file("a.bin")), "a");
  EXPECT_EQ(readFile(dir.file("b.bin")), "b");
}

TEST(uFile, AFileBeingWrittenCanBeReadAtTheSameTime) {
  ScratchDirectory dir;
  const std::string path = dir.file("shared.bin");
  uFile writer, reader;
  ASSERT_TRUE(writer.open(path.c_str(), "ab"));
  writer.write("12345678", 8);
  writer.flush();
  ASSERT_TRUE(reader.open(path.c_str(), "rb"));
  EXPECT_EQ(reader.length(), 8);
  char back[8] = {};
  EXPECT_EQ(reader.read(back, 8), 8u);
  EXPECT_EQ(std::string(back, 8), "12345678");
  writer.write("9", 1);
  writer.flush();
  EXPECT_EQ(reader.length(), 9);
  reader.close();
  writer.close();
}

TEST(uFile, TextModeWritesThePlatformNewline) {
  ScratchDirectory dir;
  const std::string path = dir.file("text.txt");
  uFile file;
  ASSERT_TRUE(file.open(path.c_str(), "w"));
  file.writeText("line\n");
  file.close();
  EXPECT_EQ(readFile(path), "line" + vestrel_test::textNewline());
}
