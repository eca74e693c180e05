// Insert, walk and clear of the list against std::list of the same records.

#include <benchmark/benchmark.h>
#include <list>

#include <zeb2/ll.h>

namespace {

struct Record {
    double value;
    char name[32];
};

void sum(void *data, void *param) {
    *static_cast<double *>(param) += static_cast<Record *>(data)->value;
}

void zeb_insert_walk_clear(benchmark::State &state) {
    const Record record = {1.0, "record"};
    LL_TYPE list;
    LL_init(&list);
    for (auto _ : state) {
        for (int64_t i = 0; i < state.range(0); ++i)
            LL_insert_tail(&list, &record, sizeof record);
        double total = 0;
        LL_transverse_forwards(&list, sum, &total);
        benchmark::DoNotOptimize(total);
        LL_clear(&list);
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(zeb_insert_walk_clear)->Arg(10)->Arg(1000);

void std_insert_walk_clear(benchmark::State &state) {
    const Record record = {1.0, "record"};
    std::list<Record> list;
    for (auto _ : state) {
        for (int64_t i = 0; i < state.range(0); ++i)
            list.push_back(record);
        double total = 0;
        for (const Record &each : list)
            total += each.value;
        benchmark::DoNotOptimize(total);
        list.clear();
    }
    state.SetItemsProcessed(state.iterations() * state.range(0));
}
BENCHMARK(std_insert_walk_clear)->Arg(10)->Arg(1000);

} // namespace
