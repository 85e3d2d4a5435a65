#include <malloc.h>

#include <benchmark/benchmark.h>

#include "MediaData.h"

// Loading the example media service from generated JSON: albums with nine tracks each (every
// track referencing its album), 1,000 to 100,000 elements in all. Reports the heap the loaded
// service holds per element (the JSON documents excluded).
namespace {

void BM_MediaLoad(benchmark::State& state) {
    const auto albums = static_cast<std::size_t>(state.range(0)) / 10;
    const Media::MediaData data = Media::generateMediaData(albums, 9, 0, 1);
    double bytesPerElement = 0;
    for (auto _ : state) {
        state.PauseTiming();
        const std::size_t before = mallinfo2().uordblks;
        {
            state.ResumeTiming();
            Media::MediaService service;
            if (!data.loadInto(service)) state.SkipWithError("the generated data was refused");
            state.PauseTiming();
            bytesPerElement = static_cast<double>(mallinfo2().uordblks - before) /
                              static_cast<double>(albums * 10);
        }
        state.ResumeTiming();
    }
    state.counters["bytes_per_element"] = bytesPerElement;
    state.counters["elements_per_second"] = benchmark::Counter(
        static_cast<double>(albums * 10), benchmark::Counter::kIsIterationInvariantRate);
}
BENCHMARK(BM_MediaLoad)->Arg(1000)->Arg(10000)->Arg(100000)->Unit(benchmark::kMillisecond);

}  // namespace
