#include <Poco/Delegate.h>
#include <Poco/JSON/Object.h>
#include <benchmark/benchmark.h>

#include "Client/ElementWriter.h"
#include "Data/Service.h"
#include "DeliveryCounter.h"
#include "TextItems.h"

namespace {

using namespace Kivo::Data;
using Base::PropertyValueUuid;

typedef Kivo::Bench::DeliveryCounter Counter;
typedef Kivo::Bench::TextItems Items;

// One element whose indexed text flips between two values, observed by one DataChanged
// subscriber; `write` applies one of the two updates.
template <typename Write>
void flipText(benchmark::State& state, Write write) {
    Service service("Bench", "benchmark service", 1, PropertyValueUuid());
    Items items(service, "Items");
    const Poco::UUID id("6f1c2a4e-0b7d-4c8e-9a3f-2d5e8b1c7a90");
    Poco::JSON::Object json;
    json.set("id", id.toString());
    if (!items.addElement(&json).isSuccess()) state.SkipWithError("element not added");
    AbstractResource::Ptr element;
    items.getElement(id, element);
    Counter counter;
    element->DataChanged += Poco::delegate(&counter, &Counter::onDataChanged);
    Poco::JSON::Object updates[2];
    updates[0].set("text", "b");
    updates[1].set("text", "a");
    Kivo::Client::ElementWriter writer(items);
    long writes = 0;
    for (auto _ : state) {
        benchmark::DoNotOptimize(write(items, writer, id, updates[writes++ % 2]));
    }
    counter.waitFor(writes);
    element->DataChanged -= Poco::delegate(&counter, &Counter::onDataChanged);
    element.reset();
}

// The core's client update of one text.
void BM_WriteCoreUpdate(benchmark::State& state) {
    flipText(state, [](Items& items, Kivo::Client::ElementWriter&, const Poco::UUID& id,
                       const Poco::JSON::Object& values) {
        return items.updateElementFromJSON(id, &values);
    });
}
BENCHMARK(BM_WriteCoreUpdate);

// The same update through the typed writer, which checks and then makes the core call above.
void BM_WriteElementWriterUpdate(benchmark::State& state) {
    flipText(state, [](Items&, Kivo::Client::ElementWriter& writer, const Poco::UUID& id,
                       const Poco::JSON::Object& values) { return writer.update(id, values); });
}
BENCHMARK(BM_WriteElementWriterUpdate);

}  // namespace
