#include <malloc.h>

#include <gtest/gtest.h>

#include "Data/ElementFixture.h"

namespace Kivo::Test {
namespace {

// Five values, every one of them indexed: id, name and uri, a text and an integer.
class Track : public Data::Element {
public:
    explicit Track(Data::AbstractResource& resource)
        : Element("Track", resource),
          genre("genre", this, PropertyValueString("")),
          year("year", this, PropertyValueNumberBase<long>()) {
        registerAtOwner(genre, year);
    }
    Data::Base::PropertyString genre;
    Data::Base::PropertyInteger year;
};

bool heapIsCounted() {
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
    return false;  // the sanitizers' allocators do not report to mallinfo2
#else
    return true;
#endif
}

// What one element of a large resource costs on the heap, indexes and bookkeeping included.
// The bound is generous: it catches a return to earlier costs (1.75 KB per element and more), not a
// few bytes more.
TEST(ElementFootprint, AnIndexedElementStaysSmall) {
    if (!heapIsCounted()) GTEST_SKIP() << "heap use is not measurable under this sanitizer";
    const int count = 2000;
    const std::size_t maxBytesPerElement = 1700;
    Data::Service service{"Media", "test service", 8080, PropertyValueUuid()};
    TestContainer<Track> tracks(service, "Tracks");
    const std::size_t before = mallinfo2().uordblks;
    for (int n = 0; n < count; ++n) {
        const auto json = parseObject(R"({"id":")" + uuidOf(n) + R"(","name":"Track )" +
                                      std::to_string(n) + R"(","genre":"genre )" +
                                      std::to_string(n % 20) + R"(","year":)" +
                                      std::to_string(1950 + n % 70) + "}");
        ASSERT_TRUE(tracks.addElement(json.get()).isSuccess()) << n;
    }
    const std::size_t perElement = (mallinfo2().uordblks - before) / count;
    RecordProperty("bytes_per_element", static_cast<int>(perElement));
    EXPECT_LE(perElement, maxBytesPerElement);
    EXPECT_GT(perElement, 100u) << "the heap was not measured";
    Data::AbstractResource::ElementQueryResult found;
    ASSERT_TRUE(tracks.findElements(keyQuery("genre", "genre 7"), found).isSuccess());
    EXPECT_EQ(static_cast<std::size_t>(count / 20), found.size()) << "every element is indexed";
}

}  // namespace
}  // namespace Kivo::Test
