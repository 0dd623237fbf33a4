#include "tools/tour.h"

namespace {
const char* boolean(bool value) { return value ? "True" : "False"; }
}  // namespace

void tour_bitops(Tour& tour) {
  using Range = void(REALmemoryBlock, int32_t, int32_t);
  using Gather = bool(REALmemoryBlock, REALmemoryBlock, int32_t, int32_t, int32_t, int32_t, int32_t);
  using Expand = bool(REALmemoryBlock, REALmemoryBlock, int32_t, int32_t, int32_t);
  const LoadedPlugin& plugin = tour.plugin();
  auto swap = plugin.method<Range>("SwapBytesVEK(offset as Integer, numBytes as Integer)");
  auto swap16 = plugin.method<Range>("SwapBytes16VEK(offset as Integer, numBytes as Integer)");
  auto swap32 = plugin.method<Range>("SwapBytes32VEK(offset as Integer, numBytes as Integer)");
  auto mirror_in_bytes = plugin.method<Range>("MirrorBitsInBytesVEK(offsetByte as Integer, lengthByte as integer)");
  auto mirror_bytes = plugin.method<Range>("MirrorBytesVEK(offsetByte as Integer = 0, lengthByte as integer = -1)");
  auto mirror_bits = plugin.method<Range>("MirrorBitsVEK(offsetBit as Integer, lengthBit as integer)");
  auto nth_bytes = plugin.method<Gather>(
      "CopyNthBytesVEK(source as memoryblock, SourceOffsetBytes as integer, DestinationOffsetBytes as integer, "
      "ByteCount as integer, StepCount as integer, NumberOfSteps as integer) as boolean");
  auto nth_bits = plugin.method<Gather>(
      "CopyNthBitsVEK(source as memoryblock, SourceOffsetBits as integer, DestinationOffsetBits as integer, "
      "BitCount as integer, StepCount as integer, NumberOfSteps as integer) as boolean");
  auto expand = plugin.method<Expand>(
      "ExpandBitsVEK(dest as memoryblock, SourceByteCount as integer, LowValue as integer = 0, HighValue as integer = "
      "255) as boolean");

  tour.section("byte swapping");
  // each call on a fresh 01 02 03 04 05 06
  auto fresh = [&tour] { return tour.block({1, 2, 3, 4, 5, 6}); };
  tour.dump("b", fresh());
  REALmemoryBlock b = fresh();
  swap(b, 0, 6);
  tour.dump("b.SwapBytesVEK(0, 6)", b);
  b = fresh();
  swap(b, 2, 100);
  tour.dump("b.SwapBytesVEK(2, 100)", b);
  b = fresh();
  swap16(b, 1, 4);
  tour.dump("b.SwapBytes16VEK(1, 4)", b);
  b = fresh();
  swap32(b, 0, 6);
  tour.dump("b.SwapBytes32VEK(0, 6)", b);
  swap32(b, 0, 6);
  tour.dump("again: b.SwapBytes32VEK(0, 6)", b);
  swap(nullptr, 0, 6);
  tour.line("nil.SwapBytesVEK(0, 6)", "no effect");
  tour.raised();

  tour.section("mirroring");
  REALmemoryBlock m = tour.block({0x01, 0xF0});
  tour.dump("m", m);
  mirror_in_bytes(m, 0, 2);
  tour.dump("m.MirrorBitsInBytesVEK(0, 2)", m);
  REALmemoryBlock five = tour.block({1, 2, 3, 4, 5});
  mirror_bytes(five, 0, -1);
  tour.dump("five.MirrorBytesVEK()", five);
  REALmemoryBlock bits = tour.block({0x12, 0x34});
  tour.dump("bits", bits);
  mirror_bits(bits, 4, 8);
  tour.dump("bits.MirrorBitsVEK(4, 8)", bits);
  mirror_bits(nullptr, 0, 8);
  tour.line("nil.MirrorBitsVEK(0, 8)", "");
  tour.raised();

  tour.section("strided copies and bit expansion");
  REALmemoryBlock src = tour.block({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
  REALmemoryBlock dst = tour.block(8, 0xEE);
  tour.dump("src", src);
  tour.line("dst.CopyNthBytesVEK(src, 0, 0, 2, 4, 3)", boolean(nth_bytes(dst, src, 0, 0, 2, 4, 3)));
  tour.dump("dst", dst);
  tour.line("dst.CopyNthBytesVEK(src, 8, 0, 2, -4, 3)", boolean(nth_bytes(dst, src, 8, 0, 2, -4, 3)));
  tour.dump("dst", dst);
  REALmemoryBlock bit_src = tour.block({0x12, 0x34, 0xAB, 0xCD});
  REALmemoryBlock bit_dst = tour.block(3, 0xFF);
  tour.dump("bitSrc", bit_src);
  tour.line("bitDst.CopyNthBitsVEK(bitSrc, 3, 0, 4, 2, 3)", boolean(nth_bits(bit_dst, bit_src, 3, 0, 4, 2, 3)));
  tour.dump("bitDst", bit_dst);
  tour.line("bitDst.CopyNthBitsVEK(nil, 0, 0, 1, 0, 1)", boolean(nth_bits(bit_dst, nullptr, 0, 0, 1, 0, 1)));
  tour.raised();
  REALmemoryBlock pattern = tour.block({0xA5, 0x01, 0x00, 0x80});
  REALmemoryBlock wide = tour.block(32, 0xEE);
  tour.dump("pattern", pattern);
  tour.line("pattern.ExpandBitsVEK(wide, 4)", boolean(expand(pattern, wide, 4, 0, 255)));
  tour.dump("wide", wide);
  tour.line("pattern.ExpandBitsVEK(wide, 1, 16, 32)", boolean(expand(pattern, wide, 1, 16, 32)));
  tour.dump("wide", wide);
  tour.line("pattern.ExpandBitsVEK(nil, 4)", boolean(expand(pattern, nullptr, 4, 0, 255)));
  tour.raised();
}
