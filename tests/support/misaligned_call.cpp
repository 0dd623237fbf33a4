#include "tests/support/misaligned_call.h"

#include <cstdint>
#include <stdexcept>

#if !defined(__i386__) || !defined(__ELF__)
#error "the thunks are i386 ELF code"
#endif

// How many functions a run may hand out; the plug-in registers about 60.
#define VEK_THUNKS 128
// Argument words copied to the misaligned stack: more than any registered
// function takes (13 at most). cdecl leaves the arguments to the caller, so
// words past the real ones are copied from the caller's frame and ignored.
#define VEK_ARGUMENT_WORDS 24
#define VEK_STRING(x) #x
#define VEK_XSTRING(x) VEK_STRING(x)

extern "C" {
[[gnu::visibility("hidden")]] const void* vek_thunk_targets[VEK_THUNKS];
[[gnu::visibility("hidden")]] uint32_t vek_thunk_misalignment;
[[gnu::visibility("hidden")]] uint32_t vek_thunk_calls;
[[gnu::visibility("hidden")]] extern const char vek_thunks[];  // VEK_THUNKS thunks of 16 bytes
}

// Thunk i puts i in eax and goes on to the common body, which keeps the
// callee-saved registers, makes a new argument area below its own frame with
// esp % 16 == vek_thunk_misalignment at the call, copies the incoming
// arguments there and calls vek_thunk_targets[i]. It gives back eax, edx and
// st(0) as the target left them, so every result type passes through.
// Position-independent: the data is reached from the GOT's address.
asm(R"(
        .pushsection .text
        .p2align 4
        .type vek_thunks, @function
vek_thunks:
        .set vek_thunk_index, 0
        .rept )" VEK_XSTRING(VEK_THUNKS) R"(
        .p2align 4
        movl $vek_thunk_index, %eax
        jmp vek_thunk_body
        .set vek_thunk_index, vek_thunk_index + 1
        .endr
        .size vek_thunks, . - vek_thunks

        .p2align 4
        .type vek_thunk_body, @function
vek_thunk_body:
        pushl %ebp
        movl %esp, %ebp
        pushl %ebx
        pushl %esi
        pushl %edi
        call 1f
1:      popl %ebx
        addl $_GLOBAL_OFFSET_TABLE_ + (. - 1b), %ebx
        incl vek_thunk_calls@GOTOFF(%ebx)
        movl vek_thunk_targets@GOTOFF(%ebx, %eax, 4), %edx
        leal -(4 * )" VEK_XSTRING(VEK_ARGUMENT_WORDS) R"( + 16)(%esp), %edi
        andl $-16, %edi
        addl vek_thunk_misalignment@GOTOFF(%ebx), %edi
        movl %edi, %esp
        leal 8(%ebp), %esi
        movl $)" VEK_XSTRING(VEK_ARGUMENT_WORDS) R"(, %ecx
        cld
        rep movsl
        call *%edx
        leal -12(%ebp), %esp
        popl %edi
        popl %esi
        popl %ebx
        popl %ebp
        ret
        .size vek_thunk_body, . - vek_thunk_body
        .popsection
)");

namespace misaligned_call {

void reset(int misalignment) {
  if (misalignment < 0 || misalignment > 12 || misalignment % 4 != 0) throw std::invalid_argument("misalignment");
  for (const void*& target : vek_thunk_targets) target = nullptr;
  vek_thunk_misalignment = static_cast<uint32_t>(misalignment);
  vek_thunk_calls = 0;
}

const void* stand_in(const void* function) {
  for (int i = 0; i < VEK_THUNKS; ++i) {
    if (vek_thunk_targets[i] == nullptr) vek_thunk_targets[i] = function;
    if (vek_thunk_targets[i] == function) return vek_thunks + 16 * i;
  }
  throw std::length_error("every thunk is taken");
}

std::set<const void*> functions() {
  std::set<const void*> handed_out;
  for (const void* target : vek_thunk_targets) {
    if (target != nullptr) handed_out.insert(target);
  }
  return handed_out;
}

int calls() { return static_cast<int>(vek_thunk_calls); }

}  // namespace misaligned_call
