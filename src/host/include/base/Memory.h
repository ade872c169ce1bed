#pragma once
// The host allocator. Byte buffers and private copies of wide text come from
// here so that the host can account for them.

#include <cstddef>

void* zelm_malloc(std::size_t size);
void* zelm_realloc(void* block, std::size_t size);
void zelm_free(void* block);
