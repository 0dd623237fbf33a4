// A host program that calls the plug-in with whatever the input says: every
// registered extension method (the two setters included), the MemoryBlockVEK
// class's members and property getters, BytesVEK and both globals, in any
// order, with any argument values, on blocks whose storage ends at (or starts
// after) a PROT_NONE page. Calls go through the host's caller, from the
// registered declarations; the table below adds only what a declaration does
// not say: how far a call may reach and what it may write.
//
// Invariants checked after every call; a broken one aborts with a message,
// so that libFuzzer keeps the input:
//   - no byte outside a block or a raw buffer is touched (guard pages and
//     AddressSanitizer), and no undefined behaviour (UBSan);
//   - the reference ledger: the plug-in holds exactly one reference per open
//     MemoryBlockVEK instance (its Memory block) and no other, released
//     nothing it did not hold, lent no string data it did not get back, and
//     gave no service a nil, freed or foreign handle;
//   - at most one exception, of a class and message the plug-in raises, and
//     only with the neutral result;
//   - a call that raised or returned its neutral result (nil, False, a
//     negative search result, 0) changed no byte of any block or buffer, and
//     no call changed bytes other than those of the blocks or buffers its
//     method writes.
//
// Raw addresses (Ptr arguments, handles, blocks over an address, which report
// size 0 and are trusted with the caller's range) point only at buffers the
// fuzzer maps for the call, exactly as large as the call may touch there; a
// call that would need more than kMaxRaw bytes is not made. A block whose
// host reports a negative size is read as one of size 0, as the plug-in's
// pinned view reads it: its range is trusted, and a call is only made when
// that range lies inside the block's storage. Leaks of the plug-in's own
// memory are left to LeakSanitizer at the end of the run.
//
// Input layout (a missing byte reads as 0):
//   byte 0        bits 0-2: host version (kHosts), bit 3: guard page before
//                 the storage instead of after it
//   byte 1        number of blocks, 1 + value % 3
//   per block     2 bytes size (little-endian, 1 + value modulo kMaxBlock),
//                 1 byte content (kind in bits 0-1, see fill_bytes) and its
//                 parameter byte, 1 byte flags (bit 0: the host reports no
//                 data, bit 1: the host reports a negative size)
//   then calls    1 byte row (modulo the table), then each argument as its
//                 kind reads it (the read_* functions), until the input ends
//                 or kMaxCalls calls are made.
// An input that starts with "#vek" is the same bytes written as hex pairs,
// with '#' starting a comment to the end of the line (fuzz/corpus).
#include <algorithm>
#include <array>
#include <bit>
#include <cinttypes>
#include <cmath>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/caller.h"
#include "host/loaded_plugin.h"
#include "host/sim_host.h"
#include "tests/support/guarded_buffer.h"

namespace {

using caller::Kind;
using caller::Role;
using caller::Value;

constexpr size_t kMaxBlock = 8192;
constexpr int64_t kMaxRaw = 1 << 16;
constexpr int kMaxCalls = 48;
constexpr int kMaxBlocks = 3;
constexpr int kMaxValues = 12;  // the receiver or object, then the declared arguments
// MemoryBlockVEK sizes the allocator would have to commit are folded below this.
constexpr int64_t kMaxObjectSize = 1 << 20;

// Host versions: each registration path and each string-reading rule.
constexpr std::optional<double> kHosts[8] = {3000.0, 2020.0, std::nullopt, 2011.0,
                                             2012.5, 2013.0, 2013.03, 2014.0};

[[noreturn]] void fail(const char* format, ...) {
  std::va_list args;
  va_start(args, format);
  std::fputs("call_sequence_fuzzer: ", stderr);
  std::vfprintf(stderr, format, args);
  std::fputc('\n', stderr);
  va_end(args);
  std::abort();
}

// -- input ------------------------------------------------------------------------

class Reader {
 public:
  explicit Reader(std::vector<uint8_t> bytes) : bytes_(std::move(bytes)) {}
  bool done() const { return next_ >= bytes_.size(); }
  uint8_t u8() { return done() ? 0 : bytes_[next_++]; }
  uint64_t le(int count) {
    uint64_t value = 0;
    for (int i = 0; i < count; ++i) value |= uint64_t{u8()} << (8 * i);
    return value;
  }

 private:
  std::vector<uint8_t> bytes_;
  size_t next_ = 0;
};

int hex_digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  if (c >= 'a' && c <= 'f') return c - 'a' + 10;
  if (c >= 'A' && c <= 'F') return c - 'A' + 10;
  return -1;
}

// The readable form: hex pairs, anything else skipped, '#' to the end of a line.
std::vector<uint8_t> decode_input(const uint8_t* data, size_t size) {
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  if (!text.starts_with("#vek")) return std::vector<uint8_t>(data, data + size);
  std::vector<uint8_t> bytes;
  int high = -1;
  for (size_t i = 0; i < text.size(); ++i) {
    if (text[i] == '#') {
      while (i < text.size() && text[i] != '\n') ++i;
      high = -1;
      continue;
    }
    const int digit = hex_digit(text[i]);
    if (digit < 0) {
      high = -1;
    } else if (high < 0) {
      high = digit;
    } else {
      bytes.push_back(static_cast<uint8_t>(high << 4 | digit));
      high = -1;
    }
  }
  return bytes;
}

// Block and raw contents: 0 one value, 1 a ramp, 2 pseudo-random, 3 a run of
// the input repeated.
void fill_bytes(uint8_t* out, size_t size, uint8_t kind, Reader& in) {
  const uint8_t parameter = in.u8();
  switch (kind & 3) {
    case 0:
      std::memset(out, parameter, size);
      break;
    case 1:
      for (size_t i = 0; i < size; ++i) out[i] = static_cast<uint8_t>(i * parameter + (i >> 8));
      break;
    case 2: {
      uint32_t state = 0x9E3779B9u ^ parameter;
      for (size_t i = 0; i < size; ++i) {
        state ^= state << 13;
        state ^= state >> 17;
        state ^= state << 5;
        out[i] = static_cast<uint8_t>(state);
      }
      break;
    }
    default: {
      uint8_t run[32];
      const size_t length = parameter % 32 + 1;
      for (size_t i = 0; i < length; ++i) run[i] = in.u8();
      for (size_t i = 0; i < size; ++i) out[i] = run[i % length];
      break;
    }
  }
}

// -- the call table -----------------------------------------------------------------

// What a call may touch behind the raw buffers of its values: need[k] bytes
// from the start of value k's buffer (the receiver is value 0). size[k] is
// what the host reports for a block value (0 for one over a raw buffer).
struct Reach {
  const Value* v;
  const int64_t* size;
  const bool* raw;
  int64_t need[kMaxValues] = {};

  int64_t i(int k) const { return v[k].i; }
  // `count` bytes from `offset`; nothing when either is out of range.
  void span(int k, int64_t offset, int64_t count) {
    if (offset >= 0 && count > 0) need[k] = std::max(need[k], offset + count);
  }
  void bits(int k, int64_t first, int64_t count) {
    if (first >= 0 && count > 0) need[k] = std::max(need[k], (first + count + 7) / 8);
  }
};

int64_t whole(int64_t count, int64_t unit) { return count / unit * unit; }
int64_t up_to(int64_t count, int64_t unit) { return count <= 0 ? count : (count + unit - 1) / unit * unit; }

struct Row {
  const char* name;
  Role role;
  int arity;  // the called arguments, where overloads share a name; 0 otherwise
  void (*reach)(Reach&);
  uint32_t writes;  // bit k: value k's bytes may change
  bool handle = false;  // its address argument is a handle: a pointer to the bytes' address
};

constexpr uint32_t W(int k) { return 1u << k; }
void none(Reach&) {}
void span12(Reach& r) { r.span(0, r.i(1), r.i(2)); }
// Copies between the receiver's run and value 3 (a block, Ptr or handle) from its start.
void out_to3(Reach& r) { span12(r), r.span(3, 0, r.i(2)); }
void in_from1(Reach& r) { r.span(1, 0, r.i(2)), r.span(0, r.i(3), r.i(2)); }
void two_runs(Reach& r) { span12(r), r.span(3, r.i(4), r.i(2)); }

// The pixel methods: a block of size 0 is trusted with ceil(Length / 4) pixels.
void pixels(Reach& r, int offset) { r.span(0, r.i(offset), up_to(r.i(offset + 1), 4)); }

// The float-pair conversions: Z records, cut to what both known blocks hold.
void records(Reach& r) {
  int64_t z = r.i(2);
  if (!r.raw[0]) z = std::min(z, (r.size[0] - r.i(1)) / 8);
  if (!r.raw[3]) z = std::min(z, r.size[3] / 8);
  r.span(0, r.i(1), 8 * z);
  r.span(3, 0, 8 * z);
}

// MinVEK and MaxVEK: the sources hold as many elements as the range.
void elementwise(Reach& r) {
  const int64_t bits = r.i(3);
  if (bits != 8 && bits != 16 && bits != 32 && bits != 64) return;
  const int64_t width = bits / 8, offset = r.i(5), length = r.i(6);
  int64_t range = 0;
  if (r.raw[0]) {
    range = length;
  } else if (offset >= 0 && offset < r.size[0]) {
    range = length > 0 ? std::min(length, r.size[0] - offset) : r.size[0] - offset;
  }
  const int64_t bytes = whole(range, width);
  r.span(0, offset, bytes);
  r.span(1, 0, bytes);
  r.span(2, 0, bytes);
}

// CopyNthBytesVEK cuts the output at the destination's end first; only the
// runs that still write anything are read, and the backward-walk refusal
// looks at the last of those.
void nth_bytes(Reach& r) {
  const int64_t from = r.i(2), to = r.i(3), count = r.i(4), step = r.i(5), steps = r.i(6);
  if (steps <= 0 || count <= 0 || from < 0 || to < 0) return;
  int64_t out = steps * count;
  if (!r.raw[0]) out = std::min(out, r.size[0] - to);
  if (out <= 0) return;
  r.span(0, to, out);
  const int64_t runs = (out + count - 1) / count;
  const int64_t last = from + (runs - 1) * step;
  if (last < 0) return;
  // Runs longer than the step overlap: the one before the last, whole, may
  // reach further than the last, which may be cut.
  int64_t end = std::max(from + std::min(count, out), last + out - (runs - 1) * count);
  if (runs >= 2) end = std::max(end, from + (runs - 2) * step + count);
  r.span(1, 0, end);
}

void nth_bits(Reach& r) {
  const int64_t from = r.i(2), to = r.i(3), count = r.i(4), step = std::max<int64_t>(0, r.i(5)), steps = r.i(6);
  if (steps > 0 && count > 0) {
    r.bits(0, to, steps * count);
    r.bits(1, from, (steps - 1) * (count + step) + count);
  } else if (to >= 0 && to % 8 != 0) {
    r.span(0, to / 8, 1);  // the byte the offset falls in is cleared
  }
}

void expand(Reach& r) {
  const int64_t count = up_to(r.i(2), 4);
  r.span(0, 0, count);
  r.span(1, 0, 8 * count);
}

// In the order of the first byte of a call (the seeds in fuzz/corpus use it).
constexpr Role M = Role::Method;
const Row kRows[] = {
    // colour and signal
    {"ConvertRGB12BitTo8BitVEK", M, 0, [](Reach& r) { r.span(0, 0, 9 * r.i(1)); }, W(0)},
    {"_Calc3te", M, 0, [](Reach& r) { pixels(r, 10); }, W(0)},
    {"_Calc2teCMY", M, 0, [](Reach& r) { pixels(r, 2); }, W(0)},
    {"_Calc2teCMYK", M, 0, [](Reach& r) { pixels(r, 2); }, W(0)},
    {"_CalcLogSweepTableVEK", M, 0, [](Reach& r) { r.span(0, r.i(1), 8 * r.i(2)); }, W(0)},
    {"_ConvertPolarToCartesian", M, 0, records, W(0)},
    {"_ConvertCartesianToPolar", M, 0, records, W(0)},
    // numeric
    {"MultiplyUInt16VEK", M, 0, [](Reach& r) { r.span(0, r.i(2), whole(r.i(3), 2)); }, W(0)},
    {"MultiplyUInt8VEK", M, 0, [](Reach& r) { r.span(0, r.i(2), r.i(3)); }, W(0)},
    {"MinVEK", M, 0, elementwise, W(0)},
    {"MaxVEK", M, 0, elementwise, W(0)},
    // mirroring
    {"MirrorBitsInBytesVEK", M, 0, span12, W(0)},
    {"MirrorBytesVEK", M, 0, span12, W(0)},
    {"MirrorBitsVEK", M, 0, [](Reach& r) { r.bits(0, r.i(1), r.i(2)); }, W(0)},
    // addresses and fields
    {"AddressVEK", M, 0, none, 0},
    {"AddressPtrVEK", M, 0, none, 0},
    {"OSTypeVEK", M, 0, [](Reach& r) { r.span(0, r.i(1), 4); }, 0},
    {"OSTypeVEK", Role::Setter, 0, [](Reach& r) { r.span(0, r.i(1), 4); }, W(0)},
    {"GetStringVEK", M, 0, span12, 0},
    {"SetStringVEK", M, 0, [](Reach& r) { r.span(0, r.i(2), r.i(1)); }, W(0)},
    // byte swapping
    {"SwapBytesVEK", M, 0, span12, W(0)},
    {"SwapBytes16VEK", M, 0, [](Reach& r) { r.span(0, r.i(1), whole(r.i(2), 2)); }, W(0)},
    {"SwapBytes32VEK", M, 0, [](Reach& r) { r.span(0, r.i(1), whole(r.i(2), 4)); }, W(0)},
    // compare and search
    {"BytesEqualVEK", M, 0, two_runs, 0},
    {"BytesZeroVEK", M, 0, span12, 0},
    {"FindNotByteVEK", M, 0, span12, 0},
    {"FindByteVEK", M, 0, span12, 0},
    // copies
    {"CopyBytesVEK", M, 4, [](Reach& r) { span12(r), r.span(0, r.i(3), r.i(2)); }, W(0)},
    {"CopyBytesVEK", M, 5, two_runs, W(3)},
    {"CopyBytesToMacPtrVEK", M, 0, out_to3, W(3)},
    {"CopyBytesFromMacPtrVEK", M, 0, in_from1, W(0)},
    {"CopyBytesToMacHandleVEK", M, 0, out_to3, W(3), true},
    {"CopyBytesFromMacHandleVEK", M, 0, in_from1, W(0), true},
    {"FindStringVEK", M, 0, span12, 0},
    {"FindBytesVEK", M, 0, [](Reach& r) { span12(r), r.span(3, r.i(4), r.i(5)); }, 0},
    {"FSSpecVEK", M, 0, [](Reach& r) { r.span(0, r.i(1), 70); }, 0},
    {"FSSpecVEK", Role::Setter, 0, [](Reach& r) { r.span(0, r.i(1), 70); }, W(0)},
    // sub-blocks: a block of size 0 has nothing to give
    {"MidVEK", M, 2, none, 0},
    {"MidVEK", M, 3, none, 0},
    {"LeftVEK", M, 0, none, 0},
    {"RightVEK", M, 0, none, 0},
    {"AppendVEK", M, 0, none, 0},
    // fill and invert
    {"FillBytesVEK", M, 0, span12, W(0)},
    {"InvertBytesVEK", M, 0, span12, W(0)},
    // strided copies
    {"CopyNthBytesVEK", M, 0, nth_bytes, W(0)},
    {"CopyNthBitsVEK", M, 0, nth_bits, W(0)},
    {"ExpandBitsVEK", M, 0, expand, W(1)},
    // the rest of the registration
    {"BytesVEK", Role::Getter, 0, none, 0},
    {"NewMemoryBlockFromPtrVEK", M, 0, none, 0},
    // a size of INT32_MAX is refused before any byte is read
    {"NewMemoryBlockWithBytesVEK", M, 0, [](Reach& r) { if (r.i(2) != INT32_MAX) r.span(1, 0, r.i(2)); }, 0},
    {"Create", M, 0, none, 0},
    {"Resize", M, 0, none, 0},
    {"Close", M, 0, none, 0},
    {"Address", Role::Getter, 0, none, 0},
    {"Size", Role::Getter, 0, none, 0},
    {"Memory", Role::Getter, 0, none, 0},
};

struct Session {
  std::unique_ptr<SimHost> host;
  std::unique_ptr<LoadedPlugin> plugin;
  std::vector<caller::Registered> calls;
  std::vector<const caller::Registered*> functions;  // per row; null where this host took none
  const caller::Registered* object_size = nullptr;
};

Session& session_for(int version, GuardSide side) {
  static Session sessions[std::size(kHosts)][2];
  Session& s = sessions[version][side == GuardSide::Before];
  if (s.host == nullptr) {
    const Placement placement = side == GuardSide::Before ? Placement::GuardBefore : Placement::GuardAfter;
    s.host = std::make_unique<SimHost>(HostConfig{.version = kHosts[version], .placement = placement});
    // VEK_FUZZ_PLUGIN names another build of the plug-in to load.
    const char* path = std::getenv("VEK_FUZZ_PLUGIN");
    s.plugin = std::make_unique<LoadedPlugin>(path != nullptr ? path : VEK_PLUGIN_PATH);
    s.plugin->start(*s.host);
    s.calls = caller::registered_calls(s.host->registry());
    for (const Row& row : kRows) s.functions.push_back(caller::find_named(s.calls, row.name, row.role, row.arity));
    s.object_size = s.functions[std::size(kRows) - 2];
    if (s.object_size == nullptr) fail("the MemoryBlockVEK class is not registered");
  }
  s.host->makeCurrent();
  return s;
}

// -- argument values --------------------------------------------------------------------

// Each reader maps its first byte onto an edge value, or onto a value it
// reads next from the input.
int32_t read_int(Reader& in, int64_t receiver_size) {
  constexpr int32_t kEdges[20] = {0, 1, -1, INT32_MIN, INT32_MAX, INT32_MIN + 1, INT32_MAX - 1, 0, 0, 0,
                                  0, 0, 0,  0,         0,         2,             4,             8, 16, 255};
  const uint8_t s = in.u8();
  switch (s % 20) {
    case 7: return static_cast<int8_t>(in.u8());
    case 8: return in.u8();
    case 9: return static_cast<int32_t>(in.le(2));
    case 10: return static_cast<int32_t>(static_cast<uint32_t>(in.le(4)));
    case 11: return static_cast<int32_t>(receiver_size + static_cast<int8_t>(in.u8()));
    case 12: return static_cast<int32_t>(8 * receiver_size + static_cast<int8_t>(in.u8()));
    case 13: return int32_t{1} << (in.u8() % 31);
    case 14: return -(int32_t{1} << (in.u8() % 31));
    case 19: return s % 2 ? 255 : 256;
    default: return kEdges[s % 20];
  }
}

int64_t read_int64(Reader& in, int64_t receiver_size) {
  constexpr int64_t kEdges[8] = {0, 1, -1, INT64_MIN, INT64_MAX, INT32_MAX, int64_t{INT32_MAX} + 1, UINT32_MAX};
  const uint8_t s = in.u8();
  switch (s % 12) {
    case 8: return static_cast<int8_t>(in.u8());
    case 9: return static_cast<int64_t>(in.le(8));
    case 10: return receiver_size + static_cast<int8_t>(in.u8());
    case 11: return static_cast<int64_t>(in.le(2));
    default: return kEdges[s % 12];
  }
}

double read_double(Reader& in) {
  using limits = std::numeric_limits<double>;
  constexpr double kEdges[14] = {0.0, -0.0, 1.0, -1.0, 0.5, 1.5, 2.0, 255.5, limits::quiet_NaN(), limits::infinity(),
                                 -limits::infinity(), limits::max(), limits::denorm_min(), -3000000001.0};
  const uint8_t s = in.u8();
  if (s % 16 == 14) return std::bit_cast<double>(in.le(8));
  if (s % 16 == 15) return static_cast<int8_t>(in.u8()) / 16.0;
  return kEdges[s % 16];
}

constexpr uint32_t kEncodings[] = {kEncodingASCII, kEncodingMacRoman, kEncodingWindowsLatin1, kEncodingUnknown,
                                   kEncodingUTF8,  kEncodingUTF16,    kEncodingUTF32,         0x12345};

// What a block, Ptr or address value stands for before the call.
enum class Source : uint8_t { Nil, Block, Raw, HandleToNil };

struct Slot {
  Source source = Source::Nil;
  int block = 0;      // Source::Block: which of the input's blocks
  int alias = -1;     // the receiver passed as this argument: value 0's slot
  uint8_t fill = 0;   // contents of a raw buffer
};

struct Region {
  uint8_t* data;
  size_t size;
  uint32_t owners;  // the values whose bytes these are
  std::string what;
};

// Whether a result is the one a refused call gives: nil, False, a negative
// search result, or 0.
bool neutral(const Value& result) {
  switch (result.kind) {
    case Kind::Boolean: return result.i == 0;
    case Kind::Integer: return result.i < 0;
    default: return result.i == 0 && result.u == 0 && result.p == nullptr;
  }
}

bool is_handle(Kind kind) { return kind == Kind::MemoryBlock || kind == Kind::String || kind == Kind::FolderItem; }

// VEK_FUZZ_TRACE=1 in the environment prints every call and its values.
const bool trace = std::getenv("VEK_FUZZ_TRACE") != nullptr;
uint64_t calls_made = 0;  // reported when the process ends

struct Run {
  Run(Session& session, Reader& input, GuardSide guard) : s(session), in(input), side(guard) {}

  Session& s;
  Reader& in;
  GuardSide side;
  std::vector<REALmemoryBlock> blocks;
  std::vector<int64_t> reported;  // per block: the size the host reports
  REALobject objects[2] = {};
  std::vector<uint8_t> before;

  // Everything given back; destroying an instance closes it. The host must
  // then hold nothing for the plug-in, whatever the input did.
  void finish() {
    for (REALmemoryBlock block : std::exchange(blocks, {})) s.host->release(block);
    for (REALobject& object : objects) s.host->release(std::exchange(object, nullptr));
    if (!s.host->takeRaised().empty()) fail("destroying an instance raised an exception");
    check_ledger("the end of the input", -1);
  }

  int open_objects() {
    int open = 0;
    for (REALobject object : objects) {
      open += object != nullptr &&
              caller::call(*s.object_size, {Value::handle(Kind::Object, object), Value::integer(0)}).i != 0;
    }
    return open;
  }

  void check_ledger(const char* name, int call) {
    const LedgerReport ledger = s.host->ledger();
    if (ledger.pluginHeld != open_objects() || ledger.overReleased != 0 || ledger.invalidHandles != 0 ||
        ledger.outstandingStringData != 0) {
      fail("call %d, %s: the ledger is off (held %d with %d open objects, over-released %d, invalid %d, "
           "string data %d):\n%s",
           call, name, ledger.pluginHeld, open_objects(), ledger.overReleased, ledger.invalidHandles,
           ledger.outstandingStringData, ledger.text().c_str());
    }
  }

  Slot read_slot(Kind kind, bool handle, int index) {
    const uint8_t s = in.u8();
    Slot slot;
    if (kind == Kind::MemoryBlock) {
      switch (s % 6) {
        case 0: break;
        case 4:
          if (index != 0) {
            slot.alias = 0;
            break;
          }
          [[fallthrough]];
        case 5: slot.source = Source::Raw; break;
        default:
          slot.source = Source::Block;
          slot.block = (s % 6 - 1) % static_cast<int>(blocks.size());
      }
    } else if (handle) {
      const Source choices[] = {Source::Nil, Source::HandleToNil, Source::Raw, Source::Raw};
      slot.source = choices[s % 4];
    } else {  // Ptr, address
      slot.source = s % 4 == 0 ? Source::Nil : Source::Raw;
    }
    if (slot.source == Source::Raw) slot.fill = in.u8();
    return slot;
  }

  // A pointer-sized buffer holding `address`: a handle's master pointer.
  intptr_t master_pointer(std::vector<std::unique_ptr<GuardedBuffer>>& buffers, std::vector<Region>& regions,
                          const void* address, int j) {
    buffers.push_back(std::make_unique<GuardedBuffer>(sizeof(void*), side));
    std::memcpy(buffers.back()->data(), &address, sizeof address);
    regions.push_back({buffers.back()->data(), sizeof(void*), 0, "master pointer of value " + std::to_string(j)});
    return reinterpret_cast<intptr_t>(buffers.back()->data());
  }

  void call(int number) {
    const size_t index = in.u8() % std::size(kRows);
    const Row& row = kRows[index];
    const caller::Registered* fn = s.functions[index];
    if (fn == nullptr) return;  // not registered on this host

    const std::vector<Kind>& kinds = fn->signature.args;
    const int first = fn->signature.receiver ? 0 : 1;  // globals leave value 0 unused
    const int count = first + static_cast<int>(kinds.size());
    Value v[kMaxValues];
    Slot slots[kMaxValues];
    bool is_slot[kMaxValues] = {};
    int64_t size[kMaxValues] = {};
    bool raw[kMaxValues] = {};
    auto size_of = [&](const Slot& slot) -> int64_t {
      return slot.source == Source::Block ? reported[slot.block] : 0;
    };
    int64_t receiver_size = 0;

    // Scalars now; the strings and folder items they come with are made here
    // and given back after the call.
    std::vector<const void*> made;
    for (int k = first; k < count; ++k) {
      const Kind kind = kinds[k - first];
      v[k].kind = kind;
      switch (kind) {
        case Kind::Object: {
          REALobject& object = objects[in.u8() % 2];
          if (object == nullptr) object = s.host->newInstance("MemoryBlockVEK");
          v[k].p = object;
          break;
        }
        case Kind::Integer: v[k].i = read_int(in, receiver_size); break;
        case Kind::Int64: {
          int64_t value = read_int64(in, receiver_size);
          if (kinds[0] == Kind::Object && value > kMaxObjectSize && value <= INT32_MAX) value %= kMaxObjectSize;
          v[k].i = value;
          break;
        }
        case Kind::Double: v[k].d = read_double(in); break;
        case Kind::Boolean: v[k].i = in.u8(); break;
        case Kind::String: {
          const uint8_t s8 = in.u8();
          if (s8 % 8 == 0) break;  // nil
          const size_t length = s8 % 8 == 1 ? 0 : in.u8() % 40;
          std::string text(length, '\0');
          for (char& c : text) c = static_cast<char>(in.u8());
          const uint32_t encoding = kEncodings[(s8 >> 3) % std::size(kEncodings)];
          v[k].p = const_cast<void*>(static_cast<const void*>(s.host->newString(text, encoding)));
          v[k].i = static_cast<int64_t>(length);  // what SetStringVEK writes
          made.push_back(v[k].p);
          break;
        }
        case Kind::FolderItem: {
          if (in.u8() % 4 == 0) break;  // nil
          std::array<uint8_t, 70> spec{};
          fill_bytes(spec.data(), spec.size(), in.u8(), in);
          v[k].p = const_cast<void*>(static_cast<const void*>(s.host->newFolderItem(spec)));
          made.push_back(v[k].p);
          break;
        }
        default:  // blocks, Ptr, addresses
          slots[k] = read_slot(kind, row.handle, k);
          is_slot[k] = true;
          if (k == 0) receiver_size = size_of(slots[0]);
      }
    }

    // Raw buffers, as large as the call may touch there.
    for (int j = 0; j < count; ++j) {
      if (!is_slot[j]) continue;
      if (slots[j].alias >= 0) slots[j] = slots[slots[j].alias], slots[j].alias = 0;
      // A block whose host reports a negative size counts as one of size 0:
      // its range is the caller's to keep inside the storage.
      size[j] = std::max<int64_t>(0, size_of(slots[j]));
      raw[j] = slots[j].source == Source::Raw || (slots[j].source == Source::Block && size[j] == 0);
    }
    Reach reach{v, size, raw};
    row.reach(reach);
    for (int j = 1; j < count; ++j) {
      if (is_slot[j] && slots[j].alias == 0 && raw[0]) reach.need[0] = std::max(reach.need[0], reach.need[j]);
    }
    for (int j = 0; j < count; ++j) {
      const int64_t room = is_slot[j] && slots[j].source == Source::Block
                               ? static_cast<int64_t>(s.host->bytes(blocks[slots[j].block]).size())
                               : kMaxRaw;
      if (raw[j] && reach.need[j] > room) {
        for (const void* handle : made) s.host->release(handle);
        return;  // more than the fuzzer hands out: not a call it can make safely
      }
    }

    std::vector<std::unique_ptr<GuardedBuffer>> buffers;
    std::vector<Region> regions;
    for (size_t b = 0; b < blocks.size(); ++b) {
      auto bytes = s.host->bytes(blocks[b]);
      regions.push_back({bytes.data(), bytes.size(), 0, "block " + std::to_string(b)});
    }
    for (int j = 0; j < count; ++j) {
      if (!is_slot[j]) continue;
      const Slot& slot = slots[j];
      if (slot.alias == 0) {
        for (Region& region : regions) region.owners |= (region.owners & W(0)) ? W(j) : 0;
      } else if (slot.source == Source::Block) {
        v[j].p = blocks[slot.block];
        regions[slot.block].owners |= W(j);
      } else if (slot.source == Source::HandleToNil) {
        v[j].i = master_pointer(buffers, regions, nullptr, j);
      } else if (slot.source == Source::Raw) {
        buffers.push_back(std::make_unique<GuardedBuffer>(static_cast<size_t>(reach.need[j]), side));
        GuardedBuffer& buffer = *buffers.back();
        fill_bytes(buffer.data(), buffer.size(), slot.fill, in);
        regions.push_back({buffer.data(), buffer.size(), W(j), "raw buffer of value " + std::to_string(j)});
        if (v[j].kind == Kind::MemoryBlock) {
          v[j].p = s.host->ptrBlock(buffer.data());
          made.push_back(v[j].p);
        } else if (row.handle) {
          v[j].i = master_pointer(buffers, regions, buffer.data(), j);
        } else if (v[j].kind == Kind::Address) {
          v[j].i = reinterpret_cast<intptr_t>(buffer.data());
        } else {
          v[j].p = buffer.data();
        }
      }
    }
    // A receiver over a raw buffer, passed again as an argument, shares its handle.
    for (int j = 1; j < count; ++j) {
      if (is_slot[j] && slots[j].alias == 0) v[j] = v[0];
    }

    const std::string& name = fn->declaration;
    if (trace) {
      std::fprintf(stderr, "call %d: %s%s\n", number, row.role == Role::Setter ? "(setter) " : "", name.c_str());
      for (int j = 0; j < count; ++j) {
        std::fprintf(stderr, "  value %d: %" PRId64 " / %g / %p%s, needs %" PRId64 "\n", j, v[j].i, v[j].d, v[j].p,
                     raw[j] ? " (raw)" : "", reach.need[j]);
      }
    }
    before.clear();
    for (const Region& region : regions) before.insert(before.end(), region.data, region.data + region.size);

    const Value result = caller::call(*fn, std::span<const Value>(v + first, v + count));
    ++calls_made;

    const std::vector<Raised> raised = s.host->takeRaised();
    if (raised.size() > 1) fail("call %d, %s: %zu exceptions raised", number, name.c_str(), raised.size());
    const bool has_result = result.kind != Kind::None;
    if (!raised.empty()) {
      const Raised& e = raised.front();
      const std::string message = e.message.value_or("(nil)");
      const bool known = (e.className == "NilObjectException" &&
                          (message == "memoryblock is nil" || message == "ptr is nil")) ||
                         (e.className == "UnsupportedOperationException" && message == "offset < 0") ||
                         (e.className == "OutOfMemoryException" &&
                          (message.starts_with("Failed to allocate a memoryblock with ") ||
                           message == "Failed to allocate memory for a string."));
      if (!known || e.errorNumber != 0) {
        fail("call %d, %s: raised %s \"%s\" (%d)", number, name.c_str(), e.className.c_str(), message.c_str(),
             e.errorNumber);
      }
      if (has_result && !neutral(result)) {
        fail("call %d, %s: raised %s \"%s\" but gave a result", number, name.c_str(), e.className.c_str(),
             message.c_str());
      }
    }
    const bool refused = !raised.empty() || (has_result && neutral(result));

    size_t at = 0;
    for (const Region& region : regions) {
      if (std::memcmp(before.data() + at, region.data, region.size) != 0) {
        size_t first_changed = 0;
        while (before[at + first_changed] == region.data[first_changed]) ++first_changed;
        if (refused || (region.owners & row.writes) == 0) {
          fail("call %d, %s: %s (%zu bytes) changed at byte %zu%s", number, name.c_str(), region.what.c_str(),
               region.size, first_changed, refused ? " by a refused call" : ", which it does not write");
        }
      }
      at += region.size;
    }

    if (is_handle(result.kind) && result.p != nullptr) {
      s.host->adopt(result.p);
      s.host->release(result.p);
    }
    for (const void* handle : made) s.host->release(handle);
    check_ledger(name.c_str(), number);
  }
};

}  // namespace

extern "C" int LLVMFuzzerInitialize(int*, char***) {
  std::atexit([] { std::fprintf(stderr, "call_sequence_fuzzer: %" PRIu64 " calls made\n", calls_made); });
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  Reader in(decode_input(data, size));
  const uint8_t setup = in.u8();
  const GuardSide side = setup & 8 ? GuardSide::Before : GuardSide::After;
  Session& session = session_for(setup % 8, side);

  Run run(session, in, side);
  const int block_count = in.u8() % kMaxBlocks + 1;
  for (int b = 0; b < block_count; ++b) {
    // Never 0: the plug-in trusts the range on a block of size 0, which only
    // a raw buffer sized for the call may stand for.
    const size_t block_size = in.le(2) % kMaxBlock + 1;
    const uint8_t kind = in.u8();
    std::vector<uint8_t> bytes(block_size);
    fill_bytes(bytes.data(), bytes.size(), kind, in);
    const uint8_t flags = in.u8();
    REALmemoryBlock block = session.host->newBlock(bytes);
    run.blocks.push_back(block);
    run.reported.push_back(static_cast<int64_t>(block_size));
    if (flags & 1) session.host->overrideReportedData(block, nullptr);
    if (flags & 2) {
      session.host->overrideReportedSize(block, -static_cast<int32_t>(block_size) - 1);
      run.reported.back() = -static_cast<int64_t>(block_size) - 1;
    }
  }
  for (int call = 0; call < kMaxCalls && !in.done(); ++call) run.call(call);
  run.finish();
  return 0;
}
