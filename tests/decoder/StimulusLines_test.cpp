#include "StimulusLines.h"
#include "DecodedOutput.h"

#include <gtest/gtest.h>

#include <string>

using namespace vestrel::decoder;
using namespace vestrel::decoder::testing;

TEST(StimulusLines, ALineLongerThanTheLimitComesInPartsThatSaySo) {
  const std::size_t limit = StimulusLines::kMaxLineBytes;
  const std::string line = std::string(limit, 'a') + std::string(limit, 'b') + "cd";
  const std::string text = textOf(portText(line + "\n"));
  // (compared as booleans: a failure must not print 32 KiB)
  EXPECT_TRUE(text == "[0+] port 0: " + std::string(limit, 'a') + " [the line goes on]\n" +
                          "[0+] port 0: " + std::string(limit, 'b') + " [the line goes on]\n" + "[0+] port 0: cd\n")
      << text.size() << " bytes, ending " << text.substr(text.size() - 60);
  const std::string json = jsonOf(portText(std::string(limit, 'x') + "y\n"));
  EXPECT_NE(json.find("\"text\":\"" + std::string(limit, 'x') + "\",\"continues\":true,"), std::string::npos);
  EXPECT_NE(json.find("\"text\":\"y\",\"cycles\""), std::string::npos) << json.substr(json.size() - 100);
}

TEST(StimulusLines, APartEndsOnACharacterBoundary) {
  const std::size_t limit = StimulusLines::kMaxLineBytes;
  // The euro sign's three bytes would straddle the limit: it begins the next part.
  const std::string text = textOf(portText(std::string(limit - 1, 'a') + "\xE2\x82\xAC" + "z\n"));
  EXPECT_TRUE(text == "[0+] port 0: " + std::string(limit - 1, 'a') + " [the line goes on]\n" +
                          "[0+] port 0: \xE2\x82\xAC" + "z\n")
      << text.size() << " bytes, ending " << text.substr(text.size() - 60);
}
