// The capture as one self-contained HTML page (no script, no network, no
// font to fetch): a summary, an SVG timeline of exception handlers (a lane
// per exception, pre-emption visible as overlapping runs), the PC-sample
// profile as a bar chart with its hottest lines, and each stimulus port's
// text. Elements tests and people look for carry ids: summary, timeline,
// exceptions, profile, profile-chart, ports, port-<n>.
#pragma once

#include <string>

#include "OutputBuffer.h"
#include "PacketSink.h"
#include "Profile.h"
#include "ReportCollector.h"
#include "SymbolTable.h"

namespace vestrel::decoder {

void writeHtmlReport(OutputBuffer& out, const ReportData& data);

// The report of the whole stream, written into page at its end.
class HtmlReportWriter final : public PacketSink {
 public:
  // source heads the page; symbols (may be null) name the profile's rows.
  HtmlReportWriter(OutputBuffer& page, std::string source, Timing timing, const symbols::SymbolTable* symbols)
      : page_(page), collector_(std::move(source), timing), symbols_(symbols) {}
  void write(const Packet& packet, PacketTime time) override {
    collector_.write(packet, time);
    profile_.add(packet);
  }
  void finish(const DecoderStatistics& statistics) override;

 private:
  OutputBuffer& page_;
  ReportCollector collector_;
  Profile profile_;
  const symbols::SymbolTable* symbols_;
};

// Text made safe inside HTML elements and attribute values; control
// characters shown as \xNN.
void appendHtml(OutputBuffer& out, const std::string& text);

// A time for people: "12.500 µs", "3.250 ms", "1.200 s" given the clock,
// "1234 cycles" without it.
std::string humanTime(std::uint64_t cycles, const Timing& timing);

}  // namespace vestrel::decoder
