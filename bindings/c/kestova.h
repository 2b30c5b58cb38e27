/* Recordings of marine radar traffic for C, and for every language that calls C. Plain C99 and C++98.
 *
 * Shapes   times are milliseconds since the Unix epoch; bearings are turns, 0 to 1, clockwise; text is UTF-8.
 * Owner    whoever opens a handle closes it. Every close and free takes NULL. What came from a recording stays valid
 *          when the recording is closed, and a sweep when its iterator is closed, too.
 * Threads  a handle belongs to one thread at a time; different handles may be used at once. kestova_cancel may be
 *          called from any thread, until kestova_close is.
 * Errors   a result below 0 is a failure, and kestova_error() is one sentence about it. Where a call fails, or returns
 *          END, TIMEOUT or CANCELLED, nothing is handed out. A NULL that is not allowed is KESTOVA_ARGUMENT.
 * Fork     a process that has opened something must not go on with it in a child.
 *
 * The first call that opens something directs the console lines of the Kestova libraries of this process to nowhere.
 */
#ifndef KESTOVA_H
#define KESTOVA_H

#include <stddef.h>
#include <stdint.h>

#ifdef __GNUC__
#define KESTOVA_VISIBLE __attribute__((visibility("default")))
#else
#define KESTOVA_VISIBLE
#endif
#ifdef __cplusplus
#define KESTOVA_C_API extern "C" KESTOVA_VISIBLE
#else
#define KESTOVA_C_API KESTOVA_VISIBLE
#endif

/* Rises when a program that was built with an older header has to be built again. */
#define KESTOVA_ABI 1

typedef enum
{
    KESTOVA_OK = 0,
    KESTOVA_END = 1,          /* nothing follows */
    KESTOVA_TIMEOUT = 2,      /* nothing yet: call again */
    KESTOVA_CANCELLED = 3,    /* by kestova_cancel */
    KESTOVA_ARGUMENT = -1,    /* an argument, or an option, is none */
    KESTOVA_NOT_FOUND = -2,   /* there is no such path, recording, radar or table */
    KESTOVA_IO = -3,          /* reading, writing or the network failed */
    KESTOVA_DAMAGED = -4,     /* none of the files is a data file that can be read */
    KESTOVA_NO_SPOKES = -5,   /* it is not known how spokes are laid out, or there are none */
    KESTOVA_UNSUPPORTED = -6, /* not of a live group */
    KESTOVA_MEMORY = -7
} kestova_result;

typedef struct kestova_recording kestova_recording;
typedef struct kestova_records kestova_records;
typedef struct kestova_sweeps kestova_sweeps;
typedef struct kestova_sweep kestova_sweep;
typedef struct kestova_table kestova_table;
typedef struct kestova_writer kestova_writer;

/* A span: its start is included, its end is excluded. */
#define KESTOVA_BEGINNING INT64_MIN
#define KESTOVA_TO_END INT64_MAX

/* Returns the KESTOVA_ABI of the library. */
KESTOVA_C_API int kestova_abi(void);
/* Returns the version of the library, "0.2.0". */
KESTOVA_C_API const char* kestova_version(void);
/* Returns a sentence about the last failure of a call on this thread, "" if none failed. Valid until the next one. */
KESTOVA_C_API const char* kestova_error(void);
/* Frees text that a call handed out. */
KESTOVA_C_API void kestova_free(void* text);

/* ---- Recordings ---- */

/* Opens a data file, the folder of a recording, a storage root, or the live group "udp://ADDR:PORT". Of files that are
 * being recorded it shows what they hold when they are read. `options` is NULL or a JSON object with these members:
 *
 * - "layout", how spokes are laid out: the path of a file as `kestova picture --layout` takes it, or its content
 * - "radars", the path of a directory of radars: their layouts, and the stream of a live group
 * - "local_ip", the interface of a live group, by address or name
 *
 * Without "layout" and "radars" the sheets of the recording say how its spokes are laid out. */
KESTOVA_C_API kestova_result kestova_open(const char* source, const char* options, kestova_recording** out);
KESTOVA_C_API void kestova_close(kestova_recording*);
/* Ends the calls on the recording, and on what came from it, that wait or read for long: these and all later ones of
 * them return KESTOVA_CANCELLED. Any thread. With NULL it ends the calls of kestova_verify that are under way. */
KESTOVA_C_API void kestova_cancel(kestova_recording*);
/* Hands out what `kestova info --json` prints; of a live group there is nothing in it. */
KESTOVA_C_API kestova_result kestova_info(kestova_recording*, char** json);
/* Hands out what `kestova verify --json` prints; `quick` leaves out the segments. */
KESTOVA_C_API kestova_result kestova_verify(const char* path, int quick, char** json);
/* Hands out the time of a place: "00:05:00" and "+90s" from the start, "-10m" from the end, "0.5" and "50%" of the
 * span, "2024-05-17 08:30:00", "2024-05-17T08:30:00Z", or milliseconds since the epoch. It may lie outside. */
KESTOVA_C_API kestova_result kestova_place(kestova_recording*, const char* place, int64_t* ms);

/* ---- Records ---- */

typedef struct
{
    int64_t time_ms;     /* when it was recorded */
    int64_t package_ms;  /* the same as its package has it; as time_ms for raw segments */
    uint64_t sequence;   /* its package's number, within its recorder */
    const char* stream;  /* "imageStream", "kind 42" for a number without a name, "raw" for what is no package;
                            static */
    const char* address; /* of its group, "239.17.0.1"; "" for raw; valid as long as the iterator */
    const uint8_t* data; /* the message; valid until the next call on the iterator */
    size_t length;       /* in bytes */
    uint16_t port;       /* of its group */
    uint8_t kind;        /* number of the stream's kind: info[3] */
    uint8_t info[5];     /* sender, receiver, type of message, kind of stream, number of the radar */
} kestova_record;

/* Opens the records of a span in order of time; of a live group those from now on, whatever the span. `streams` is
 * NULL or names, "imageStream,gpsDev"; `groups` is NULL or addresses, "239.17.0.1:6001,239.17.0.3:6003". */
KESTOVA_C_API kestova_result kestova_records_open(kestova_recording*, int64_t start_ms, int64_t end_ms,
                                                  const char* streams, const char* groups, kestova_records** out);
/* Hands out the next records, up to `capacity` (1 or more), and how many: at least 1, or the result is END or
 * TIMEOUT. Of a live group it waits for the first one up to `timeout_ms`, -1 for ever, 0 not at all. */
KESTOVA_C_API kestova_result kestova_records_read(kestova_records*, kestova_record* out, size_t capacity, size_t* count,
                                                  int timeout_ms);
/* Returns the records so far that were damaged and are left out; of a live group those that came too fast. */
KESTOVA_C_API uint64_t kestova_records_damaged(const kestova_records*);
KESTOVA_C_API void kestova_records_close(kestova_records*);

/* ---- Sweeps: turns of the antenna, from bearing 0 to bearing 0 ---- */

typedef struct
{
    uint32_t spokes, cells;             /* rows, and cells of the longest of them; shorter ones end in zeros */
    uint32_t cell_bytes, bits;          /* 1, 2, 4 bytes a cell; values of up to 8, 16, 32 bits, not scaled */
    const void* data;                   /* spokes x cells, rows without gaps, aligned to 64 */
    const double *bearing, *bearing_to; /* turns, 0 to 1, of each spoke */
    const int64_t* time_ms;             /* when each was recorded */
    const float* first_cell_m;          /* near edge of the first cell, in metres from the antenna */
    const float* cell_m;                /* length of a cell in metres; 0 unknown */
    const float* heading_deg;           /* of own ship, true, not older than 10 s; NaN where unknown */
    const uint32_t* cell_count;         /* of each spoke */
    const uint32_t* sequence;           /* number that the radar gave it; 0 where it gives none */
    double range_m;                     /* far edge of the farthest cell; 0 unknown */
    uint32_t missing;                   /* messages of spokes that were numbered and never came */
    uint8_t reference;                  /* of the bearings: 0 unknown, 1 bow, 2 north */
    uint8_t complete;                   /* 0: the first or last of the span, of which a part is there */
} kestova_sweep_view;

/* Opens the turns of which spokes lie in the span, as `kestova picture --every revolution` cuts them; of a live
 * group those from now on. `radar` is NULL for the first stream that has spokes, "SERIAL/ID" of a sheet, or
 * "ADDR:PORT" of the group of the spokes. `every` 10 hands out every tenth turn, counted from the first complete
 * one; an incomplete one before that is handed out, too. `every` 0 hands out every turn without its cells: an index
 * of turns. */
KESTOVA_C_API kestova_result kestova_sweeps_open(kestova_recording*, const char* radar, int64_t start_ms,
                                                 int64_t end_ms, uint32_t every, kestova_sweeps** out);
/* Hands out the next one. TIMEOUT if none is whole after `timeout_ms`, of files as well; -1 waits. */
KESTOVA_C_API kestova_result kestova_sweeps_next(kestova_sweeps*, kestova_sweep** out, int timeout_ms);
KESTOVA_C_API void kestova_sweeps_close(kestova_sweeps*);
/* Sets the view; what it points to is valid until kestova_sweep_free. Any thread. */
KESTOVA_C_API void kestova_sweep_look(const kestova_sweep*, kestova_sweep_view* out);
/* Draws the sweep into size_px rows (1 to 16384) of `stride` bytes, own ship in the middle, 255 is full scale. A
 * pixel is the brightest (`how` 0) or the mean (1) of the cells that touch it. `range_m` is from own ship to the
 * edge, 0 for the sweep's. `north_up` turns bearings from the bow by own ship's heading; where that is unknown they
 * stay. */
KESTOVA_C_API kestova_result kestova_sweep_cartesian(const kestova_sweep*, uint32_t size_px, double range_m, int how,
                                                     int north_up, uint8_t* grey, size_t stride);
KESTOVA_C_API void kestova_sweep_free(kestova_sweep*);

/* ---- Tables: what sentences say, whatever stream they came on ---- */

/* Types of columns: int64_t, double (NaN: unknown), const char* (NULL: unknown). */
enum
{
    KESTOVA_INT64,
    KESTOVA_DOUBLE,
    KESTOVA_TEXT
};

/* Reads a table of a span: "own", "ais", "arpa", "depth" or "sentences", a row a sentence, in order of time. The
 * first column is "time", in ms; the others are named as in `kestova dump --decode`. */
KESTOVA_C_API kestova_result kestova_table_read(kestova_recording*, const char* name, int64_t start_ms, int64_t end_ms,
                                                kestova_table** out);
KESTOVA_C_API size_t kestova_table_rows(const kestova_table*);
KESTOVA_C_API size_t kestova_table_columns(const kestova_table*);
/* Hands out a column: its name, its type, and one value a row; valid until kestova_table_free. */
KESTOVA_C_API kestova_result kestova_table_column(const kestova_table*, size_t column, const char** name, int* type,
                                                  const void** data);
KESTOVA_C_API void kestova_table_free(kestova_table*);

/* ---- Writer: makes a recording, with the sheets that `kestova record` writes ---- */

/* Opens a writer of one recording below the storage root, which is made if it is missing; `name` ends the names of
 * its files. `options` is NULL or a JSON object: "spoke", how spokes are laid out, as a directory of radars says
 * it. From then on nothing in this process deletes old recordings to make room. */
KESTOVA_C_API kestova_result kestova_writer_open(const char* root, const char* name, const char* options,
                                                 kestova_writer** out);
/* Adds a message: `stream` as kestova_record names it, `address` and `port` of its group, at most 65535 bytes,
 * which are copied. The first one makes the recording's folder. Waits while the disk is far behind. */
KESTOVA_C_API kestova_result kestova_writer_add(kestova_writer*, int64_t time_ms, const char* stream,
                                                const char* address, uint16_t port, const void* data, size_t length);
/* Returns when everything is on the disk and the sheets are written. Frees the writer, whatever the result. Hands
 * out an object with "path" (of the folder), "files" and "records"; `json` may be NULL. */
KESTOVA_C_API kestova_result kestova_writer_close(kestova_writer*, char** json);

#endif
