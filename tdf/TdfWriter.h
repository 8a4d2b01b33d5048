// Appends named, versioned sections to a TDF trace data file that the host
// created. Every number is a little-endian unsigned 32-bit value; a section
// is its length, version, name length and name, then its data.
#pragma once

#include <cstddef>
#include <cstdint>

namespace Kv::Orv::Trace::Vestrel {

// Appends a section header at the end of the file and gives back the
// section's offset. Throws cHexkitError.
void writeSectionHeader(const char* filePath, const char* sectionName, std::uint32_t sectionVersion,
                        std::uint32_t& sectionOffset);

// Throws the "too large" cHexkitError, before anything is written, when a
// new section of dataBytes would not end below 2 GiB in the file at filePath.
// A file that does not exist yet counts as empty.
void ensureSectionFits(const char* filePath, const char* sectionName, std::uint64_t dataBytes);

// Appends elementCount elements of elementSize bytes to the section at
// sectionOffset and gives back its new length. The name is not used.
// Throws cHexkitError.
void writeSectionData(const char* filePath, const char* sectionName, std::uint32_t sectionOffset, const void* data,
                      std::size_t elementSize, std::size_t elementCount, std::uint32_t& sectionLength);

}  // namespace Kv::Orv::Trace::Vestrel
