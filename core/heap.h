// Heap policy: the daemon's resident memory must come back down once the
// requests are answered, whatever their sizes were.
#pragma once

#include <cstddef>

enum {
    // One arena for every thread: glibc's malloc_trim does not give back the
    // top of a thread's own arena, so a large request served from one stayed
    // resident after it was freed.
    HEAP_ARENAS = 1,
    HEAP_MMAP_BYTES = 64 * 1024,     // blocks this large get mappings of their own
    HEAP_TRIM_BYTES = 128 * 1024,    // free top of a heap beyond this goes back
    HEAP_LARGE_BYTES = 64 * 1024,    // a request or response this large leaves
                                     // the heap to be trimmed when the pool idles
};

// Sets the allocator's arena count and thresholds (fixed values, so the
// allocator does not raise them after one large request). Main thread,
// before any other thread starts.
void heap_init(void);

// Notes a request or response text of `bytes`; a large one marks the heap
// for trimming. Any thread.
void heap_note_size(size_t bytes);

// Hands freed memory back to the system when a large request was served
// since the last trim and no request is in progress now. Worker threads,
// after their context is released.
void heap_trim_if_idle(void);
