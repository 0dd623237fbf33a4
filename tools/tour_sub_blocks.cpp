#include "tools/tour.h"

void tour_sub_blocks(Tour& tour) {

  tour.section("sub-blocks");
  REALmemoryBlock block = tour.block({1, 2, 3, 4, 5, 6, 7, 8, 9, 10});
  REALmemoryBlock tail = tour.block({0xA0, 0xB0, 0xC0});
  tour.dump("block", block);
  tour.show("block.MidVEK(2, 3)", tour.call("MidVEK", block, 2, 3));
  tour.show("block.MidVEK(8, 100)", tour.call("MidVEK", block, 8, 100));
  tour.show("block.MidVEK(9)", tour.call("MidVEK", block, 9));
  tour.show("block.MidVEK(10)", tour.call("MidVEK", block, 10));
  tour.show("block.LeftVEK(3)", tour.call("LeftVEK", block, 3));
  tour.show("block.RightVEK(3)", tour.call("RightVEK", block, 3));
  tour.dump("tail", tail);
  tour.show("block.AppendVEK(tail)", tour.call("AppendVEK", block, tail));
  tour.show("nil.MidVEK(0, 1)", tour.call("MidVEK", nullptr, 0, 1));
  tour.show("block.AppendVEK(nil)", tour.call("AppendVEK", block, nullptr));
  tour.show("block.MidVEK(-1, 3)", tour.call("MidVEK", block, -1, 3));
}
