// ID tables through the library's loader: a million inserts (note-ID order and
// random order) and a million membership tests. "per_id" is the time per ID.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <cstdlib>
#include <random>
#include <vector>

#include "HYLNTool.h"

namespace {

constexpr DWORD kIds = 1000000;

void loadRuntime()
{
    static const bool loaded = loadNotesFunctions(HYLN_TEST_DOMINO_DIR);
    if (!loaded) {
        std::fprintf(stderr, "cannot load the simulated runtime from %s\n", HYLN_TEST_DOMINO_DIR);
        std::exit(1);
    }
}

std::vector<DWORD> sequentialNoteIds()
{
    std::vector<DWORD> ids(kIds);
    for (DWORD i = 0; i < kIds; ++i)
        ids[i] = (i + 1) * 4;
    return ids;
}

std::vector<DWORD> randomIds(unsigned seed)
{
    std::mt19937 random(seed);
    std::vector<DWORD> ids(kIds);
    for (DWORD& id : ids)
        id = static_cast<DWORD>(random());
    return ids;
}

DHANDLE tableOf(const std::vector<DWORD>& ids)
{
    DHANDLE table = NULLHANDLE;
    HY_IDCreateTable(sizeof(NOTEID), &table);
    for (DWORD id : ids)
        HY_IDInsert(table, id, nullptr);
    return table;
}

void perId(benchmark::State& state)
{
    state.counters["per_id"] = benchmark::Counter(
        kIds, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void insertAll(benchmark::State& state, const std::vector<DWORD>& ids)
{
    loadRuntime();
    for (auto _ : state) {
        DHANDLE table = tableOf(ids);
        state.PauseTiming();
        HY_IDDestroyTable(table);
        state.ResumeTiming();
    }
    perId(state);
}

void BM_InsertSequentialNoteIds(benchmark::State& state)
{
    static const std::vector<DWORD> ids = sequentialNoteIds();
    insertAll(state, ids);
}

void BM_InsertRandomIds(benchmark::State& state)
{
    static const std::vector<DWORD> ids = randomIds(1);
    insertAll(state, ids);
}

void BM_IsPresent(benchmark::State& state)
{
    loadRuntime();
    DHANDLE table = tableOf(sequentialNoteIds());
    // Probes across the table's range: every other one is present.
    std::vector<DWORD> probes(kIds);
    std::mt19937 random(2);
    std::uniform_int_distribution<DWORD> pick(1, 2 * kIds);
    for (DWORD& probe : probes)
        probe = pick(random) * 2;
    for (auto _ : state) {
        DWORD found = 0;
        for (DWORD probe : probes)
            found += static_cast<DWORD>(HY_IDIsPresent(table, probe));
        benchmark::DoNotOptimize(found);
    }
    HY_IDDestroyTable(table);
    perId(state);
}

void BM_ScanAll(benchmark::State& state)
{
    loadRuntime();
    DHANDLE table = tableOf(randomIds(3));
    for (auto _ : state) {
        DWORD id = 0;
        DWORD count = 0;
        for (BOOL more = HY_IDScan(table, TRUE, &id); more; more = HY_IDScan(table, FALSE, &id))
            ++count;
        benchmark::DoNotOptimize(count);
    }
    HY_IDDestroyTable(table);
    perId(state);
}

} // namespace

BENCHMARK(BM_InsertSequentialNoteIds)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_InsertRandomIds)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_IsPresent)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ScanAll)->Unit(benchmark::kMillisecond);
