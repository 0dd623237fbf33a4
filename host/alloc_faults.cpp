#include "host/alloc_faults.h"

#if defined(_WIN32)
#include <windows.h>
#else
#include <dlfcn.h>
#include <elf.h>
#include <link.h>
#include <sys/mman.h>
#include <unistd.h>
#endif

#include <atomic>
#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <set>

namespace {

std::atomic<int> allocationCount{0};
std::atomic<int> failingAllocation{0};  // 0: none

bool nextAllocationFails() {
  const int number = allocationCount.fetch_add(1, std::memory_order_relaxed) + 1;
  return number == failingAllocation.load(std::memory_order_relaxed);
}

// Forwarding by name reaches the same allocator the plug-in's slot was bound
// to; calling the slot's old value could run the lazy binder, which would
// write the real address back over the patch.
void* countingMalloc(size_t size) {
  if (nextAllocationFails()) {
    errno = ENOMEM;
    return nullptr;
  }
  return std::malloc(size);
}

void* countingCalloc(size_t count, size_t size) {
  if (nextAllocationFails()) {
    errno = ENOMEM;
    return nullptr;
  }
  return std::calloc(count, size);
}

void* countingRealloc(void* block, size_t size) {
  if (nextAllocationFails()) {
    errno = ENOMEM;
    return nullptr;
  }
  return std::realloc(block, size);
}

void* replacementFor(const char* name) {
  if (std::strcmp(name, "malloc") == 0) return reinterpret_cast<void*>(&countingMalloc);
  if (std::strcmp(name, "calloc") == 0) return reinterpret_cast<void*>(&countingCalloc);
  if (std::strcmp(name, "realloc") == 0) return reinterpret_cast<void*>(&countingRealloc);
  return nullptr;
}

}  // namespace

#if defined(_WIN32)
// The DLL's import address table: each imported function's slot, named by
// the lookup table beside it.
int AllocFaults::install(void* dlHandle) {
  auto* base = static_cast<uint8_t*>(dlHandle);
  if (base == nullptr) return 0;
  const auto* dos = reinterpret_cast<const IMAGE_DOS_HEADER*>(base);
  if (dos->e_magic != IMAGE_DOS_SIGNATURE) return 0;
  const auto* headers = reinterpret_cast<const IMAGE_NT_HEADERS*>(base + dos->e_lfanew);
  const IMAGE_DATA_DIRECTORY& imports = headers->OptionalHeader.DataDirectory[IMAGE_DIRECTORY_ENTRY_IMPORT];
  if (imports.VirtualAddress == 0) return 0;
  std::set<void*> patched;
  for (auto* library = reinterpret_cast<const IMAGE_IMPORT_DESCRIPTOR*>(base + imports.VirtualAddress);
       library->Name != 0; ++library) {
    const DWORD lookup = library->OriginalFirstThunk != 0 ? library->OriginalFirstThunk : library->FirstThunk;
    auto* names = reinterpret_cast<const IMAGE_THUNK_DATA*>(base + lookup);
    auto* slots = reinterpret_cast<IMAGE_THUNK_DATA*>(base + library->FirstThunk);
    for (; names->u1.AddressOfData != 0; ++names, ++slots) {
      if (IMAGE_SNAP_BY_ORDINAL(names->u1.Ordinal)) continue;
      const auto* named = reinterpret_cast<const IMAGE_IMPORT_BY_NAME*>(base + names->u1.AddressOfData);
      void* replacement = replacementFor(reinterpret_cast<const char*>(named->Name));
      if (replacement == nullptr) continue;
      DWORD protection;
      if (!VirtualProtect(&slots->u1.Function, sizeof(void*), PAGE_READWRITE, &protection)) continue;
      slots->u1.Function = reinterpret_cast<ULONG_PTR>(replacement);
      VirtualProtect(&slots->u1.Function, sizeof(void*), protection, &protection);
      patched.insert(&slots->u1.Function);
    }
  }
  return static_cast<int>(patched.size());
}
#else
namespace {
// The relocations that fill a slot with a function's address: a PLT slot, and
// the GOT entry used when the library takes the address or is built without PLT.
#if defined(__x86_64__)
constexpr unsigned kJumpSlot = R_X86_64_JUMP_SLOT;
constexpr unsigned kGlobalData = R_X86_64_GLOB_DAT;
unsigned relocationType(ElfW(Xword) info) { return ELF64_R_TYPE(info); }
size_t relocationSymbol(ElfW(Xword) info) { return ELF64_R_SYM(info); }
#elif defined(__i386__)
constexpr unsigned kJumpSlot = R_386_JMP_SLOT;
constexpr unsigned kGlobalData = R_386_GLOB_DAT;
unsigned relocationType(ElfW(Word) info) { return ELF32_R_TYPE(info); }
size_t relocationSymbol(ElfW(Word) info) { return ELF32_R_SYM(info); }
#elif defined(__aarch64__)
constexpr unsigned kJumpSlot = R_AARCH64_JUMP_SLOT;
constexpr unsigned kGlobalData = R_AARCH64_GLOB_DAT;
unsigned relocationType(ElfW(Xword) info) { return ELF64_R_TYPE(info); }
size_t relocationSymbol(ElfW(Xword) info) { return ELF64_R_SYM(info); }
#else
#error "relocation slots are patched on x86-64, i386 and ARM64"
#endif

struct Image {
  ElfW(Addr) base = 0;
  const ElfW(Sym)* symbols = nullptr;
  const char* names = nullptr;
  uintptr_t relroStart = 0;  // pages the loader made read-only after relocating
  uintptr_t relroEnd = 0;
  std::set<void**> patchedSlots;  // a slot may be listed in two tables
};

uintptr_t pageSize() { return static_cast<uintptr_t>(sysconf(_SC_PAGESIZE)); }

int findRelro(dl_phdr_info* info, size_t, void* data) {
  auto* image = static_cast<Image*>(data);
  if (info->dlpi_addr != image->base) return 0;
  for (ElfW(Half) i = 0; i < info->dlpi_phnum; ++i) {
    const ElfW(Phdr)& header = info->dlpi_phdr[i];
    if (header.p_type != PT_GNU_RELRO) continue;
    // The loader protects whole pages only, rounding the end down.
    const uintptr_t mask = ~(pageSize() - 1);
    image->relroStart = (image->base + header.p_vaddr) & mask;
    image->relroEnd = (image->base + header.p_vaddr + header.p_memsz) & mask;
  }
  return 1;
}

void writeSlot(void** slot, void* replacement, Image& image) {
  const uintptr_t address = reinterpret_cast<uintptr_t>(slot);
  const bool readOnly = address >= image.relroStart && address < image.relroEnd;
  void* page = reinterpret_cast<void*>(address & ~(pageSize() - 1));
  if (*slot != replacement) {
    if (readOnly && mprotect(page, pageSize(), PROT_READ | PROT_WRITE) != 0) return;
    *slot = replacement;
    if (readOnly) mprotect(page, pageSize(), PROT_READ);
  }
  image.patchedSlots.insert(slot);
}

template <class Relocation>
void patchRelocations(const void* table, size_t bytes, Image& image) {
  if (table == nullptr) return;
  const auto* relocations = static_cast<const Relocation*>(table);
  for (size_t i = 0; i < bytes / sizeof(Relocation); ++i) {
    const Relocation& relocation = relocations[i];
    const unsigned type = relocationType(relocation.r_info);
    if (type != kJumpSlot && type != kGlobalData) continue;
    const ElfW(Sym)& symbol = image.symbols[relocationSymbol(relocation.r_info)];
    void* replacement = replacementFor(image.names + symbol.st_name);
    if (replacement == nullptr) continue;
    writeSlot(reinterpret_cast<void**>(image.base + relocation.r_offset), replacement, image);
  }
}

}  // namespace

int AllocFaults::install(void* dlHandle) {
  link_map* library = nullptr;
  if (dlHandle == nullptr || dlinfo(dlHandle, RTLD_DI_LINKMAP, &library) != 0 || library == nullptr) return 0;
  Image image;
  image.base = library->l_addr;
  // The loader rewrites these entries to run-time addresses where the dynamic
  // section is writable and leaves them as offsets where it is not.
  const auto address = [&image](ElfW(Addr) value) -> const void* {
    return reinterpret_cast<const void*>(value < image.base ? value + image.base : value);
  };
  const void* pltRelocations = nullptr;
  size_t pltBytes = 0;
  bool pltIsRela = false;
  const void* rel = nullptr;
  size_t relBytes = 0;
  const void* rela = nullptr;
  size_t relaBytes = 0;
  for (const ElfW(Dyn)* entry = library->l_ld; entry->d_tag != DT_NULL; ++entry) {
    switch (entry->d_tag) {
      case DT_SYMTAB: image.symbols = static_cast<const ElfW(Sym)*>(address(entry->d_un.d_ptr)); break;
      case DT_STRTAB: image.names = static_cast<const char*>(address(entry->d_un.d_ptr)); break;
      case DT_JMPREL: pltRelocations = address(entry->d_un.d_ptr); break;
      case DT_PLTRELSZ: pltBytes = entry->d_un.d_val; break;
      case DT_PLTREL: pltIsRela = entry->d_un.d_val == DT_RELA; break;
      case DT_REL: rel = address(entry->d_un.d_ptr); break;
      case DT_RELSZ: relBytes = entry->d_un.d_val; break;
      case DT_RELA: rela = address(entry->d_un.d_ptr); break;
      case DT_RELASZ: relaBytes = entry->d_un.d_val; break;
      default: break;
    }
  }
  if (image.symbols == nullptr || image.names == nullptr) return 0;
  dl_iterate_phdr(&findRelro, &image);
  if (pltIsRela) {
    patchRelocations<ElfW(Rela)>(pltRelocations, pltBytes, image);
  } else {
    patchRelocations<ElfW(Rel)>(pltRelocations, pltBytes, image);
  }
  patchRelocations<ElfW(Rel)>(rel, relBytes, image);
  patchRelocations<ElfW(Rela)>(rela, relaBytes, image);
  return static_cast<int>(image.patchedSlots.size());
}

#endif

void AllocFaults::armFailure(int k) {
  failingAllocation.store(k > 0 ? allocationCount.load(std::memory_order_relaxed) + k : 0,
                          std::memory_order_relaxed);
}

int AllocFaults::allocations() { return allocationCount.load(std::memory_order_relaxed); }

void AllocFaults::reset() {
  failingAllocation.store(0, std::memory_order_relaxed);
  allocationCount.store(0, std::memory_order_relaxed);
}
