// Lookups among 1,000 keys and loading of 10,000 lines, beside a std::map of the same paths and a
// plain reading of the same lines.

#include <benchmark/benchmark.h>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include <zeb2/conf.h>

namespace {

std::vector<std::string> paths(int branches, int leaves) {
    std::vector<std::string> result;
    for (int b = 0; b < branches; ++b)
        for (int l = 0; l < leaves; ++l)
            result.push_back("Branch" + std::to_string(b) + ";Leaf" + std::to_string(l));
    return result;
}

void zeb_lookup(benchmark::State &state) {
    const auto keys = paths(20, 50);
    CONF_node *root = CONF_alloc();
    for (const auto &key : keys)
        CONF_set(root, key.c_str(), "value");
    size_t i = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(CONF_lookup(root, keys[i++ % keys.size()].c_str()));
    CONF_free(root);
}
BENCHMARK(zeb_lookup);

void std_map_lookup(benchmark::State &state) {
    const auto keys = paths(20, 50);
    std::map<std::string, std::string> map;
    for (const auto &key : keys)
        map[key] = "value";
    size_t i = 0;
    for (auto _ : state)
        benchmark::DoNotOptimize(map.find(keys[i++ % keys.size()]));
}
BENCHMARK(std_map_lookup);

std::string ten_thousand_lines() {
    std::string text;
    for (const auto &key : paths(100, 100))
        text += key + ", some value of it # and a remark\n";
    return text;
}

void zeb_load(benchmark::State &state) {
    std::string text = ten_thousand_lines();
    for (auto _ : state) {
        FILE *file = fmemopen(text.data(), text.size(), "r");
        CONF_node *root = CONF_alloc();
        CONF_load(root, file);
        fclose(file);
        CONF_free(root);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}
BENCHMARK(zeb_load)->Unit(benchmark::kMillisecond);

void fgets_into_map(benchmark::State &state) {
    std::string text = ten_thousand_lines();
    for (auto _ : state) {
        FILE *file = fmemopen(text.data(), text.size(), "r");
        std::map<std::string, std::string> map;
        char line[1024];
        while (fgets(line, sizeof line, file) != nullptr)
            if (char *comma = strchr(line, ','))
                map[std::string(line, comma)] = comma + 1;
        fclose(file);
        benchmark::DoNotOptimize(map);
    }
    state.SetBytesProcessed(state.iterations() * static_cast<int64_t>(text.size()));
}
BENCHMARK(fgets_into_map)->Unit(benchmark::kMillisecond);

} // namespace
