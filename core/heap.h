// Heap policy: the daemon's resident memory must come back down once the
// requests are answered, whatever their sizes were, without handing back
// and faulting in again the same memory on every mid-size request.
#pragma once

#include <cstddef>

enum {
    // One arena for every thread: glibc's malloc_trim does not give back the
    // top of a thread's own arena, so a large request served from one stayed
    // resident after it was freed.
    HEAP_ARENAS = 1,
    // Blocks this large get mappings of their own. Above the largest request
    // buffer (262145 bytes), so a whole-package answer (about 84 KB, its text
    // grown by doubling) is built in the heap: a mapping of its own was
    // mapped, faulted in and unmapped again on every such request.
    HEAP_MMAP_BYTES = 512 * 1024,
    // Free top of the heap beyond this goes back as soon as it is freed;
    // below it the idle check decides, so a mid-size request does not shrink
    // the heap only for the next one to grow it again.
    HEAP_TRIM_BYTES = 1024 * 1024,
    // A request or response this large has the heap checked when the pool
    // next idles.
    HEAP_LARGE_BYTES = 64 * 1024,
    // Free bytes the heap may keep when the pool idles. A whole-package get
    // leaves about 1.2 MiB free (parse trees, its text, gaps between live
    // blocks) that the next one takes again; handing them back each time
    // made every such request fault its memory in anew. Six worst-case
    // requests free tens of megabytes: those go back. Only part of what is
    // kept is resident (freed pages that are never touched again cost
    // nothing), so the resident figure rises far less than this.
    HEAP_SLACK_BYTES = 1536 * 1024,
    // How long the accept loop waits for a connection before it looks at
    // the heap: the moment a burst of requests has settled.
    HEAP_SETTLE_MS = 100,
    // Free bytes the heap may keep once requests have settled. Requests
    // free blocks all over the heap (the read cache's patched snapshots,
    // change-log lines, parse trees, answers) that the top-of-heap trim
    // never reaches; with nobody asking, no next request reuses them soon.
    HEAP_SETTLED_SLACK_BYTES = 256 * 1024,
};

// Sets the allocator's arena count and thresholds (fixed values, so the
// allocator does not raise them after one large request). Main thread,
// before any other thread starts.
void heap_init(void);

// Notes a request or response text of `bytes`; a large one marks the heap
// for a check. Any thread.
void heap_note_size(size_t bytes);

// Notes that a request finished: the heap is looked at once requests
// settle (heap_settled). Any thread.
void heap_note_request(void);

// How long the accept loop may block in accept before it calls
// heap_settled: HEAP_SETTLE_MS, or 0 (never) where the C library returns
// freed memory by itself. Main thread, start-up.
int heap_settle_ms(void);

// The accept loop waited HEAP_SETTLE_MS for a connection and none came:
// once after each burst of requests, when none is in progress, hands freed
// memory back if more than HEAP_SETTLED_SLACK_BYTES lie free. Main thread.
void heap_settled(void);

// When a large request was served since the last check and no request is in
// progress now, hands freed memory back to the system if the heap holds
// more than HEAP_SLACK_BYTES of it. Worker threads, after their context is
// released.
void heap_trim_if_idle(void);
