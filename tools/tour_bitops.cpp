#include "tools/tour.h"

void tour_bitops(Tour& tour) {

  tour.section("byte swapping");
  // each call on a fresh 01 02 03 04 05 06
  auto fresh = [&tour] { return tour.block({1, 2, 3, 4, 5, 6}); };
  tour.dump("b", fresh());
  REALmemoryBlock b = fresh();
  tour.in_place("b.SwapBytesVEK(0, 6)", "SwapBytesVEK", b, 0, 6);
  b = fresh();
  tour.in_place("b.SwapBytesVEK(2, 100)", "SwapBytesVEK", b, 2, 100);
  b = fresh();
  tour.in_place("b.SwapBytes16VEK(1, 4)", "SwapBytes16VEK", b, 1, 4);
  b = fresh();
  tour.in_place("b.SwapBytes32VEK(0, 6)", "SwapBytes32VEK", b, 0, 6);
  tour.in_place("again: b.SwapBytes32VEK(0, 6)", "SwapBytes32VEK", b, 0, 6);
  tour.call("SwapBytesVEK", nullptr, 0, 6);
  tour.line("nil.SwapBytesVEK(0, 6)", "no effect");
  tour.raised();

  tour.section("mirroring");
  REALmemoryBlock m = tour.block({0x01, 0xF0});
  tour.dump("m", m);
  tour.in_place("m.MirrorBitsInBytesVEK(0, 2)", "MirrorBitsInBytesVEK", m, 0, 2);
  REALmemoryBlock five = tour.block({1, 2, 3, 4, 5});
  tour.in_place("five.MirrorBytesVEK()", "MirrorBytesVEK", five, 0, -1);
  REALmemoryBlock bits = tour.block({0x12, 0x34});
  tour.dump("bits", bits);
  tour.in_place("bits.MirrorBitsVEK(4, 8)", "MirrorBitsVEK", bits, 4, 8);
  tour.call("MirrorBitsVEK", nullptr, 0, 8);
  tour.line("nil.MirrorBitsVEK(0, 8)", "");
  tour.raised();

  tour.section("strided copies and bit expansion");
  REALmemoryBlock src = tour.block({1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12});
  REALmemoryBlock dst = tour.block(8, 0xEE);
  tour.dump("src", src);
  tour.show("dst.CopyNthBytesVEK(src, 0, 0, 2, 4, 3)", tour.call("CopyNthBytesVEK", dst, src, 0, 0, 2, 4, 3));
  tour.dump("dst", dst);
  tour.show("dst.CopyNthBytesVEK(src, 8, 0, 2, -4, 3)", tour.call("CopyNthBytesVEK", dst, src, 8, 0, 2, -4, 3));
  tour.dump("dst", dst);
  REALmemoryBlock bit_src = tour.block({0x12, 0x34, 0xAB, 0xCD});
  REALmemoryBlock bit_dst = tour.block(3, 0xFF);
  tour.dump("bitSrc", bit_src);
  tour.show("bitDst.CopyNthBitsVEK(bitSrc, 3, 0, 4, 2, 3)",
            tour.call("CopyNthBitsVEK", bit_dst, bit_src, 3, 0, 4, 2, 3));
  tour.dump("bitDst", bit_dst);
  tour.show("bitDst.CopyNthBitsVEK(nil, 0, 0, 1, 0, 1)", tour.call("CopyNthBitsVEK", bit_dst, nullptr, 0, 0, 1, 0, 1));
  tour.raised();
  REALmemoryBlock pattern = tour.block({0xA5, 0x01, 0x00, 0x80});
  REALmemoryBlock wide = tour.block(32, 0xEE);
  tour.dump("pattern", pattern);
  tour.show("pattern.ExpandBitsVEK(wide, 4)", tour.call("ExpandBitsVEK", pattern, wide, 4, 0, 255));
  tour.dump("wide", wide);
  tour.show("pattern.ExpandBitsVEK(wide, 1, 16, 32)", tour.call("ExpandBitsVEK", pattern, wide, 1, 16, 32));
  tour.dump("wide", wide);
  tour.show("pattern.ExpandBitsVEK(nil, 4)", tour.call("ExpandBitsVEK", pattern, nullptr, 4, 0, 255));
  tour.raised();
}
