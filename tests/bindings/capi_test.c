/* Walks through everything that kestova.h has, on a recording that it writes itself.
 *
 *   capi_test FOLDER    an empty folder for it
 *
 * Ten turns of 64 spokes, 10 ms apart, of 100 or 90 cells of 16 bits; the first begins at a quarter, the last one ends
 * at a half. Once a turn a position, a heading, a depth, a tracked target and a ship. */
#include <errno.h>
#include <kestova.h>
#include <math.h>
#include <pthread.h>
#include <stdio.h>
#include <stdlib.h>
#include <string.h>

#define CHECK(what) check((what) != 0, #what, __LINE__)
#define EQUAL(a, b) equal((long long)(a), (long long)(b), #a, __LINE__)

enum
{
    cSpokes = 64,
    cCells = 100,
    cShort = 90,
    cFirst = 16,
    cLast = 9 * 64 + 32,
    cHead = 4
};
static const int64_t cStart = 1700000000000;
static const char* const cLayout =
    "{\"spoke\": {\"match\": {\"0\": \"ab\"}, \"azimuth\": {\"at\": 1, \"width\": 1, \"per_turn\": 64},"
    " \"range\": 1000, \"sequence\": {\"at\": 2, \"width\": 2},"
    " \"cells\": {\"at\": 4, \"count\": \"rest\", \"bits\": 16}, \"order\": \"little\", \"reference\": \"bow\"}}";
static const char* const cSentences[] = {
    "$GPGGA,123519,5400.000,N,01000.000,E,1,08,0.9,5.0,M,46.9,M,,*", "$HEHDT,90.0,T*", "$SDDPT,12.5,0.5*",
    "$RATTM,07,1.5,45.0,T,10.0,180.0,T,0.1,5.0,N,,T,,123519,A*", "!AIVDM,1,1,,A,15M67FC000G?ufbE`FepT@3n00Sa,0*"};

static void check(int isTrue, const char* what, int line)
{
    if (isTrue)
        return;
    fprintf(stderr, "capi_test.c:%d: %s; the last error: %s\n", line, what, kestova_error());
    exit(1);
}

static void equal(long long a, long long b, const char* what, int line)
{
    if (a != b)
        fprintf(stderr, "%s is %lld, not %lld\n", what, a, b);
    check(a == b, what, line);
}

static uint16_t cellOf(int spoke, int cell)
{
    return (uint16_t)(spoke * 100 + cell);
}

static size_t spokeInto(uint8_t* message, int spoke)
{
    const int cells = spoke % 2 != 0 ? cShort : cCells;
    message[0] = 0xAB;
    message[1] = (uint8_t)(spoke % cSpokes);
    message[2] = (uint8_t)spoke;
    message[3] = (uint8_t)(spoke >> 8);
    for (int i = 0; i < cells; ++i)
    {
        message[cHead + 2 * i] = (uint8_t)cellOf(spoke, i);
        message[cHead + 2 * i + 1] = (uint8_t)(cellOf(spoke, i) >> 8);
    }
    return (size_t)(cHead + 2 * cells);
}

static void addSentences(kestova_writer* writer, int64_t time)
{
    for (size_t i = 0; i < sizeof cSentences / sizeof *cSentences; ++i)
    {
        char line[128];
        unsigned sum = 0;
        for (const char* c = cSentences[i] + 1; *c != '*'; ++c)
            sum ^= (unsigned char)*c;
        const int length = snprintf(line, sizeof line, "%s%02X\r\n", cSentences[i], sum);
        EQUAL(kestova_writer_add(writer, time, "gpsDev", "239.17.0.9", 6009, line, (size_t)length), KESTOVA_OK);
    }
}

/* Returns how many records there are. One spoke is left out. */
static int write(const char* root)
{
    kestova_writer* writer = NULL;
    char* json = NULL;
    int records = 0;
    EQUAL(kestova_writer_open(root, "capi", cLayout, &writer), KESTOVA_OK);
    EQUAL(kestova_writer_add(writer, cStart, "nothing", "239.17.0.1", 6001, "x", 1), KESTOVA_ARGUMENT);
    CHECK(strstr(kestova_error(), "nothing"));
    for (int spoke = cFirst; spoke < cLast; ++spoke)
    {
        uint8_t message[cHead + 2 * cCells];
        const int64_t time = cStart + 10 * (spoke - cFirst);
        const size_t length = spokeInto(message, spoke);
        if (spoke % cSpokes == 32)
        {
            addSentences(writer, time);
            records += 5;
        }
        if (spoke == 3 * cSpokes + 5)
            continue;
        EQUAL(kestova_writer_add(writer, time, "imageStream", "239.17.0.1", 6001, message, length), KESTOVA_OK);
        ++records;
    }
    EQUAL(kestova_writer_close(writer, &json), KESTOVA_OK);
    CHECK(strstr(json, "\"path\":\"") && strstr(json, "\"files\":[\""));
    kestova_free(json);
    return records;
}

static void testFailures(const char* root)
{
    kestova_recording* recording = NULL;
    char text[4096];
    FILE* file = NULL;
    EQUAL(kestova_open("/nowhere/at/all", NULL, &recording), KESTOVA_NOT_FOUND);
    CHECK(strstr(kestova_error(), "/nowhere/at/all"));
    EQUAL(kestova_open(NULL, NULL, &recording), KESTOVA_ARGUMENT);
    EQUAL(kestova_open(root, "{\"colour\": 1}", &recording), KESTOVA_ARGUMENT);
    EQUAL(kestova_open("udp://nonsense", NULL, &recording), KESTOVA_ARGUMENT);
    snprintf(text, sizeof text, "%s/none.data", root);
    file = fopen(text, "w");
    CHECK(file != NULL && fputs("no data file", file) >= 0 && fclose(file) == 0);
    EQUAL(kestova_open(text, NULL, &recording), KESTOVA_DAMAGED);
    CHECK(remove(text) == 0 && recording == NULL);
    kestova_close(NULL);
    kestova_records_close(NULL);
    kestova_sweeps_close(NULL);
    kestova_sweep_free(NULL);
    kestova_table_free(NULL);
    kestova_free(NULL);
    EQUAL(kestova_writer_close(NULL, NULL), KESTOVA_OK);
}

static void testInformation(const char* root, kestova_recording* recording, int records)
{
    char* json = NULL;
    char text[64];
    int64_t ms = 0;
    EQUAL(kestova_info(recording, &json), KESTOVA_OK);
    snprintf(text, sizeof text, "\"records\":%d,", records);
    CHECK(strstr(json, "\"schema\":\"kestova/info/2\"") && strstr(json, text));
    kestova_free(json);
    EQUAL(kestova_verify(root, 0, &json), KESTOVA_OK);
    CHECK(strstr(json, "\"sound\":1") && strstr(json, "\"sheet\":true"));
    kestova_free(json);
    EQUAL(kestova_place(recording, "00:00:02", &ms), KESTOVA_OK);
    EQUAL(ms, cStart + 2000);
    EQUAL(kestova_place(recording, "-1s", &ms), KESTOVA_OK);
    EQUAL(ms, cStart + 10 * (cLast - cFirst - 1) - 1000);
    EQUAL(kestova_place(recording, "soon", &ms), KESTOVA_ARGUMENT);
}

static void testRecords(kestova_recording* recording, int records)
{
    kestova_records* all = NULL;
    kestova_record batch[7];
    size_t count = 0;
    int seen = 0, spokes = 0;
    EQUAL(kestova_records_open(recording, KESTOVA_BEGINNING, KESTOVA_TO_END, NULL, NULL, &all), KESTOVA_OK);
    while (kestova_records_read(all, batch, 7, &count, -1) == KESTOVA_OK)
        for (size_t i = 0; i < count; ++i, ++seen)
        {
            const int isSpoke = strcmp(batch[i].stream, "imageStream") == 0;
            uint8_t message[cHead + 2 * cCells];
            CHECK(batch[i].sequence == (uint64_t)seen && batch[i].package_ms == batch[i].time_ms);
            CHECK(strcmp(batch[i].address, isSpoke ? "239.17.0.1" : "239.17.0.9") == 0);
            EQUAL(batch[i].port, isSpoke ? 6001 : 6009);
            EQUAL(batch[i].kind, isSpoke ? 0 : 8);
            EQUAL(batch[i].info[2], 4);
            if (!isSpoke)
                continue;
            spokes += cFirst + spokes == 3 * cSpokes + 5;
            EQUAL(batch[i].length, spokeInto(message, cFirst + spokes));
            CHECK(memcmp(batch[i].data, message, batch[i].length) == 0);
            EQUAL(batch[i].time_ms, cStart + 10 * spokes);
            ++spokes;
        }
    EQUAL(seen, records);
    EQUAL(kestova_records_damaged(all), 0);
    kestova_records_close(all);
    EQUAL(kestova_records_open(recording, cStart + 1000, cStart + 1050, "imageStream", "239.17.0.1:6001", &all),
          KESTOVA_OK);
    EQUAL(kestova_records_read(all, batch, 7, &count, -1), KESTOVA_OK);
    EQUAL(count, 5);
    EQUAL(batch[0].time_ms, cStart + 1000);
    EQUAL(kestova_records_read(all, batch, 7, &count, -1), KESTOVA_END);
    kestova_records_close(all);
}

static void lookAt(const kestova_sweep* sweep, int first)
{
    kestova_sweep_view view;
    kestova_sweep_look(sweep, &view);
    CHECK(view.complete && view.reference == 1 && view.bits == 16 && view.cell_bytes == 2);
    EQUAL((uintptr_t)view.data % 64, 0);
    EQUAL(view.cells, cCells);
    EQUAL(view.spokes + view.missing, cSpokes);
    CHECK(fabs(view.range_m - 1000) < 1e-6);
    for (uint32_t row = 0; row < view.spokes; ++row)
    {
        const uint16_t* cells = (const uint16_t*)view.data + (size_t)row * view.cells;
        const int spoke = (int)view.sequence[row];
        CHECK(spoke >= first && spoke < first + cSpokes);
        CHECK(fabs(view.bearing[row] - (spoke % cSpokes) / (double)cSpokes) < 1e-9);
        EQUAL(view.time_ms[row], cStart + 10 * (spoke - cFirst));
        EQUAL(view.cell_count[row], spoke % 2 != 0 ? cShort : cCells);
        EQUAL(cells[view.cell_count[row] - 1], cellOf(spoke, (int)view.cell_count[row] - 1));
        EQUAL(cells[cCells - 1], spoke % 2 != 0 ? 0 : cellOf(spoke, cCells - 1));
        CHECK(first + (int)row < 32 ? isnan(view.heading_deg[row]) : view.heading_deg[row] == 90.0f);
    }
}

/* North up the echo ahead of a ship that heads east is on the right. */
static void testCartesian(const kestova_sweep* sweep)
{
    static uint8_t grey[101 * 128], turned[101 * 128];
    kestova_sweep_view view;
    memset(grey, 77, sizeof grey);
    EQUAL(kestova_sweep_cartesian(sweep, 101, 0, 0, 0, grey, 128), KESTOVA_OK);
    EQUAL(kestova_sweep_cartesian(sweep, 101, 0, 0, 1, turned, 128), KESTOVA_OK);
    EQUAL(grey[101], 77);
    EQUAL(grey[0], 0);
    for (int off = 5; off < 45; ++off)
        CHECK(abs(grey[(50 - off) * 128 + 50] - turned[50 * 128 + 50 + off]) <= 1);
    kestova_sweep_look(sweep, &view);
    EQUAL(grey[10 * 128 + 52], ((const uint16_t*)view.data)[80] >> 8);
    EQUAL(kestova_sweep_cartesian(sweep, 101, 0, 1, 0, turned, 128), KESTOVA_OK);
    for (int i = 0; i < 101 * 128; ++i)
        if (i % 128 < 101)
            CHECK(turned[i] <= grey[i]);
    CHECK(turned[10 * 128 + 50] > 0);
    EQUAL(kestova_sweep_cartesian(sweep, 101, 0, 0, 0, grey, 100), KESTOVA_ARGUMENT);
    EQUAL(kestova_sweep_cartesian(sweep, 0, 0, 0, 0, grey, 100), KESTOVA_ARGUMENT);
}

/* Returns how many sweeps there are, and hands out the fourth complete one. */
static int countSweeps(kestova_recording* recording, uint32_t every, int* complete, kestova_sweep** fourth)
{
    kestova_sweeps* sweeps = NULL;
    kestova_sweep* sweep = NULL;
    kestova_result result = KESTOVA_OK;
    int count = 0;
    EQUAL(kestova_sweeps_open(recording, NULL, KESTOVA_BEGINNING, KESTOVA_TO_END, every, &sweeps), KESTOVA_OK);
    *complete = 0;
    while ((result = kestova_sweeps_next(sweeps, &sweep, -1)) == KESTOVA_OK)
    {
        kestova_sweep_view view;
        kestova_sweep_look(sweep, &view);
        ++count;
        *complete += view.complete;
        EQUAL(view.data == NULL, every == 0);
        if (every == 1 && view.complete)
            lookAt(sweep, (int)view.sequence[0] / cSpokes * cSpokes);
        if (fourth != NULL && view.complete && *complete == 4)
            *fourth = sweep;
        else
            kestova_sweep_free(sweep);
    }
    EQUAL(result, KESTOVA_END);
    kestova_sweeps_close(sweeps);
    return count;
}

static void testSweeps(const char* root)
{
    kestova_recording* recording = NULL;
    kestova_sweeps* sweeps = NULL;
    kestova_sweep* sweep = NULL;
    kestova_sweep_view view;
    int complete = 0;
    EQUAL(kestova_open(root, NULL, &recording), KESTOVA_OK);
    EQUAL(countSweeps(recording, 1, &complete, &sweep), 10);
    EQUAL(complete, 8);
    EQUAL(countSweeps(recording, 0, &complete, NULL), 10);
    EQUAL(countSweeps(recording, 3, &complete, NULL), 4); /* the first part, turns 0, 3, 6 */
    EQUAL(complete, 3);
    EQUAL(kestova_sweeps_open(recording, "A1/1", KESTOVA_BEGINNING, KESTOVA_TO_END, 1, &sweeps), KESTOVA_NOT_FOUND);
    /* From the beginning of turn 2 to the end of turn 3: both are whole. */
    EQUAL(kestova_sweeps_open(recording, "239.17.0.1:6001", cStart + 10 * (2 * cSpokes - cFirst),
                              cStart + 10 * (4 * cSpokes - cFirst), 1, &sweeps),
          KESTOVA_OK);
    kestova_close(recording);
    for (int turn = 2; turn < 4; ++turn)
    {
        kestova_sweep* next = NULL;
        EQUAL(kestova_sweeps_next(sweeps, &next, -1), KESTOVA_OK);
        lookAt(next, turn * cSpokes);
        kestova_sweep_look(next, &view);
        EQUAL(view.missing, turn == 3);
        kestova_sweep_free(next);
    }
    EQUAL(kestova_sweeps_next(sweeps, &sweep, -1), KESTOVA_END);
    kestova_sweeps_close(sweeps);
    kestova_sweep_look(sweep, &view); /* the fourth, of an iterator and a recording that are closed */
    EQUAL(view.sequence[0], 4 * cSpokes);
    testCartesian(sweep);
    kestova_sweep_free(sweep);
}

static const void* columnOf(const kestova_table* table, const char* wanted, int type)
{
    for (size_t i = 0; i < kestova_table_columns(table); ++i)
    {
        const char* name = NULL;
        const void* data = NULL;
        int found = -1;
        EQUAL(kestova_table_column(table, i, &name, &found, &data), KESTOVA_OK);
        if (strcmp(name, wanted) != 0)
            continue;
        EQUAL(found, type);
        return data;
    }
    check(0, wanted, __LINE__);
    return NULL;
}

static kestova_table* tableOf(kestova_recording* recording, const char* name, size_t rows)
{
    kestova_table* table = NULL;
    EQUAL(kestova_table_read(recording, name, KESTOVA_BEGINNING, KESTOVA_TO_END, &table), KESTOVA_OK);
    EQUAL(kestova_table_rows(table), rows);
    EQUAL(((const int64_t*)columnOf(table, "time", KESTOVA_INT64))[0], cStart + 10 * (32 - cFirst));
    return table;
}

static void testTables(kestova_recording* recording)
{
    const size_t turns = 9; /* of which there is the middle */
    kestova_table* table = tableOf(recording, "own", 2 * turns);
    CHECK(fabs(((const double*)columnOf(table, "latitude_deg", KESTOVA_DOUBLE))[0] - 54) < 1e-9);
    CHECK(isnan(((const double*)columnOf(table, "latitude_deg", KESTOVA_DOUBLE))[1]));
    CHECK(((const double*)columnOf(table, "heading_deg", KESTOVA_DOUBLE))[1] == 90);
    kestova_table_free(table);
    table = tableOf(recording, "ais", turns);
    EQUAL(((const int64_t*)columnOf(table, "mmsi", KESTOVA_INT64))[0], 366053209);
    CHECK(((const char* const*)columnOf(table, "ship_name", KESTOVA_TEXT))[0] == NULL);
    kestova_table_free(table);
    table = tableOf(recording, "arpa", turns);
    EQUAL(((const int64_t*)columnOf(table, "target", KESTOVA_INT64))[0], 7);
    CHECK(strcmp(((const char* const*)columnOf(table, "bearing_reference", KESTOVA_TEXT))[0], "north") == 0);
    kestova_table_free(table);
    table = tableOf(recording, "depth", turns);
    CHECK(((const double*)columnOf(table, "depth_m", KESTOVA_DOUBLE))[0] == 13);
    kestova_table_free(table);
    table = tableOf(recording, "sentences", 5 * turns);
    CHECK(strcmp(((const char* const*)columnOf(table, "type", KESTOVA_TEXT))[4], "VDM") == 0);
    kestova_table_free(table);
    EQUAL(kestova_table_read(recording, "weather", KESTOVA_BEGINNING, KESTOVA_TO_END, &table), KESTOVA_NOT_FOUND);
    CHECK(strstr(kestova_error(), "own, ais, arpa, depth, sentences"));
}

static void* cancel(void* recording)
{
    kestova_cancel((kestova_recording*)recording);
    return NULL;
}

/* Nothing is sent to this group. */
static void testLive(void)
{
    kestova_recording* live = NULL;
    kestova_records* records = NULL;
    kestova_table* table = NULL;
    kestova_record record;
    size_t count = 1;
    pthread_t other;
    char* json = NULL;
    EQUAL(kestova_open("udp://239.17.93.15:26815", "{\"local_ip\": \"127.0.0.1\"}", &live), KESTOVA_OK);
    EQUAL(kestova_info(live, &json), KESTOVA_OK);
    kestova_free(json);
    EQUAL(kestova_table_read(live, "own", KESTOVA_BEGINNING, KESTOVA_TO_END, &table), KESTOVA_UNSUPPORTED);
    EQUAL(kestova_records_open(live, KESTOVA_BEGINNING, KESTOVA_TO_END, NULL, NULL, &records), KESTOVA_OK);
    EQUAL(kestova_records_read(records, &record, 1, &count, 10), KESTOVA_TIMEOUT);
    EQUAL(count, 0);
    EQUAL(pthread_create(&other, NULL, cancel, live), 0);
    EQUAL(kestova_records_read(records, &record, 1, &count, -1), KESTOVA_CANCELLED);
    pthread_join(other, NULL);
    kestova_close(live);
    kestova_records_close(records);
}

static void* failElsewhere(void* nothing)
{
    CHECK(strcmp(kestova_error(), "") == 0);
    kestova_open("/elsewhere", NULL, NULL);
    CHECK(strstr(kestova_error(), "out"));
    return nothing;
}

int main(int argc, char** argv)
{
    kestova_recording* recording = NULL;
    kestova_sweeps* sweeps = NULL;
    pthread_t other;
    int records = 0;
    if (argc != 2)
        return 2;
    EQUAL(kestova_abi(), KESTOVA_ABI);
    CHECK(strlen(kestova_version()) > 0);
    records = write(argv[1]);
    testFailures(argv[1]);
    EQUAL(pthread_create(&other, NULL, failElsewhere, NULL), 0);
    pthread_join(other, NULL);
    CHECK(strstr(kestova_error(), "none.data"));
    EQUAL(kestova_open(argv[1], NULL, &recording), KESTOVA_OK);
    testInformation(argv[1], recording, records);
    testRecords(recording, records);
    testSweeps(argv[1]);
    testTables(recording);
    testLive();
    kestova_cancel(recording);
    EQUAL(kestova_sweeps_open(recording, NULL, KESTOVA_BEGINNING, KESTOVA_TO_END, 1, &sweeps), KESTOVA_OK);
    kestova_close(recording);
    {
        kestova_sweep* none = NULL;
        EQUAL(kestova_sweeps_next(sweeps, &none, -1), KESTOVA_CANCELLED);
    }
    kestova_sweeps_close(sweeps);
    printf("%d records\n", records);
    return 0;
}
