#include "tests/unit/email_plugin/virtual_tables.h"

#include <cxxabi.h>
#include <elf.h>

#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <map>
#include <memory>
#include <stdexcept>

namespace plugin {
namespace {

/// A library's file, its sections, symbols and relocations.
class Library {
 public:
  explicit Library(const std::string& path) {
    std::ifstream file(path, std::ios::binary);
    bytes_.assign(std::istreambuf_iterator<char>(file), {});
    if (bytes_.size() < sizeof(Elf64_Ehdr) || std::memcmp(bytes_.data(), ELFMAG, SELFMAG) != 0) {
      throw std::runtime_error(path + " is no ELF file");
    }
    const auto header = At<Elf64_Ehdr>(0);
    for (unsigned i = 0; i < header.e_shnum; ++i) {
      sections_.push_back(At<Elf64_Shdr>(header.e_shoff + i * sizeof(Elf64_Shdr)));
    }
    ReadSymbols();
    ReadRelocations();
  }

  /// Place and size of a symbol in memory.
  Elf64_Sym Find(const std::string& symbol) const {
    const auto found = defined_.find(symbol);
    if (found == defined_.end()) throw std::runtime_error("no symbol " + symbol);
    return found->second;
  }

  /// Names of what the word at `address` will point to; empty for a plain number.
  std::vector<std::string> Pointees(Elf64_Addr address) const {
    const auto relocation = relocations_.find(address);
    if (relocation == relocations_.end()) return {};
    if (!relocation->second.symbol.empty()) return {relocation->second.symbol};
    std::vector<std::string> names;
    const auto range = names_.equal_range(relocation->second.target);
    for (auto name = range.first; name != range.second; ++name) names.push_back(name->second);
    if (names.empty()) names.push_back("?");
    return names;
  }

 private:
  struct Relocation {
    std::string symbol;  // empty: points into this library
    Elf64_Addr target;
  };

  template <class T>
  T At(std::size_t offset) const {
    if (offset + sizeof(T) > bytes_.size()) throw std::runtime_error("cut ELF file");
    T value;
    std::memcpy(&value, bytes_.data() + offset, sizeof(T));
    return value;
  }

  std::string Name(const Elf64_Shdr& symbols, const Elf64_Sym& symbol) const {
    return bytes_.data() + sections_.at(symbols.sh_link).sh_offset + symbol.st_name;
  }

  Elf64_Sym Symbol(const Elf64_Shdr& symbols, std::size_t index) const {
    return At<Elf64_Sym>(symbols.sh_offset + index * sizeof(Elf64_Sym));
  }

  void ReadSymbols() {
    for (const Elf64_Shdr& section : sections_) {
      if (section.sh_type != SHT_SYMTAB) continue;
      for (std::size_t i = 0; i < section.sh_size / sizeof(Elf64_Sym); ++i) {
        const Elf64_Sym symbol = Symbol(section, i);
        const unsigned type = ELF64_ST_TYPE(symbol.st_info);
        if (symbol.st_shndx == SHN_UNDEF || (type != STT_FUNC && type != STT_OBJECT)) continue;
        names_.emplace(symbol.st_value, Name(section, symbol));
        defined_.emplace(Name(section, symbol), symbol);
      }
    }
  }

  void ReadRelocations() {
    for (const Elf64_Shdr& section : sections_) {
      if (section.sh_type != SHT_RELA) continue;
      const Elf64_Shdr& symbols = sections_.at(section.sh_link);
      for (std::size_t i = 0; i < section.sh_size / sizeof(Elf64_Rela); ++i) {
        const auto rela = At<Elf64_Rela>(section.sh_offset + i * sizeof(Elf64_Rela));
        const std::size_t index = ELF64_R_SYM(rela.r_info);
        relocations_[rela.r_offset] = {index ? Name(symbols, Symbol(symbols, index)) : "",
                                       static_cast<Elf64_Addr>(rela.r_addend)};
      }
    }
  }

  std::string bytes_;
  std::vector<Elf64_Shdr> sections_;
  std::multimap<Elf64_Addr, std::string> names_;
  std::map<std::string, Elf64_Sym> defined_;
  std::map<Elf64_Addr, Relocation> relocations_;
};

std::string Demangled(const std::string& mangled) {
  const std::unique_ptr<char, decltype(&std::free)> text(
      abi::__cxa_demangle(mangled.c_str(), nullptr, nullptr, nullptr), &std::free);
  return text ? text.get() : mangled;
}

void ReplaceAll(std::string& text, const std::string& from, const std::string& to) {
  for (std::size_t at = 0; (at = text.find(from, at)) != std::string::npos; at += to.size()) {
    text.replace(at, from.size(), to);
  }
}

std::string Label(const std::string& mangled) {
  std::string label = Demangled(mangled);
  ReplaceAll(label, "non-virtual thunk to ", "");
  ReplaceAll(label, "virtual thunk to ", "");
  ReplaceAll(label,
             "std::__cxx11::basic_string<char, std::char_traits<char>, "
             "std::allocator<char> >",
             "std::string");
  ReplaceAll(label, "std::string >", "std::string>");
  ReplaceAll(label, "std::__cxx11::", "std::");
  ReplaceAll(label, "[abi:cxx11]", "");
  ReplaceAll(label, "brisqpriv_email_dovecot::", "");
  const std::size_t destructor = label.find("::~");
  if (destructor == std::string::npos) return label;
  const bool deleting = mangled.ends_with("D0Ev");
  return label.substr(0, destructor) + (deleting ? ": deleting" : ": complete") + " destructor";
}

/// The complete and the base destructor may share one address; the table holds the complete one.
std::string Label(const std::vector<std::string>& names) {
  for (const std::string& name : names) {
    if (!name.ends_with("D2Ev")) return Label(name);
  }
  return Label(names.front());
}

}  // namespace

std::vector<Slots> VirtualTables(const std::string& library, const std::string& group) {
  const Library elf(library);
  const Elf64_Sym symbol = elf.Find(group);
  std::vector<Slots> tables;
  // Each table is numbers (offsets), the type information, and then functions up to a number.
  bool in_table = false;
  for (Elf64_Addr word = 0; word < symbol.st_size; word += sizeof(Elf64_Addr)) {
    const std::vector<std::string> names = elf.Pointees(symbol.st_value + word);
    if (names.empty()) {
      in_table = false;
    } else if (!in_table) {
      if (!names.front().starts_with("_ZTI")) throw std::runtime_error("no type information");
      in_table = true;
      tables.emplace_back();
    } else {
      tables.back().push_back(Label(names));
    }
  }
  return tables;
}

}  // namespace plugin
