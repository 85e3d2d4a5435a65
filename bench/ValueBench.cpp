#include <string>
#include <vector>

#include <Poco/RegularExpression.h>
#include <benchmark/benchmark.h>

#include "Data/Base/PropertyString.h"
#include "Data/Base/PropertyValue.h"

namespace {

using namespace Kivo::Data::Base;
typedef PropertyValueString S;

struct FormatSample {
    S::FormatType format;
    const char* text;  // accepted by the format
};

const std::vector<FormatSample>& formatSamples() {
    static const std::vector<FormatSample> samples = {
        {S::STRING_FORMAT_TEXT, "free text"},
        {S::STRING_FORMAT_DATE, "2018-02-28"},
        {S::STRING_FORMAT_TIME, "12:00:00.123+01:00"},
        {S::STRING_FORMAT_DATETIME, "2018-02-28T12:00:00Z"},
        {S::STRING_FORMAT_LANGUAGE, "de-at"},
        {S::STRING_FORMAT_SERVICECATEGORY, "swdl"},
        {S::STRING_FORMAT_VERSION, "v1.2.3"},
        {S::STRING_FORMAT_CUSTOM, "anything"},
        {S::STRING_POINT_2D, "123456;654321"},
        {S::STRING_RECTANGLE_2D, "000001;000002;000003;000004"},
    };
    return samples;
}

// Checking one accepted text against its format's shared compiled pattern; the argument is the
// format number.
void BM_ValidateFormat(benchmark::State& state) {
    const FormatSample& sample = formatSamples()[static_cast<std::size_t>(state.range(0))];
    const S value(sample.format);
    const std::string text = sample.text;
    for (auto _ : state) benchmark::DoNotOptimize(value.isValidValue(text));
    state.SetLabel(text);
}
BENCHMARK(BM_ValidateFormat)->DenseRange(S::STRING_FORMAT_TEXT, S::STRING_RECTANGLE_2D);

// Constructing a version value: a shared pointer copy, no compilation.
void BM_ConstructFormattedValue(benchmark::State& state) {
    for (auto _ : state) {
        PropertyValueFormatedString<S::STRING_FORMAT_VERSION> value;
        benchmark::DoNotOptimize(value);
    }
}
BENCHMARK(BM_ConstructFormattedValue);

std::string versionArrayText(int count) {
    std::string text = "[";
    for (int i = 0; i < count; ++i) {
        if (i > 0) text += ", ";
        text += "\"" + std::to_string(count - i) + "." + std::to_string(i % 7) + ".3\"";
    }
    return text + "]";
}

typedef PropertyValueArray<PropertyValueFormatedString<S::STRING_FORMAT_VERSION>> VersionArray;

// Parsing, checking and storing a 20-element JSON array of versions.
void BM_ParseVersionArray20(benchmark::State& state) {
    const std::string text = versionArrayText(20);
    VersionArray array;
    for (auto _ : state) benchmark::DoNotOptimize(array.setValueFromString(text));
    state.SetItemsProcessed(state.iterations() * 20);
}
BENCHMARK(BM_ParseVersionArray20);

// matches over a 20-element array: argument 1 matches the last element in order, 0 none.
void BM_ArrayMatches20(benchmark::State& state) {
    VersionArray array;
    array.setValueFromString(versionArrayText(20));
    const Poco::RegularExpression re(state.range(0) != 0 ? "9\\..*" : "x.*");
    for (auto _ : state) benchmark::DoNotOptimize(array.matches(re));
}
BENCHMARK(BM_ArrayMatches20)->Arg(1)->Arg(0);

}  // namespace
