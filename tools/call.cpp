#include "tools/call.h"

#include <algorithm>
#include <array>
#include <cctype>
#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <fstream>
#include <iterator>
#include <optional>
#include <stdexcept>
#include <vector>

#include "host/caller.h"
#include "host/loaded_plugin.h"
#include "host/sim_host.h"

using caller::Kind;
using caller::Registered;
using caller::Role;
using caller::Value;

const char* const kCallUsage =
    "       vekhost call [--host-version V|none] [--plugin PATH] [--block HEX|@FILE|nil]\n"
    "                    [--block NAME=HEX|@FILE]... METHOD [ARG]... [= VALUE]\n"
    "           calls METHOD on the block (MemoryBlockVEK's members on a new instance)\n"
    "           and prints the result, any exception, and every block before and after\n"
    "           with the changed bytes marked. ARG and VALUE: 12, -1, 0x7F, 1.5,\n"
    "           true, false, nil, '\"text\"', a block NAME (as a FolderItem: one whose\n"
    "           record is the block's first 70 bytes), NAME+4 (an address in it),\n"
    "           '&NAME' (a handle to its bytes). \"= VALUE\" calls the setter.\n";

namespace {
using Bytes = std::vector<uint8_t>;

[[noreturn]] void fail(const std::string& message) { throw std::runtime_error(message); }

struct Request {
  std::optional<double> version = 3000.0;
  std::string plugin;
  std::optional<std::string> receiver;  // the block the method is called on, as given
  std::vector<std::pair<std::string, std::string>> blocks;  // NAME, as given
  std::string method;
  std::vector<std::string> args;
  std::optional<std::string> assigned;
};

Request parse_request(std::span<char* const> words, const std::string& plugin) {
  Request request;
  request.plugin = plugin;
  bool assigning = false;
  for (size_t i = 0; i < words.size(); ++i) {
    std::string word = words[i];
    bool has_value = i + 1 < words.size();
    if (word == "--host-version" && has_value) {
      std::string value = words[++i];
      char* end = nullptr;
      if (value == "none") {
        request.version.reset();
      } else if (request.version = std::strtod(value.c_str(), &end); end == value.c_str() || *end != '\0') {
        fail("--host-version: \"" + value + "\" is not a number");
      }
    } else if (word == "--plugin" && has_value) {
      request.plugin = words[++i];
    } else if (word == "--block" && has_value) {
      std::string value = words[++i];
      size_t equals = value.find('=');
      if (equals == std::string::npos) {
        request.receiver = value;
      } else {
        request.blocks.emplace_back(value.substr(0, equals), value.substr(equals + 1));
      }
    } else if (word.starts_with("--")) {
      fail("call: unknown option " + word);
    } else if (request.method.empty()) {
      request.method = word;
    } else if (word == "=" && !assigning) {
      assigning = true;
    } else if (assigning) {
      if (request.assigned) fail("call: one value after \"=\"");
      request.assigned = word;
    } else {
      request.args.push_back(word);
    }
  }
  if (request.method.empty()) fail("call: which method?");
  if (assigning && !request.assigned) fail("call: a value after \"=\"");
  return request;
}

Bytes block_bytes(const std::string& name, const std::string& given) {
  if (given.starts_with('@')) {
    std::ifstream in(given.substr(1), std::ios::binary);
    if (!in) fail("--block " + name + ": cannot read " + given.substr(1));
    return Bytes(std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>());
  }
  Bytes bytes;
  if (given.size() % 2 != 0 || given.find_first_not_of("0123456789abcdefABCDEF") != std::string::npos) {
    fail("--block " + name + ": \"" + given + "\" is not hex (two digits a byte), @FILE or nil");
  }
  for (size_t i = 0; i < given.size(); i += 2) {
    bytes.push_back(static_cast<uint8_t>(std::strtoul(given.substr(i, 2).c_str(), nullptr, 16)));
  }
  return bytes;
}

// A whole-text integer: decimal or 0x hex, with an optional minus sign.
std::optional<int64_t> whole_integer(const std::string& text, int64_t low, int64_t high) {
  const char* digits = text.c_str() + (text.starts_with('-') ? 1 : 0);
  int base = std::strncmp(digits, "0x", 2) == 0 || std::strncmp(digits, "0X", 2) == 0 ? 16 : 10;
  if (*digits == '\0' || *digits == '+' || *digits == '-' || std::isspace(static_cast<unsigned char>(*digits))) {
    return std::nullopt;
  }
  errno = 0;
  char* end = nullptr;
  long long value = std::strtoll(text.c_str(), &end, base);
  if (errno != 0 || *end != '\0' || value < low || value > high) return std::nullopt;
  return value;
}

struct NamedBlock {
  std::string name;
  REALmemoryBlock handle;
  Bytes before;
};

// The host, the blocks and what the call hands back, for one call.
class Session {
 public:
  Session(SimHost& host, const Request& request) : host_(host) {
    if (request.receiver && *request.receiver != "nil") add("block", block_bytes("block", *request.receiver));
    for (const auto& [name, given] : request.blocks) {
      if (name.empty() || name == "block" || name == "nil" || find(name) != nullptr) {
        fail("--block " + name + "=: give each other block a name of its own (not \"block\" or \"nil\")");
      }
      add(name, block_bytes(name, given));
    }
  }
  ~Session() {
    for (const void* handle : owned_) host_.release(handle);
  }

  const std::vector<NamedBlock>& blocks() const { return blocks_; }
  const NamedBlock* find(const std::string& name) const {
    for (const NamedBlock& block : blocks_) {
      if (block.name == name) return &block;
    }
    return nullptr;
  }

  // The value a literal stands for as an argument of `kind`; nullopt when it
  // stands for none.
  std::optional<Value> literal(Kind kind, const std::string& text) {
    bool pointer_kind = kind == Kind::Ptr || kind == Kind::String || kind == Kind::MemoryBlock ||
                        kind == Kind::FolderItem || kind == Kind::Object;
    if (text == "nil") return pointer_kind ? std::optional(Value::handle(kind, nullptr)) : std::nullopt;
    switch (kind) {
      case Kind::Integer:
        if (auto v = whole_integer(text, INT32_MIN, INT32_MAX)) return Value::integer(static_cast<int32_t>(*v));
        return std::nullopt;
      case Kind::Int64:
        if (auto v = whole_integer(text, INT64_MIN, INT64_MAX)) return Value::int64(*v);
        return std::nullopt;
      case Kind::UInt64: {
        if (text.empty() || !std::isdigit(static_cast<unsigned char>(text[0]))) return std::nullopt;
        errno = 0;
        char* end = nullptr;
        unsigned long long v = std::strtoull(text.c_str(), &end, text.starts_with("0x") ? 16 : 10);
        if (errno != 0 || *end != '\0') return std::nullopt;
        return Value::uint64(v);
      }
      case Kind::Double: {
        char* end = nullptr;
        double v = std::strtod(text.c_str(), &end);
        if (text.empty() || *end != '\0') return std::nullopt;
        return Value::real(v);
      }
      case Kind::Boolean:
        if (text == "true" || text == "false") return Value::boolean(text == "true");
        return std::nullopt;
      case Kind::Address:
        if (auto v = whole_integer(text, INTPTR_MIN, INTPTR_MAX)) return Value::address(static_cast<intptr_t>(*v));
        if (text.starts_with('&')) {
          const NamedBlock* block = find(text.substr(1));
          if (block == nullptr) return std::nullopt;
          uint8_t* data = host_.bytes(block->handle).data();
          uint8_t* handle = host_.rawBuffer(sizeof data);  // a master pointer to the block's bytes
          std::memcpy(handle, &data, sizeof data);
          return Value::address(reinterpret_cast<intptr_t>(handle));
        }
        if (auto at = address_in_block(text)) return Value::address(reinterpret_cast<intptr_t>(*at));
        return std::nullopt;
      case Kind::Ptr:
        if (auto at = address_in_block(text)) return Value::handle(Kind::Ptr, *at);
        return std::nullopt;
      case Kind::String:
        if (text.size() < 2 || !text.starts_with('"') || !text.ends_with('"')) return std::nullopt;
        return Value::handle(kind, own(host_.newString(text.substr(1, text.size() - 2), kEncodingUTF8)));
      case Kind::MemoryBlock:
        if (const NamedBlock* block = find(text)) return Value::handle(kind, block->handle);
        return std::nullopt;
      case Kind::FolderItem:
        if (const NamedBlock* block = find(text)) {  // a folder item whose record is the block's first 70 bytes
          std::array<uint8_t, 70> spec{};
          auto bytes = host_.bytes(block->handle);
          std::memcpy(spec.data(), bytes.data(), std::min(bytes.size(), spec.size()));
          return Value::handle(kind, own(host_.newFolderItem(spec)));
        }
        return std::nullopt;
      default:
        return std::nullopt;
    }
  }

  // "NAME+12" (or "NAME") as "12 bytes into NAME", and back.
  std::optional<void*> address_in_block(const std::string& text) const {
    size_t plus = text.find('+');
    const NamedBlock* block = find(text.substr(0, plus));
    std::optional<int64_t> offset = plus == std::string::npos ? 0 : whole_integer(text.substr(plus + 1), 0, INT32_MAX);
    if (block == nullptr || !offset || *offset > static_cast<int64_t>(host_.bytes(block->handle).size())) {
      return std::nullopt;
    }
    return host_.bytes(block->handle).data() + *offset;
  }
  std::string where(uint64_t address) const {
    for (const NamedBlock& block : blocks_) {
      auto bytes = host_.bytes(block.handle);
      auto start = reinterpret_cast<uintptr_t>(bytes.data());
      if (bytes.data() != nullptr && address >= start && address <= start + bytes.size()) {
        return " = " + block.name + "+" + std::to_string(address - start);
      }
    }
    return "";
  }

  const void* own(const void* handle) {
    if (handle != nullptr) owned_.push_back(handle);
    return handle;
  }
  // A handle result: the plug-in's reference becomes ours.
  const void* adopt(const void* handle) {
    host_.adopt(handle);
    return own(handle);
  }

 private:
  void add(const std::string& name, const Bytes& bytes) {
    REALmemoryBlock handle = host_.newBlock(bytes);
    own(handle);
    blocks_.push_back({name, handle, bytes});
  }

  SimHost& host_;
  std::vector<NamedBlock> blocks_;
  std::vector<const void*> owned_;
};

// -- choosing the registered function ----------------------------------------

// Which of a function's arguments the person gives: not the receiver, not a
// getter's ignored word, not a setter's value.
std::vector<size_t> given_slots(const Registered& r) {
  std::vector<size_t> slots;
  for (size_t i = 0; i < r.signature.args.size(); ++i) {
    bool receiver = i == 0 && r.signature.receiver;
    bool ignored = i == 1 && (r.role == Role::Getter || r.role == Role::PropertySetter);
    bool value = i + 1 == r.signature.args.size() && r.signature.assigns;
    if (!receiver && !ignored && !value) slots.push_back(i);
  }
  return slots;
}

std::string declarations(const std::vector<const Registered*>& candidates) {
  std::string text;
  for (const Registered* r : candidates) text += (text.empty() ? "" : " | ") + r->declaration;
  return text;
}

struct Chosen {
  const Registered* registered;
  std::vector<Value> args;  // every argument, receiver first
};

Chosen choose(const std::vector<Registered>& calls, const Request& request, Session& session, SimHost& host) {
  bool assigning = request.assigned.has_value();
  std::vector<const Registered*> named, by_role, by_count;
  for (const Registered& r : calls) {
    if (caller::same_name(r.signature.name, request.method)) named.push_back(&r);
  }
  if (named.empty()) fail("no method " + request.method + " is registered on a host of this version");
  for (const Registered* r : named) {
    if (r->signature.assigns == assigning) by_role.push_back(r);
  }
  if (by_role.empty()) {
    fail(request.method + (assigning ? " cannot be assigned: " : " can only be assigned (\"= VALUE\"): ") +
         declarations(named));
  }
  for (const Registered* r : by_role) {
    if (given_slots(*r).size() == request.args.size()) by_count.push_back(r);
  }
  if (by_count.empty()) {
    std::string counts;
    for (const Registered* r : by_role) counts += (counts.empty() ? "" : " or ") + std::to_string(given_slots(*r).size());
    fail(request.method + " takes " + counts + " arguments, not " + std::to_string(request.args.size()) + ": " +
         declarations(by_role));
  }

  // Where counts tie, the first whose arguments all fit.
  std::string misfits;
  for (const Registered* r : by_count) {
    const std::vector<Kind>& kinds = r->signature.args;
    std::vector<Value> args(kinds.size(), Value::integer(0));  // a getter's ignored word stays 0
    if (r->signature.receiver) {
      if (kinds[0] == Kind::Object) {
        args[0] = Value::handle(Kind::Object, session.own(host.newInstance(r->owner)));
      } else if (request.receiver == "nil") {
        args[0] = Value::handle(kinds[0], nullptr);
      } else if (const NamedBlock* block = session.find("block")) {
        args[0] = Value::handle(kinds[0], block->handle);
      } else {
        fail(r->declaration + " is called on a block: give it with --block HEX (or --block nil)");
      }
    }
    std::vector<size_t> slots = given_slots(*r);
    std::vector<std::pair<size_t, std::string>> literals;
    for (size_t i = 0; i < slots.size(); ++i) literals.emplace_back(slots[i], request.args[i]);
    if (r->signature.assigns) literals.emplace_back(kinds.size() - 1, *request.assigned);
    bool all_fit = true;
    for (size_t i = 0; i < literals.size() && all_fit; ++i) {
      const auto& [slot, text] = literals[i];
      std::optional<Value> value = session.literal(kinds[slot], text);
      if (value) {
        args[slot] = *value;
        continue;
      }
      all_fit = false;
      std::string which = r->signature.assigns && i + 1 == literals.size() ? "the value" : "argument " + std::to_string(i + 1);
      misfits += (misfits.empty() ? "" : "; ") + which + " \"" + text + "\" does not fit " +
                 caller::kind_name(kinds[slot]) + " in " + r->declaration;
    }
    if (all_fit) return {r, args};
  }
  fail(misfits);
}

// -- printing -------------------------------------------------------------------

void dump(const Bytes& bytes, const Bytes* before) {
  constexpr size_t kRow = 16;
  bool long_block = bytes.size() > 16 * kRow;
  for (size_t row = 0; row < bytes.size(); row += kRow) {
    std::string hex, marks;
    for (size_t i = row; i < std::min(row + kRow, bytes.size()); ++i) {
      char cell[4];
      std::snprintf(cell, sizeof cell, " %02X", bytes[i]);
      hex += cell;
      marks += before != nullptr && (*before)[i] != bytes[i] ? " ^^" : "   ";
    }
    bool changed = marks.find('^') != std::string::npos;
    if (before != nullptr && long_block && !changed) continue;  // a long block's unchanged rows are left out
    std::printf("    %04zX %s\n", row, hex.c_str());
    if (changed) std::printf("         %s\n", marks.substr(0, marks.find_last_not_of(' ') + 1).c_str());
  }
}

void print_result(const Value& result, Session& session, SimHost& host) {
  char text[96];
  switch (result.kind) {
    case Kind::None: std::printf("result     nothing\n"); return;
    case Kind::Integer:
    case Kind::Int64: std::printf("result     %" PRId64 "\n", result.i); return;
    case Kind::Address:
      std::printf("result     %" PRId64 " (0x%" PRIX64 ")\n", result.i, static_cast<uint64_t>(result.i));
      return;
    case Kind::UInt64:
      std::printf("result     %" PRIu64 " (0x%" PRIX64 ")%s\n", result.u, result.u, session.where(result.u).c_str());
      return;
    case Kind::Double: std::printf("result     %.17g\n", result.d); return;
    case Kind::Boolean:
      std::printf("result     %s\n", result.i == 0 ? "false" : result.i == 1 ? "true" : "true (byte not 1)");
      return;
    default: break;
  }
  if (result.p == nullptr) {
    std::printf("result     nil\n");
    return;
  }
  switch (result.kind) {
    case Kind::Ptr:
      std::snprintf(text, sizeof text, "%p", result.p);
      std::printf("result     %s%s\n", text, session.where(reinterpret_cast<uintptr_t>(result.p)).c_str());
      return;
    case Kind::String:
      session.adopt(result.p);
      std::printf("result     %s\n", quoted(host.text(static_cast<REALstring>(result.p))).c_str());
      return;
    case Kind::MemoryBlock: {
      session.adopt(result.p);
      auto bytes = host.bytes(static_cast<REALmemoryBlock>(result.p));
      std::printf("result     a block of %zu bytes%s\n", bytes.size(),
                  session.where(reinterpret_cast<uintptr_t>(bytes.data())).c_str());
      dump(Bytes(bytes.begin(), bytes.end()), nullptr);
      return;
    }
    case Kind::FolderItem: {
      session.adopt(result.p);
      auto spec = host.spec(static_cast<REALfolderItem>(result.p));
      std::printf("result     a folder item; its 70-byte record:\n");
      dump(Bytes(spec.begin(), spec.end()), nullptr);
      return;
    }
    default: std::printf("result     an object\n"); return;
  }
}
}  // namespace

std::string quoted(const std::string& text) {
  std::string out = "\"";
  for (unsigned char c : text) {
    char escaped[8];
    std::snprintf(escaped, sizeof escaped, c >= 0x20 && c < 0x7F && c != '"' && c != '\\' ? "%c" : "\\x%02X", c);
    out += escaped;
  }
  return out + "\"";
}

int call_command(std::span<char* const> words, const std::string& plugin_path) {
  Request request = parse_request(words, plugin_path);
  SimHost host(HostConfig{.version = request.version});
  LoadedPlugin plugin(request.plugin.c_str());
  plugin.start(host);
  std::vector<Registered> calls = caller::registered_calls(host.registry());
  {
    Session session(host, request);
    Chosen chosen = choose(calls, request, session, host);
    const char* role = chosen.registered->role == Role::Setter           ? " (setter)"
                       : chosen.registered->role == Role::Getter         ? " (property)"
                       : chosen.registered->role == Role::PropertySetter ? " (property setter)"
                                                                         : "";
    std::printf("method     %s%s\n", chosen.registered->declaration.c_str(), role);
    Value result = caller::call(*chosen.registered, chosen.args);
    print_result(result, session, host);
    std::vector<Raised> raised = host.takeRaised();
    if (raised.empty()) std::printf("raised     nothing\n");
    for (const Raised& r : raised) {
      std::printf("raised     %s %s\n", r.className.c_str(), r.message ? quoted(*r.message).c_str() : "(no message)");
    }
    for (const NamedBlock& block : session.blocks()) {
      auto now = host.bytes(block.handle);
      Bytes after(now.begin(), now.end());
      std::printf("%s (%zu bytes) before:\n", block.name.c_str(), block.before.size());
      dump(block.before, nullptr);
      if (after == block.before) {
        std::printf("%s after: unchanged\n", block.name.c_str());
      } else {
        std::printf("%s after:\n", block.name.c_str());
        dump(after, &block.before);
      }
    }
  }
  LedgerReport ledger = host.ledger();
  if (ledger.pluginHeld != 0 || ledger.overReleased != 0) {
    std::printf("ledger     the plug-in holds %d references, over-released %d\n", ledger.pluginHeld,
                ledger.overReleased);
  }
  return 0;
}
