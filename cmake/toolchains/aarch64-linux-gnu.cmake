# Linux ARM64 with Debian's cross compiler (g++-aarch64-linux-gnu); the test
# programs run under qemu-aarch64 (qemu-user) with the cross C library. The
# library path keeps its loader and its libc together: the arm64 packages the
# build links (libffi-dev:arm64, libbenchmark-dev:arm64) bring a second libc
# under /lib/aarch64-linux-gnu, and a process that mixes the two hangs in its
# first pthread_create.
set(CMAKE_SYSTEM_NAME Linux)
set(CMAKE_SYSTEM_PROCESSOR aarch64)
set(CMAKE_C_COMPILER aarch64-linux-gnu-gcc)
set(CMAKE_CXX_COMPILER aarch64-linux-gnu-g++)
set(CMAKE_LIBRARY_ARCHITECTURE aarch64-linux-gnu)
set(CMAKE_CROSSCOMPILING_EMULATOR qemu-aarch64 -L /usr/aarch64-linux-gnu -E LD_LIBRARY_PATH=/usr/aarch64-linux-gnu/lib)
