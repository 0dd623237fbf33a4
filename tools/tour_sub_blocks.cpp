#include "tools/tour.h"

void tour_sub_blocks(Tour& tour) {
  using One = REALmemoryBlock(REALmemoryBlock, int32_t);
  using Two = REALmemoryBlock(REALmemoryBlock, int32_t, int32_t);
  using Join = REALmemoryBlock(REALmemoryBlock, REALmemoryBlock);
  auto mid1 = tour.plugin().method<One>("MidVEK(offset as integer) as Memoryblock");
  auto mid2 = tour.plugin().method<Two>("MidVEK(offset As Integer, length As Integer) as Memoryblock");
  auto left = tour.plugin().method<One>("LeftVEK(length as integer) as Memoryblock");
  auto right = tour.plugin().method<One>("RightVEK(length As Integer) as Memoryblock");
  auto append = tour.plugin().method<Join>("AppendVEK(other as Memoryblock) as Memoryblock");

  tour.section("sub-blocks");
  REALmemoryBlock block = tour.block({1, 2, 3, 4, 5, 6, 7, 8, 9, 10});
  REALmemoryBlock tail = tour.block({0xA0, 0xB0, 0xC0});
  tour.dump("block", block);
  tour.show("block.MidVEK(2, 3)", mid2(block, 2, 3));
  tour.show("block.MidVEK(8, 100)", mid2(block, 8, 100));
  tour.show("block.MidVEK(9)", mid1(block, 9));
  tour.show("block.MidVEK(10)", mid1(block, 10));
  tour.show("block.LeftVEK(3)", left(block, 3));
  tour.show("block.RightVEK(3)", right(block, 3));
  tour.dump("tail", tail);
  tour.show("block.AppendVEK(tail)", append(block, tail));
  tour.show("nil.MidVEK(0, 1)", mid2(nullptr, 0, 1));
  tour.show("block.AppendVEK(nil)", append(block, nullptr));
  tour.show("block.MidVEK(-1, 3)", mid2(block, -1, 3));
}
