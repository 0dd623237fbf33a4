// `vekhost tour`: a readable session of calls through the simulated host,
// one function per area of methods, each in its own file.
#pragma once

#include <cstdint>
#include <initializer_list>
#include <string>
#include <vector>

#include "host/loaded_plugin.h"
#include "host/sim_host.h"

class Tour {
 public:
  Tour(SimHost& host, const LoadedPlugin& plugin) : host_(host), plugin_(plugin) {}
  ~Tour();

  SimHost& host() { return host_; }
  const LoadedPlugin& plugin() { return plugin_; }

  void section(const char* title);
  // A block the tour owns, given back at the end.
  REALmemoryBlock block(std::initializer_list<uint8_t> bytes);
  REALmemoryBlock block(size_t size, uint8_t fill = 0);
  // One line: the label, then the block's bytes in hex (or "nil").
  void dump(const char* label, REALmemoryBlock block);
  // A method's block result: taken over, dumped and given back at the end;
  // then any exception the call raised.
  void show(const char* label, REALmemoryBlock result);
  // A method's plain result, or a note, in the same columns.
  void line(const char* label, const std::string& value);
  void raised();

 private:
  SimHost& host_;
  const LoadedPlugin& plugin_;
  std::vector<const void*> owned_;
};

void tour_sub_blocks(Tour& tour);
void tour_memory(Tour& tour);  // the MemoryBlockVEK class, global constructors, fill, invert, copies
void tour_numeric(Tour& tour);
void tour_colour_signal(Tour& tour);
void tour_search_fields(Tour& tour);
void tour_bitops(Tour& tour);
