// The names of sub-items by their one-byte codes.
#pragma once

constexpr int kSubItemNameCount = 255;

// An empty name stands for a code without one. Code 0xFF has no entry.
extern const char* const g_subItemName[kSubItemNameCount];

namespace fa
{

// The name of a sub-item; empty where its code has none.
const char* SubItemName(unsigned char code);

}  // namespace fa
