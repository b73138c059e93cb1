#pragma once

/// True for a text that is neither null nor empty.
inline bool is_set(char const* text) { return text != nullptr && *text != '\0'; }
