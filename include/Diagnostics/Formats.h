#pragma once

/// The layouts of all binary data that processes share or leave behind, as plain structures. All integers are
/// little-endian. Writers and readers both use this header; the pages under doc/ say what the fields mean and
/// what a reader does with data it does not know.

#include <stddef.h>
#include <stdint.h>

#ifdef __cplusplus
#define NIMA_FORMAT_ASSERT(condition) static_assert(condition)
#else
#define NIMA_FORMAT_ASSERT(condition) _Static_assert(condition, #condition)
#endif
#define NIMA_FORMAT_OFFSET(Type, field, offset) NIMA_FORMAT_ASSERT(offsetof(Type, field) == (offset))

/* ---- The SysTrace block, doc/systrace.md: a header, then `entryCount` entries. ---- */

enum {
    SYSTRACE_HEADER_SIZE = 256,
    SYSTRACE_VERSION = 2,
    SYSTRACE_FLAG_FORMATTED = 1,      ///< the header has been set up
    SYSTRACE_FLAG_THREAD_RECORDS = 2, ///< every record ends in an entry with the writer's thread
    SYSTRACE_FLAG_TIMER_WORD_2_UNKNOWN = 8,
    SYSTRACE_FILTER_WORDS = 16,      ///< four levels of four words
    SYSTRACE_SEGMENT_SIZE = 0x900000 ///< bytes of the shared segment "SysTrace Buffer"
};

typedef struct SysTraceHeader {
    char magic[4];       ///< "strc"
    uint32_t headerSize; ///< 256
    uint32_t writeIndex; ///< index of the last claimed entry, before masking; -1 when empty
    uint32_t bufferSize; ///< bytes: entryCount * 8 + 256
    uint32_t version;    ///< 2
    uint32_t entryCount; ///< a power of two
    int32_t wrapCount;   ///< times slot 0 was claimed, counted from -1
    uint32_t flags;      ///< SYSTRACE_FLAG_...
    uint32_t timerWord1; ///< 1,000,000 without timer hardware
    uint32_t timerWord2; ///< 0xFFFFFFFF without timer hardware
    uint32_t state;      ///< capture state, 1 while tracing
    uint32_t liveFilter[SYSTRACE_FILTER_WORDS];  ///< a set bit lets a component trace at a level
    uint32_t savedFilter[SYSTRACE_FILTER_WORDS]; ///< holds the live filter while a capture has cleared it
    uint32_t indexMask;                          ///< entryCount - 1
    uint32_t savedState;                         ///< the state before a capture
    unsigned char reserved[76];                  ///< zero
} SysTraceHeader;

NIMA_FORMAT_ASSERT(sizeof(SysTraceHeader) == SYSTRACE_HEADER_SIZE);
NIMA_FORMAT_OFFSET(SysTraceHeader, magic, 0);
NIMA_FORMAT_OFFSET(SysTraceHeader, headerSize, 4);
NIMA_FORMAT_OFFSET(SysTraceHeader, writeIndex, 8);
NIMA_FORMAT_OFFSET(SysTraceHeader, bufferSize, 12);
NIMA_FORMAT_OFFSET(SysTraceHeader, version, 16);
NIMA_FORMAT_OFFSET(SysTraceHeader, entryCount, 20);
NIMA_FORMAT_OFFSET(SysTraceHeader, wrapCount, 24);
NIMA_FORMAT_OFFSET(SysTraceHeader, flags, 28);
NIMA_FORMAT_OFFSET(SysTraceHeader, timerWord1, 32);
NIMA_FORMAT_OFFSET(SysTraceHeader, timerWord2, 36);
NIMA_FORMAT_OFFSET(SysTraceHeader, state, 40);
NIMA_FORMAT_OFFSET(SysTraceHeader, liveFilter, 44);
NIMA_FORMAT_OFFSET(SysTraceHeader, savedFilter, 108);
NIMA_FORMAT_OFFSET(SysTraceHeader, indexMask, 172);
NIMA_FORMAT_OFFSET(SysTraceHeader, savedState, 176);
NIMA_FORMAT_OFFSET(SysTraceHeader, reserved, 180);

/* An entry's id word: bit 31 continuation, bits 29-30 level, bits 22-28 component, bits 0-21 event number. */
#define SYSTRACE_CONTINUATION UINT32_C(0x80000000)
#define SYSTRACE_LEVEL_SHIFT 29
#define SYSTRACE_LEVEL_MASK UINT32_C(3)
#define SYSTRACE_COMPONENT_SHIFT 22
#define SYSTRACE_COMPONENT_MASK UINT32_C(0x7F)
#define SYSTRACE_EVENT_MASK UINT32_C(0x3FFFFF)

typedef struct SysTraceEntry {
    uint32_t id;
    uint32_t value; ///< the time in a record's first entry, then one argument each, then the thread
} SysTraceEntry;

NIMA_FORMAT_ASSERT(sizeof(SysTraceEntry) == 8);
NIMA_FORMAT_OFFSET(SysTraceEntry, value, 4);

/* ---- The file header in front of a dumped SysTrace block, doc/systrace.md. ---- */

#define SYSTRACE_DUMP_MAGIC UINT32_C(0x08675309)

typedef struct SysTraceDumpHeader {
    uint32_t size;       ///< 256
    uint32_t word1;      ///< 1
    uint32_t word2;      ///< 2
    uint32_t bufferSize; ///< bytes of the dumped buffer when it is full
    uint32_t magic;      ///< SYSTRACE_DUMP_MAGIC
    unsigned char reserved[236];
} SysTraceDumpHeader;

NIMA_FORMAT_ASSERT(sizeof(SysTraceDumpHeader) == SYSTRACE_HEADER_SIZE);
NIMA_FORMAT_OFFSET(SysTraceDumpHeader, bufferSize, 12);
NIMA_FORMAT_OFFSET(SysTraceDumpHeader, magic, 16);
NIMA_FORMAT_OFFSET(SysTraceDumpHeader, reserved, 20);

/* ---- The segment "System Ring Buffers", doc/rings.md: a directory page, then the rings' records. ---- */

enum { RING_COUNT = 31, RING_DIRECTORY_SIZE = 4096, RING_RECORD_SIZE = 32 };

typedef struct RingDirectory {
    uint32_t processId;               ///< of the last process that laid the rings out
    uint32_t segmentSize;             ///< bytes, this page included
    uint32_t entryCounts[RING_COUNT]; ///< records of each ring, in index order
    unsigned char unused[RING_DIRECTORY_SIZE - 132];
} RingDirectory;

NIMA_FORMAT_ASSERT(sizeof(RingDirectory) == RING_DIRECTORY_SIZE);
NIMA_FORMAT_OFFSET(RingDirectory, segmentSize, 4);
NIMA_FORMAT_OFFSET(RingDirectory, entryCounts, 8);
NIMA_FORMAT_OFFSET(RingDirectory, unused, 132);

typedef struct RingBufferData {
    int64_t timestamp; ///< performance counter; 0 marks an empty slot
    uint32_t threadId;
    uint32_t words[5]; ///< word 1 is the event code if an event was written
} RingBufferData;

NIMA_FORMAT_ASSERT(sizeof(RingBufferData) == RING_RECORD_SIZE);
NIMA_FORMAT_OFFSET(RingBufferData, threadId, 8);
NIMA_FORMAT_OFFSET(RingBufferData, words, 12);

/* ---- The flat event record, doc/event-record.md: this head, then an entry for each pair. ---- */

enum {
    VANTOR_RECORD_VERSION = 1,
    VANTOR_SOURCE_SIZE = 32,
    VANTOR_ENTRY_SIZE = 256,
    VANTOR_TEXT_SIZE = 244,
    VANTOR_ENTRY_HASHED = 1,
    VANTOR_ENTRY_NON_HASHED = 2
};

typedef struct VantorCallbackStruct {
    uint32_t totalSize; ///< bytes: 56 + 256 * number of entries
    uint32_t version;   ///< 1
    uint32_t eventType;
    uint32_t eventId;
    uint32_t sourceSize;             ///< 32
    uint32_t entryAreaSize;          ///< bytes: 256 * number of entries
    char source[VANTOR_SOURCE_SIZE]; ///< 8-bit text, zero-padded
} VantorCallbackStruct;

typedef struct VantorEntry {
    uint32_t size;               ///< 256
    uint32_t type;               ///< VANTOR_ENTRY_HASHED or VANTOR_ENTRY_NON_HASHED
    uint32_t textLength;         ///< of the whole text, before any cut
    char text[VANTOR_TEXT_SIZE]; ///< "key,value", cut to 243 characters, zero-terminated
} VantorEntry;

NIMA_FORMAT_ASSERT(sizeof(VantorCallbackStruct) == 56);
NIMA_FORMAT_OFFSET(VantorCallbackStruct, version, 4);
NIMA_FORMAT_OFFSET(VantorCallbackStruct, eventType, 8);
NIMA_FORMAT_OFFSET(VantorCallbackStruct, eventId, 12);
NIMA_FORMAT_OFFSET(VantorCallbackStruct, sourceSize, 16);
NIMA_FORMAT_OFFSET(VantorCallbackStruct, entryAreaSize, 20);
NIMA_FORMAT_OFFSET(VantorCallbackStruct, source, 24);
NIMA_FORMAT_ASSERT(sizeof(VantorEntry) == VANTOR_ENTRY_SIZE);
NIMA_FORMAT_OFFSET(VantorEntry, type, 4);
NIMA_FORMAT_OFFSET(VantorEntry, textLength, 8);
NIMA_FORMAT_OFFSET(VantorEntry, text, 12);

#undef NIMA_FORMAT_OFFSET
#undef NIMA_FORMAT_ASSERT
