// Values handed to the host: raised exceptions, new blocks and new strings.
// Every block or string returned carries one reference for the receiver.
#pragma once

#include <cstdint>

#include "frame/rb_handles.h"

// Raises a host exception of the named class with the message; a class the
// host does not know becomes a "RuntimeException". Its "ErrorNumber" is 0.
// The host delivers it after the calling method returns, so the caller
// returns its neutral result straight after.
void RaiseException(const char* exceptionClassName, const char* message);

// The first checks of the methods that raise for both, in their order: a nil
// block raises "NilObjectException" "memoryblock is nil", a negative offset
// "UnsupportedOperationException" "offset < 0". True when one was raised:
// the caller then returns its neutral result.
bool refuse_nil_block_or_negative_offset(REALmemoryBlock block, int32_t offset);

// A new block holding a copy of `size` bytes, or nil. Nil data or a size
// below 1 gives nil quietly; a block the host cannot make raises
// "OutOfMemoryException".
REALmemoryBlock REALBuildMemoryblock(const void* data, int32_t size);

// A new string of `length` bytes in the given encoding, or nil. UTF-16 and
// UTF-32 text comes back as UTF-8; 8-bit text that is plain ASCII is
// labelled ASCII.
REALstring REALBuildUnicodeString(const void* data, int64_t length, uint32_t encoding);
REALstring REALBuildUnicodeStringUTF16(const void* data, int64_t length);
