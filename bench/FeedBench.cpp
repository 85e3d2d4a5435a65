#include <Poco/JSON/Object.h>
#include <benchmark/benchmark.h>

#include "Client/ChangeFeed.h"
#include "Client/ElementWriter.h"
#include "Data/Service.h"
#include "DeliveryCounter.h"
#include "TextItems.h"

namespace {

using namespace Kivo::Data;
using Base::PropertyValueUuid;
using Kivo::Client::ChangeEvent;
using Kivo::Client::ChangeFeed;

// Writes through the typed writer into one element whose text flips between two values, with
// the service's change feed and one subscriber counting its deliveries. Each iteration is
// range(0) writes and the wait until all of them have been delivered, so items_per_second is
// writes delivered to the subscriber per second.
void BM_FeedWritesDelivered(benchmark::State& state) {
    Service service("FeedBench", "benchmark service", 1, PropertyValueUuid());
    ChangeFeed feed(service);
    Kivo::Bench::TextItems items(service, "FeedItems");
    const Poco::UUID id("6f1c2a4e-0b7d-4c8e-9a3f-2d5e8b1c7a90");
    Poco::JSON::Object json;
    json.set("id", id.toString());
    if (!items.addElement(&json).isSuccess()) state.SkipWithError("element not added");
    Kivo::Bench::DeliveryCounter counter;
    ChangeFeed::Subscription subscription =
        feed.subscribe([&counter](const ChangeEvent& event) { counter.onChangeEvent(event); });
    Poco::JSON::Object updates[2];
    updates[0].set("text", "b");
    updates[1].set("text", "a");
    Kivo::Client::ElementWriter writer(items, &feed);
    const long batch = state.range(0);
    long writes = 0;
    for (auto _ : state) {
        for (long i = 0; i < batch; ++i, ++writes) {
            benchmark::DoNotOptimize(writer.update(id, updates[writes % 2]));
        }
        counter.waitFor(writes);
    }
    state.SetItemsProcessed(writes);
}
BENCHMARK(BM_FeedWritesDelivered)->Arg(1000)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
