#pragma once
// Wide-text helpers of the host base library. Conversions never fail and
// never depend on the process locale.

#include <cstddef>

// Case-insensitive comparisons; negative, zero or positive. Folded code points
// order as unsigned values; a null text compares as the empty text.
int i_wcsicmp(const wchar_t* a, const wchar_t* b);
int i_wcsnicmp(const wchar_t* a, const wchar_t* b, std::size_t n);
// A copy from zelm_malloc; null for null. The caller frees it with zelm_free.
wchar_t* i_wcsdup(const wchar_t* text);
// Decodes a zero-terminated narrow text into a new zero-terminated wide text
// from zelm_malloc (null for null); the caller frees it with zelm_free.
wchar_t* i_mbstowcs(const char* text);
