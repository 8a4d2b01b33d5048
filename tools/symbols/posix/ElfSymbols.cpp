// ELF symbols and DWARF line tables through elfutils (libelf, libdw).
#include "ElfSymbols.h"

#include <elfutils/libdw.h>
#include <fcntl.h>
#include <gelf.h>
#include <libelf.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <stdexcept>

#include "PrintableText.h"

namespace vestrel::symbols {

namespace {

struct OpenFile {
  explicit OpenFile(const std::string& path) : fd(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK)) {}
  ~OpenFile() {
    if (fd >= 0) ::close(fd);
  }
  int fd;
};

struct ElfHandle {
  explicit ElfHandle(int fd) : elf(elf_begin(fd, ELF_C_READ_MMAP, nullptr)) {}
  ~ElfHandle() {
    if (elf != nullptr) elf_end(elf);
  }
  Elf* elf;
};

struct DwarfHandle {
  explicit DwarfHandle(Elf* elf) : dwarf(dwarf_begin_elf(elf, DWARF_C_READ, nullptr)) {}
  ~DwarfHandle() {
    if (dwarf != nullptr) dwarf_end(dwarf);
  }
  Dwarf* dwarf;
};

[[noreturn]] void fail(const std::string& path, const std::string& why) {
  throw std::runtime_error("cannot read symbols from " + path + ": " + why);
}

std::vector<FunctionSymbol> functionsOf(Elf* elf, bool thumb) {
  std::vector<FunctionSymbol> functions;
  Elf_Scn* section = nullptr;
  while ((section = elf_nextscn(elf, section)) != nullptr) {
    GElf_Shdr header;
    if (gelf_getshdr(section, &header) == nullptr || header.sh_type != SHT_SYMTAB || header.sh_entsize == 0) continue;
    Elf_Data* data = elf_getdata(section, nullptr);
    if (data == nullptr) continue;
    const std::size_t count = header.sh_size / header.sh_entsize;
    for (std::size_t i = 0; i < count; ++i) {
      GElf_Sym symbol;
      if (gelf_getsym(data, static_cast<int>(i), &symbol) == nullptr) continue;
      if (GELF_ST_TYPE(symbol.st_info) != STT_FUNC || symbol.st_shndx == SHN_UNDEF) continue;
      const char* name = elf_strptr(elf, header.sh_link, symbol.st_name);
      if (name == nullptr || name[0] == '\0') continue;
      std::uint64_t start = symbol.st_value;
      if (thumb) start &= ~std::uint64_t{1};
      if (start > 0xFFFFFFFFu) continue;  // trace addresses are 32-bit
      functions.push_back({printable_text::printable(name), static_cast<std::uint32_t>(start),
                           static_cast<std::uint32_t>(symbol.st_size > 0xFFFFFFFFu ? 0xFFFFFFFFu : symbol.st_size)});
    }
  }
  return functions;
}

void linesOf(Elf* elf, std::vector<std::string>& files, std::vector<LineRow>& rows) {
  DwarfHandle dwarf(elf);
  if (dwarf.dwarf == nullptr) return;  // no debug information: names only
  std::map<std::string, std::uint32_t> fileIndex;
  Dwarf_Off offset = 0;
  Dwarf_Off next = 0;
  std::size_t headerSize = 0;
  while (dwarf_nextcu(dwarf.dwarf, offset, &next, &headerSize, nullptr, nullptr, nullptr) == 0) {
    Dwarf_Die unit;
    Dwarf_Lines* lines = nullptr;
    std::size_t count = 0;
    if (dwarf_offdie(dwarf.dwarf, offset + headerSize, &unit) != nullptr &&
        dwarf_getsrclines(&unit, &lines, &count) == 0) {
      for (std::size_t i = 0; i < count; ++i) {
        Dwarf_Line* line = dwarf_onesrcline(lines, i);
        Dwarf_Addr address = 0;
        int number = 0;
        bool end = false;
        if (line == nullptr || dwarf_lineaddr(line, &address) != 0 || dwarf_lineno(line, &number) != 0 ||
            dwarf_lineendsequence(line, &end) != 0 || address > 0xFFFFFFFFu) {
          continue;
        }
        const char* file = dwarf_linesrc(line, nullptr, nullptr);
        const auto [entry, added] =
            fileIndex.emplace(file != nullptr ? file : "?", static_cast<std::uint32_t>(files.size()));
        if (added) files.push_back(printable_text::printable(entry->first));
        rows.push_back({static_cast<std::uint32_t>(address), entry->second,
                        static_cast<std::uint32_t>(number < 0 ? 0 : number), end});
      }
    }
    offset = next;
  }
}

}  // namespace

bool elfSymbolsAvailable() { return true; }

SymbolTable loadElfSymbols(const std::string& path) {
  if (elf_version(EV_CURRENT) == EV_NONE) fail(path, "libelf is out of date");
  // Opened without waiting (a FIFO would wait for a writer) and read only
  // when it is a regular file.
  OpenFile file(path);
  if (file.fd < 0) fail(path, std::strerror(errno));
  struct stat status {};
  if (::fstat(file.fd, &status) != 0) fail(path, std::strerror(errno));
  if (!S_ISREG(status.st_mode)) fail(path, "not a regular file");
  ElfHandle elf(file.fd);
  if (elf.elf == nullptr || elf_kind(elf.elf) != ELF_K_ELF) fail(path, "not an ELF file");
  GElf_Ehdr header;
  if (gelf_getehdr(elf.elf, &header) == nullptr) fail(path, elf_errmsg(-1));
  std::vector<FunctionSymbol> functions = functionsOf(elf.elf, header.e_machine == EM_ARM);
  if (functions.empty()) fail(path, "it has no function symbols (stripped?)");
  std::vector<std::string> files;
  std::vector<LineRow> rows;
  linesOf(elf.elf, files, rows);
  return SymbolTable(std::move(functions), std::move(files), std::move(rows));
}

}  // namespace vestrel::symbols
