#include <alg_kit/session/LibraryIdentity.h>

#if defined(__linux__)
#include <dlfcn.h>
#include <link.h>

#include <cstdio>
#include <cstring>
#endif

namespace session {

#if defined(__linux__)

namespace {

struct Search {
  ElfW(Addr) base;      ///< where the file was loaded
  std::string buildId;  ///< found
};

std::size_t padded(std::size_t size) {
  return (size + 3) / 4 * 4;
}

// A loaded file's notes: 12 bytes of sizes and type, then name and content, each padded to four.
std::string buildIdIn(const unsigned char* notes, std::size_t size) {
  std::string text;
  while (size >= sizeof(ElfW(Nhdr))) {
    ElfW(Nhdr) note;
    std::memcpy(&note, notes, sizeof note);
    const std::size_t content = sizeof note + padded(note.n_namesz);
    const std::size_t whole = content + padded(note.n_descsz);
    if (whole > size) break;
    if (note.n_type == NT_GNU_BUILD_ID) {
      for (std::size_t i = 0; i < note.n_descsz; ++i) {
        char digits[3];
        std::snprintf(digits, sizeof digits, "%02x", notes[content + i]);
        text += digits;
      }
      break;
    }
    notes += whole;
    size -= whole;
  }
  return text;
}

int lookInto(dl_phdr_info* info, std::size_t, void* search) {
  auto& wanted = *static_cast<Search*>(search);
  if (info->dlpi_addr != wanted.base) return 0;
  for (int i = 0; i < info->dlpi_phnum && wanted.buildId.empty(); ++i) {
    const auto& part = info->dlpi_phdr[i];
    if (part.p_type != PT_NOTE) continue;
    const auto* const notes = reinterpret_cast<const unsigned char*>(wanted.base + part.p_vaddr);
    wanted.buildId = buildIdIn(notes, part.p_memsz);
  }
  return 1;
}

}  // namespace

LibraryIdentity identityOf(const algorithm::AlgBase& alg) {
  LibraryIdentity identity;
  const void* table;  // the object's virtual table lies in the file that made it
  std::memcpy(&table, static_cast<const void*>(&alg), sizeof table);
  Dl_info where;
  link_map* loaded = nullptr;
  if (dladdr1(table, &where, reinterpret_cast<void**>(&loaded), RTLD_DL_LINKMAP) == 0)
    return identity;

  const std::string path = where.dli_fname;
  identity.file = path.substr(path.find_last_of('/') + 1);
  Search search = {loaded->l_addr, ""};
  dl_iterate_phdr(lookInto, &search);
  identity.buildId = search.buildId;
  if (void* const library = dlopen(where.dli_fname, RTLD_NOW | RTLD_NOLOAD)) {
    const char* (*version)() noexcept = nullptr;
    void* const symbol = dlsym(library, "alg_factory_version");
    std::memcpy(&version, &symbol, sizeof version);
    if (version != nullptr) identity.version = version();
    dlclose(library);
  }
  return identity;
}

#else

LibraryIdentity identityOf(const algorithm::AlgBase&) {
  return {};
}

#endif

}  // namespace session
