#include "TraceStatistics.h"
#include "ItmDecoder.h"
#include "OutputBuffer.h"

#include <gtest/gtest.h>

#include <string>

using namespace vestrel::decoder;

TEST(TraceStatistics, Statistics) {
  ItmDecoder decoder(nullptr);
  decoder.feed(
      std::string("\x01"
                  "A\x70\x80\x00\x00\x00\x00",
                  8));
  decoder.finish();
  OutputBuffer out;
  writeStatistics(out, decoder.statistics());
  EXPECT_EQ(out.text(),
            "bytes: 8\noverflow: 1\ninstrumentation: 1\nmalformed: 1\nmalformed bytes: 1\nzero bytes: 0\n"
            "padding bytes: 4\nsync losses: 0\n");
}

TEST(TraceStatistics, StatisticsAsJson) {
  ItmDecoder decoder(nullptr);
  decoder.feed(
      std::string("\x01"
                  "A\x70\x80\x00\x00\x00",
                  7));
  decoder.finish();
  OutputBuffer out;
  writeStatisticsJson(out, decoder.statistics());
  EXPECT_EQ(out.text(),
            "{\"kind\":\"statistics\",\"bytes\":7,\"packets\":{\"overflow\":1,\"instrumentation\":1,\"zeros\":1,"
            "\"malformed\":1},\"malformed_bytes\":1,\"zero_bytes\":3,\"padding_bytes\":0,\"sync_losses\":0}\n");
}
