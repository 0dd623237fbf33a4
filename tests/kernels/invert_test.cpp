// The invert kernels, every level against the scalar twin (kernel_harness.h).
#include "blockops/size_fill_invert.h"
#include "tests/support/kernel_harness.h"

namespace {
const bool registered = kernel_test::family("InvertBytes", vek::invert_bytes_kernels, {vek::invert_bytes_scalar},
                                            kernel_test::in_place(&vek::InvertBytesTable::invert));
}  // namespace
