// The receiver's options file: a small XML document with root CHANNEL-SETUP,
// read with the Xerces-C SAX parser and written as plain text.
#pragma once

#include <cstdint>
#include <string>

#include <xercesc/parsers/SAXParser.hpp>
#include <xercesc/sax/HandlerBase.hpp>

#include "ChannelOptions.h"

namespace Kv::Orv::Trace::Vestrel {

// SAX document handler for one load: collects one record per option element.
class XMLOptionsHandler : public xercesc::HandlerBase {
 public:
  void startElement(const XMLCh* const name, xercesc::AttributeList& attributes) override;
  void characters(const XMLCh* const chars, const XMLSize_t length) override;
  void endElement(const XMLCh* const name) override;
  // An options file names no external entity or DTD that it may read: every
  // one is refused, so the parse ends before anything is opened.
  xercesc::InputSource* resolveEntity(const XMLCh* const publicId, const XMLCh* const systemId) override;

  // Elements deeper than this end the parse: options files are two deep.
  static constexpr int kMaximumDepth = 64;

  // Copies the records read so far into set and returns it.
  virtual OptionSet& getOptions(OptionSet& set) const;
  // Orders the records by ID 0 to 7, keeping duplicates in file order and
  // dropping records without an ID.
  virtual void orderOptions();

  bool versionSeen() const { return versionSeen_; }
  bool receiverNameSeen() const { return receiverNameSeen_; }
  const std::uint32_t* formatVersion() const { return formatVersion_; }

 private:
  OptionSet options_;
  int depth_ = 0;
  std::int32_t currentId_ = kOptionUnknown;
  ChannelOptions currentOption_;
  bool inVersion_ = false;
  bool inReceiverName_ = false;
  std::uint32_t formatVersion_[4] = {0, 0, 0, 0};
  bool versionSeen_ = false;
  bool receiverNameSeen_ = false;
};

// Loads and saves option sets. Every failure is a cHexkitError.
class ChannelOptionsHandler {
 public:
  virtual ~ChannelOptionsHandler() = default;
  // Fills set from the file at filePath; an empty path gives the defaults.
  // probeKind selects whose COM ports the COMPORT choices list. On failure
  // set is left as it was.
  virtual OptionSet& load(OptionSet& set, const std::string& filePath, std::uint32_t probeKind);
  virtual void save(const OptionSet& set, const std::string& filePath);

  static constexpr const char* kTag = "Vestrel_XmlOptions";
  static constexpr const char* kCopyrightNotice = "Vestrel SWO trace receiver options";

 protected:
  // Called on each new parser before the parse, after the security settings
  // (no external entity or DTD, a bound on entity expansion). The receiver
  // leaves every other setting at its default; a subclass may change them
  // (tests turn validation on to reach the recoverable-error path).
  virtual void configureParser(xercesc::SAXParser& parser);
  // Starts Xerces (XMLPlatformUtils::Initialize); tests replace it to reach
  // the initialisation failure.
  virtual void initializeXml();

  // Expansions of declared entities one document may make. A file without a
  // DOCTYPE declares none, so this bounds only documents that do.
  static constexpr XMLSize_t kEntityExpansionLimit = 100;

 private:
  OptionSet options_;
  std::uint32_t probeKind_ = 2;
};

}  // namespace Kv::Orv::Trace::Vestrel
