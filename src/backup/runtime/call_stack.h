#pragma once

#include <cstddef>

#include "backup/runtime/runtime_export.h"

namespace backup {

/// Writes the calls that lead here into `text`, the innermost first, one to a line that ends with a line break:
/// "<program or library>(<symbol>+0x<offset>) [0x<address>]", the offset being that in the file where no exported
/// symbol is known. It begins with the call that returns to `first`, or with the caller of this function when there is
/// none such. At most 64 calls and `size` bytes; a text that does not fit ends in "...". No zero byte at its end.
/// Returns the bytes written.
///
/// Takes no memory, and the same stack whatever the depth of the calls, so it can be used where either is short.
BACKUP_RUNTIME_API std::size_t write_call_stack(char* text, std::size_t size, void const* first = nullptr) noexcept;

}  // namespace backup
